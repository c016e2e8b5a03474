#pragma once

#include <memory>

#include "platform/host.h"

namespace vosk::platform::windows {

// Owns Windows' side of the platform for as long as the program runs.
class WindowsHost {
 public:
  WindowsHost();
  ~WindowsHost();
  [[nodiscard]] Host Bundle();

 private:
  std::unique_ptr<Clock> clock_;
  std::unique_ptr<Console> console_;
  std::unique_ptr<DumpWriter> dump_writer_;
  std::unique_ptr<Files> files_;
  std::unique_ptr<Processes> processes_;
  std::unique_ptr<System> system_;
};

}  // namespace vosk::platform::windows
