// What VOSK changes of the console's own settings, and how it gives them back.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/console.h"

namespace vosk::console {

class ConsoleSettings {
 public:
  explicit ConsoleSettings(platform::Console& console) : console_(console) {}

  // Notes what it finds, asks for UTF-8 and escape sequences, and switches quick-edit off: a click
  // into the window would stop VOSK at its next write until a key is pressed. Failures only cost
  // looks.
  void Prepare();
  // Gives the text attributes, the code page and the input mode back as they were found. A second
  // call does nothing.
  void Restore();

 private:
  void SwitchQuickEditOff();

  platform::Console& console_;
  std::optional<std::uint16_t> attributes_;
  std::optional<std::uint32_t> code_page_;
  std::optional<std::uint32_t> input_mode_;
};

}  // namespace vosk::console
