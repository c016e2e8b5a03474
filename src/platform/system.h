#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "platform/types.h"

namespace vosk::platform {

// The longest path, in characters with its terminator, that the older system calls return.
inline constexpr std::size_t kMaxPath = 260;

// What would end a console program. After the last three nothing keeps it from ending.
enum class ControlEvent { interrupt, interrupt_by_break, console_closed, logoff, shutdown };

// Called on a thread of the system's own. True: the event is answered, and the program goes on.
using ControlHandler = std::function<bool(ControlEvent)>;

class System {
 public:
  virtual ~System() = default;
  // Returns the temporary directory as the system spells it; also fails if it exceeds kMaxPath.
  virtual Result<std::filesystem::path> TempPath() = 0;
  // Returns the file of the running program; also fails if its name is longer than kMaxPath.
  virtual Result<std::filesystem::path> ModulePath() = 0;
  virtual Result<std::filesystem::path> RoamingAppDataPath() = 0;
  virtual Result<std::string> ComputerName() = 0;  // UTF-8
  // Sets COM up apartment-threaded, without OLE1/DDE. Each success needs one UninitializeCom. The
  // error is kChangedMode if somebody else has already set COM up in another mode.
  virtual Result<> InitializeCom() = 0;
  virtual void UninitializeCom() = 0;
  // One handler at a time. Removing it waits for a call of it that is under way.
  virtual Result<> SetControlHandler(ControlHandler handler) = 0;
  virtual void RemoveControlHandler() = 0;
  // A message box of UTF-8 texts with an error icon and an OK button; returns when it is closed.
  virtual void ShowErrorBox(const std::string& title, const std::string& text) = 0;
};

}  // namespace vosk::platform
