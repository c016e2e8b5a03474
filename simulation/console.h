// The console of the simulated system: the standard streams and the keyboard.
#pragma once

#include <array>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "platform/console.h"
#include "simulation/choke_point.h"

namespace vosk::simulation {

enum class StreamTarget { console, redirected, missing };

// What VOSK finds: grey on black, the code page of Western Europe, and an input mode with
// everything in it that a new console has, quick-edit too.
inline constexpr std::uint16_t kFoundAttributes = 7;
inline constexpr std::uint32_t kFoundCodePage = 850;
inline constexpr std::uint32_t kFoundInputMode = 0x1F7;

struct WrittenText {
  platform::StandardStream stream;
  std::string text;
};

class SimConsole : public platform::Console {
 public:
  explicit SimConsole(ChokePoint& choke) : choke_(choke) {}

  platform::Result<std::uint32_t> OutputCodePage() override;
  platform::Result<> SetOutputCodePage(std::uint32_t code_page) override;
  bool HasStream(platform::StandardStream stream) override;
  platform::Result<std::uint32_t> Mode(platform::StandardStream stream) override;
  platform::Result<> SetMode(platform::StandardStream stream, std::uint32_t mode) override;
  platform::Result<platform::ConsoleInfo> Info() override;
  platform::Result<> SetTextAttributes(std::uint16_t attributes) override;
  platform::Result<> SetCursor(int column, int row) override;
  platform::Result<> SetCursorVisible(bool visible) override;
  void Write(platform::StandardStream stream, std::string_view text) override;
  bool KeyWaiting() override;
  int ReadKey() override;

  void Redirect(platform::StandardStream stream, StreamTarget target) {
    State(stream).target = target;
  }
  // Returns everything written to one stream, or to both in order.
  [[nodiscard]] std::string TextOf(platform::StandardStream stream) const;
  [[nodiscard]] std::string Text() const;
  [[nodiscard]] const std::vector<WrittenText>& Written() const { return written_; }
  void Forget() { written_.clear(); }
  // Whether the code page and the input mode were given back, as far as the console took them, and
  // the whole window scrolls again.
  [[nodiscard]] bool SettingsAreGivenBack() const {
    return asked_code_page_ == kFoundCodePage && asked_input_mode_ == kFoundInputMode &&
           !scrolls_in_part_;
  }
  // The window goes with its program; the next one finds a fresh one.
  void Close();
  // If set, gets everything written, which is then not kept.
  std::function<void(std::string_view)> on_write;
  // Called when the cursor is set.
  std::function<void(int column, int row)> on_cursor;
  [[nodiscard]] std::uint32_t ModeOf(platform::StandardStream stream) { return State(stream).mode; }

  // The console's state as VOSK finds it; a test may change it before or during a run.
  platform::ConsoleInfo info{
      .left = 0, .top = 0, .right = 119, .bottom = 29, .attributes = kFoundAttributes};
  bool understands_escapes = true;
  std::uint32_t code_page = kFoundCodePage;
  bool cursor_visible = true;
  int cursor_column = 0;
  int cursor_row = 0;
  std::deque<int> keys;

 private:
  struct StreamState {
    StreamTarget target = StreamTarget::console;
    std::uint32_t mode = 3;
  };
  StreamState& State(platform::StandardStream stream) {
    return streams_.at(static_cast<std::size_t>(stream));
  }
  void NoteScrollRegion(std::string_view text);
  // Runs an effect that needs standard output to be a console.
  template <typename Effect>
  auto OnScreen(std::string_view operation, const std::string& subject, Effect effect);

  ChokePoint& choke_;
  std::array<StreamState, 3> streams_{StreamState{}, {}, {.mode = kFoundInputMode}};
  std::vector<WrittenText> written_;
  std::uint32_t asked_code_page_ = kFoundCodePage;
  std::uint32_t asked_input_mode_ = kFoundInputMode;
  bool scrolls_in_part_ = false;
};

}  // namespace vosk::simulation
