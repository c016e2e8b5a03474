#include "console/boot_animation.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "console/colours.h"
#include "console/display_text.h"
#include "console/screen.h"
#include "console/styled_line.h"
#include "identity.h"
#include "text/utf.h"

namespace vosk::console {
namespace {

static_assert(kBootFrames * kBootFrameTime < std::chrono::milliseconds(2500));

constexpr std::array<std::string_view, 12> kPhrases = {
    "NEURAL INTERFACE ACTIVE",   "SCANNING GRID NODES",        "BYPASSING SECURITY PROTOCOLS",
    "ESTABLISHING QUANTUM LINK", "ACCESSING MAINFRAME",        "DECRYPTING DATA STREAMS",
    "SYNCHRONIZING NEURAL NET",  "MEMORY BUFFERS INITIALIZED", "CALCULATING QUANTUM PATHWAYS",
    "FIREWALL BREACH DETECTED",  "COUNTERMEASURES DEPLOYED",   "SYNTHETIC CONSCIOUSNESS ONLINE"};
constexpr std::size_t kShownPhrases = 4;

constexpr std::string_view kGlyphs = "0123456789ABCDEF%#@&:;=+*!?/\\|[]{}()<>^_$~";

constexpr std::string_view kHumor = "HUMOR SETTING: 75%";
constexpr std::string_view kTrust = "TRUST SETTING: 95%";
constexpr std::string_view kTitle = "VELDRAN Core - VOSK (Vigilant Oversight & Supervision Kit)";
constexpr std::string_view kVersionLabel = "Version: ";
constexpr std::string_view kInitializing = "Initializing Systems";
constexpr std::string_view kHint = "Press [M] for Menu | [Q] to Quit";

constexpr std::array<std::string_view, 5> kCapitals = {
    "██   ██  █████   ██████ ██  ██", "██   ██ ██   ██ ██      ██ ██ ",
    "██   ██ ██   ██  █████  ████  ", " ██ ██  ██   ██      ██ ██ ██ ",
    "  ███    █████  ██████  ██  ██",
};

// The columns inside the frame.
constexpr int kBoxWidth = 62;
constexpr int kBoxMargin = 2;
constexpr int kSettingsColumn = 40;
// With fewer rows, the texts below the box would be lost.
constexpr int kLeastRowsWithBox = 14;

// The frames during which a text emerges from random glyphs.
struct Interval {
  int first;
  int last;
};
constexpr Interval kBoxTime{0, 11};
constexpr int kFirstPhraseFrame = 4;
constexpr int kFramesBetweenPhrases = 4;
constexpr int kFramesOfPhrase = 5;
constexpr int kFramesBetweenDots = 3;
constexpr Interval kHintTime{19, kBootFrames - 1};
static_assert(kFirstPhraseFrame + kFramesBetweenPhrases * (kShownPhrases - 1) + kFramesOfPhrase <
              kBootFrames);

// A small window loses the rows of the lowest ranks first.
namespace rank {
constexpr int kBlank = 0;
constexpr int kOldestPhrase = 1;
constexpr int kSetting = 10;
constexpr int kInitializing = 11;
constexpr int kVersion = 12;
constexpr int kHint = 13;
constexpr int kTitle = 14;
constexpr int kBox = 20;
}  // namespace rank

// Builds one frame.
class Frame {
 public:
  Frame(int number, int columns, std::mt19937& random)
      : number_(number), columns_(columns), random_(random) {}

  // Adds a row with one text, `indent` columns from the left.
  void AddText(int rank, std::string_view style, std::string_view text, Interval time,
               int indent = kBoxMargin) {
    StyledLine line(columns_);
    line.PadTo(style, indent);
    AddEmerging(line, style, text, time);
    picture_.Add(rank, line.Bytes());
  }
  void AddBlank() { picture_.Add(rank::kBlank, ""); }
  void AddBox();
  void AddSettings();
  void AddPhrases(const std::vector<std::string_view>& phrases);

  [[nodiscard]] std::string Bytes(int rows) {
    picture_.FitHeight(rows);
    return picture_.Bytes();
  }

 private:
  void AddEdge(std::string_view left, std::string_view right);
  void AddBoxRow(std::string_view capitals, std::string_view setting);
  void AddEmerging(StyledLine& line, std::string_view style, std::string_view text, Interval time);

