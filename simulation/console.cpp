#include "simulation/console.h"

#include <fmt/format.h>

namespace vosk::simulation {

using platform::Result;
using platform::StandardStream;

namespace {

std::string NameOf(StandardStream stream) {
  if (stream == StandardStream::input) return "in";
  return stream == StandardStream::output ? "out" : "err";
}

}  // namespace

template <typename Effect>
auto SimConsole::OnScreen(std::string_view operation, const std::string& subject, Effect effect) {
  using Answer = decltype(effect());
  return choke_.Perform(operation, subject, [&]() -> Answer {
    if (State(StandardStream::output).target != StreamTarget::console) {
      return tl::unexpected(platform::kInvalidHandle);
    }
    return effect();
  });
}

Result<std::uint32_t> SimConsole::OutputCodePage() {
  return choke_.Perform("console.OutputCodePage", {},
                        [&]() -> Result<std::uint32_t> { return code_page; });
}

Result<> SimConsole::SetOutputCodePage(std::uint32_t wanted) {
  asked_code_page_ = wanted;
  return choke_.Perform("console.SetOutputCodePage", fmt::format("{}", wanted), [&]() -> Result<> {
    code_page = wanted;
    return {};
  });
}

bool SimConsole::HasStream(StandardStream stream) {
  choke_.Announce("console.HasStream", NameOf(stream));
  return State(stream).target != StreamTarget::missing;
}

Result<std::uint32_t> SimConsole::Mode(StandardStream stream) {
  return choke_.Perform("console.Mode", NameOf(stream), [&]() -> Result<std::uint32_t> {
    const StreamState& state = State(stream);
    if (state.target != StreamTarget::console) return tl::unexpected(platform::kInvalidHandle);
    return state.mode;
  });
}

Result<> SimConsole::SetMode(StandardStream stream, std::uint32_t mode) {
  if (stream == StandardStream::input) asked_input_mode_ = mode;
  const std::string subject = fmt::format("{} {}", NameOf(stream), mode);
  return choke_.Perform("console.SetMode", subject, [&]() -> Result<> {
    StreamState& state = State(stream);
    if (state.target != StreamTarget::console) return tl::unexpected(platform::kInvalidHandle);
    if (stream != StandardStream::input && (mode & platform::kVirtualTerminalProcessing) != 0 &&
        !understands_escapes) {
      return tl::unexpected(platform::kInvalidParameter);
    }
    state.mode = mode;
    return {};
  });
}

Result<platform::ConsoleInfo> SimConsole::Info() {
  return OnScreen("console.Info", {}, [&]() -> Result<platform::ConsoleInfo> { return info; });
}

Result<> SimConsole::SetTextAttributes(std::uint16_t attributes) {
  const std::string subject = fmt::format("{}", attributes);
  return OnScreen("console.SetTextAttributes", subject, [&]() -> Result<> {
    info.attributes = attributes;
    return {};
  });
}

Result<> SimConsole::SetCursor(int column, int row) {
  const std::string subject = fmt::format("{},{}", column, row);
  return OnScreen("console.SetCursor", subject, [&]() -> Result<> {
    cursor_column = column;
    cursor_row = row;
    if (on_cursor) on_cursor(column, row);
    return {};
  });
}

Result<> SimConsole::SetCursorVisible(bool visible) {
  const std::string subject = visible ? "yes" : "no";
  return OnScreen("console.SetCursorVisible", subject, [&]() -> Result<> {
    cursor_visible = visible;
    return {};
  });
}

void SimConsole::Write(StandardStream stream, std::string_view text) {
  choke_.Announce("console.Write", NameOf(stream));
  if (State(stream).target == StreamTarget::missing) return;
  NoteScrollRegion(text);
  if (on_write) return on_write(text);
  written_.push_back({stream, std::string(text)});
}

// "ESC [ TOP ; BOTTOM r" confines scrolling, and without rows frees it.
void SimConsole::NoteScrollRegion(std::string_view text) {
  constexpr std::string_view kBegin = "\x1b[";
  for (std::size_t at = text.find(kBegin); at != std::string_view::npos;
       at = text.find(kBegin, at)) {
    at += kBegin.size();
    const std::size_t end = text.find_first_not_of("0123456789;", at);
    if (end != std::string_view::npos && text[end] == 'r') scrolls_in_part_ = end != at;
  }
}

void SimConsole::Close() {
  for (StreamState& stream : streams_) stream.mode = StreamState{}.mode;
  State(StandardStream::input).mode = kFoundInputMode;
  info.attributes = kFoundAttributes;
  code_page = asked_code_page_ = kFoundCodePage;
  asked_input_mode_ = kFoundInputMode;
  scrolls_in_part_ = false;
  cursor_visible = true;
  keys.clear();
}

bool SimConsole::KeyWaiting() {
  choke_.Announce("console.KeyWaiting");
  return !keys.empty();
}

int SimConsole::ReadKey() {
  choke_.Announce("console.ReadKey");
  if (keys.empty()) choke_.ExceedBudget("waits for a key that nobody presses");
  const int key = keys.front();
  keys.pop_front();
  return key;
}

std::string SimConsole::TextOf(StandardStream stream) const {
  std::string all;
  for (const auto& written : written_) {
    if (written.stream == stream) all += written.text;
  }
  return all;
}

std::string SimConsole::Text() const {
  std::string all;
  for (const auto& written : written_) all += written.text;
  return all;
}

}  // namespace vosk::simulation
