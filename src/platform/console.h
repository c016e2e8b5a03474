#pragma once

#include <string_view>

#include "platform/types.h"

namespace vosk::platform {

// `input` is the keyboard of the console, wherever the program's standard input leads.
enum class StandardStream { output, error, input };

inline constexpr std::uint32_t kUtf8CodePage = 65001;
// The bit of a console's output mode that makes it interpret escape sequences.
inline constexpr std::uint32_t kVirtualTerminalProcessing = 4;
// Bits of a console's input mode: what the mouse does arrives among the keys; a click marks text
// and stops every program that writes; and whether bits such as the last one count at all.
inline constexpr std::uint32_t kMouseInput = 0x10;
inline constexpr std::uint32_t kQuickEdit = 0x40;
inline constexpr std::uint32_t kExtendedFlags = 0x80;

// The visible window in buffer coordinates, edges included, and the current text attribute.
struct ConsoleInfo {
  int left = 0;
  int top = 0;
  int right = 0;
  int bottom = 0;
  std::uint16_t attributes = 0;

  [[nodiscard]] int Width() const { return right - left + 1; }
  [[nodiscard]] int Height() const { return bottom - top + 1; }
};

class Console {
 public:
  virtual ~Console() = default;
  virtual Result<std::uint32_t> OutputCodePage() = 0;
  virtual Result<> SetOutputCodePage(std::uint32_t code_page) = 0;
  // Returns whether the process has a handle for the stream at all.
  virtual bool HasStream(StandardStream stream) = 0;
  // Mode and information fail for a stream that is no console. Nothing is written to `input`.
  virtual Result<std::uint32_t> Mode(StandardStream stream) = 0;
  virtual Result<> SetMode(StandardStream stream, std::uint32_t mode) = 0;
  virtual Result<ConsoleInfo> Info() = 0;  // of standard output
  virtual Result<> SetTextAttributes(std::uint16_t attributes) = 0;
  virtual Result<> SetCursor(int column, int row) = 0;  // buffer coordinates, from 0
  virtual Result<> SetCursorVisible(bool visible) = 0;
  // Writes UTF-8 text and flushes it; "\n" ends a line. A failed write is ignored: there is nowhere
  // left to report it.
  virtual void Write(StandardStream stream, std::string_view text) = 0;
  virtual bool KeyWaiting() = 0;
  // Returns the next key code of the C runtime, without echo; call only if a key is waiting.
  virtual int ReadKey() = 0;
};

}  // namespace vosk::platform
