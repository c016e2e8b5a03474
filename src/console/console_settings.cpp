#include "console/console_settings.h"

#include <utility>

namespace vosk::console {

using platform::StandardStream;

void ConsoleSettings::Prepare() {
  if (const auto info = console_.Info()) attributes_ = info->attributes;
  if (const auto code_page = console_.OutputCodePage()) {
    code_page_ = *code_page;
    static_cast<void>(console_.SetOutputCodePage(platform::kUtf8CodePage));
  }
  if (const auto mode = console_.Mode(StandardStream::output)) {
    static_cast<void>(
        console_.SetMode(StandardStream::output, *mode | platform::kVirtualTerminalProcessing));
  }
  SwitchQuickEditOff();
}

void ConsoleSettings::SwitchQuickEditOff() {
  const auto mode = console_.Mode(StandardStream::input);
  if (!mode) return;
  input_mode_ = *mode;
  // Without the extended flag the console does not look at the bit of quick-edit. The clicks that
  // it took would pile up among the keys, where nobody reads them.
  constexpr std::uint32_t kUnwanted = platform::kQuickEdit | platform::kMouseInput;
  static_cast<void>(
      console_.SetMode(StandardStream::input, (*mode & ~kUnwanted) | platform::kExtendedFlags));
}

void ConsoleSettings::Restore() {
  if (const auto attributes = std::exchange(attributes_, {})) {
    static_cast<void>(console_.SetTextAttributes(*attributes));
  }
  if (const auto code_page = std::exchange(code_page_, {})) {
    static_cast<void>(console_.SetOutputCodePage(*code_page));
  }
  if (const auto mode = std::exchange(input_mode_, {})) {
    static_cast<void>(console_.SetMode(StandardStream::input, *mode));
  }
}

}  // namespace vosk::console