  int number_;
  int columns_;
  std::mt19937& random_;
  Picture picture_;
};

// Adds the text; from frame to frame, random glyphs hide fewer of its characters.
void Frame::AddEmerging(StyledLine& line, std::string_view style, std::string_view text,
                        Interval time) {
  if (number_ < time.first) return;
  const auto frames = static_cast<unsigned>(time.last - time.first);
  const auto shown = static_cast<unsigned>(number_ - time.first);
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t start = at;
    const bool blank = text::NextCodePoint(text, at) == ' ';
    if (blank || shown >= frames || random_() % frames < shown) {
      line.Add(style, text.substr(start, at - start));
    } else {
      line.Add(kGreen, kGlyphs.substr(random_() % kGlyphs.size(), 1));
    }
  }
}

void Frame::AddEdge(std::string_view left, std::string_view right) {
  StyledLine line(columns_);
  std::string edge(left);
  for (int column = 0; column < kBoxWidth; ++column) edge += "═";
  line.Add(kCyan, edge + std::string(right));
  picture_.Add(rank::kBox, line.Bytes());
}

void Frame::AddBoxRow(std::string_view capitals, std::string_view setting) {
  StyledLine line(columns_);
  line.Add(kCyan, "║");
  line.PadTo(kCyan, 1 + kBoxMargin);
  AddEmerging(line, kBoldCyan, capitals, kBoxTime);
  line.PadTo(kCyan, 1 + kSettingsColumn);
  AddEmerging(line, kWhite, setting, kBoxTime);
  line.PadTo(kCyan, 1 + kBoxWidth);
  line.Add(kCyan, "║");
  picture_.Add(rank::kBox, line.Bytes());
}

void Frame::AddBox() {
  const std::string version = fmt::format("{}{}", kVersionLabel, identity::kVersion);
  AddEdge("╔", "╗");
  AddBoxRow("", "");
  AddBoxRow(kCapitals[0], "");
  AddBoxRow(kCapitals[1], kHumor);
  AddBoxRow(kCapitals[2], kTrust);
  AddBoxRow(kCapitals[3], "");
  AddBoxRow(kCapitals[4], version);
  AddBoxRow("", "");
  AddBoxRow(kTitle, "");
  AddEdge("╚", "╝");
}

void Frame::AddSettings() {
  AddText(rank::kTitle, kBoldCyan, kTitle, kBoxTime, 0);
  AddText(rank::kVersion, kWhite, fmt::format("{}{}", kVersionLabel, identity::kVersion), kBoxTime,
          0);
  AddText(rank::kSetting, kWhite, kHumor, kBoxTime, 0);
  AddText(rank::kSetting, kWhite, kTrust, kBoxTime, 0);
}

void Frame::AddPhrases(const std::vector<std::string_view>& phrases) {
  int first = kFirstPhraseFrame;
  int phrase_rank = rank::kOldestPhrase;
  for (const std::string_view phrase : phrases) {
    AddText(phrase_rank++, kGrey, phrase, {first, first + kFramesOfPhrase}, 2 * kBoxMargin);
    first += kFramesBetweenPhrases;
  }
}

}  // namespace

std::vector<std::string_view> ChooseBootPhrases(std::mt19937& random) {
  std::array<std::string_view, kPhrases.size()> cards = kPhrases;
  for (std::size_t drawn = 0; drawn < kShownPhrases; ++drawn) {
    std::swap(cards[drawn], cards[drawn + random() % (cards.size() - drawn)]);
  }
  return {cards.begin(), cards.begin() + kShownPhrases};
}

std::string BuildBootFrame(int frame_number, const std::vector<std::string_view>& phrases,
                           int window_width, int window_height, std::mt19937& random) {
  const int columns = UsableColumns(window_width);
  const int rows = std::max(window_height - 1, 0);
  const std::string dots(frame_number / kFramesBetweenDots, '.');

  Frame frame(frame_number, columns, random);
  const bool has_box = columns >= kBoxWidth + 2 && rows >= kLeastRowsWithBox;
  const int indent = has_box ? kBoxMargin : 0;
  if (has_box) {
    frame.AddBox();
    frame.AddBlank();
  } else {
    frame.AddSettings();
  }
  frame.AddText(rank::kInitializing, kYellow, fmt::format("{}{}", kInitializing, dots), {0, 0},
                indent);
  frame.AddPhrases(phrases);
  frame.AddBlank();
  frame.AddText(rank::kHint, kWhite, kHint, kHintTime, indent);
  return frame.Bytes(rows);
}

void PlayBootAnimation(platform::Console& console, platform::Clock& clock, LogSink& log,
                       std::mt19937& random) {
  const auto phrases = ChooseBootPhrases(random);
  std::pair<int, int> cleared_size{};
  for (int frame = 0; frame < kBootFrames; ++frame) {
    const auto window = DrawableWindow(console, log);
    if (!window) return;
    std::string bytes = "\x1b[?25l";
    const std::pair size{window->Width(), window->Height()};
    if (std::exchange(cleared_size, size) != size) bytes += fmt::format("{}\x1b[2J", kReset);
    bytes += BuildBootFrame(frame, phrases, size.first, size.second, random);
    if (frame == kBootFrames - 1) bytes += "\x1b[?25h";
    {
      const std::lock_guard lock(log.ConsoleLock());
      console.Write(platform::StandardStream::output, bytes);
    }
    clock.SleepFor(kBootFrameTime);
  }
}

}  // namespace vosk::console
