#include "console/status_bar.h"

#include <fmt/format.h>
#include <fmt/printf.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "console/colours.h"
#include "console/display_text.h"
#include "console/screen.h"
#include "console/styled_line.h"
#include "console/uptime.h"

namespace vosk::console {
namespace {

// The columns reserved for each value, so that everything to its right stays in place.
struct FieldWidths {
  int pid;
  int version;
  int crashes;
  int uptime;
};

// A Core is restarted after 12 hours, so "12h 59m 59s" is the longest uptime in normal service.
constexpr FieldWidths kFieldWidths{.pid = 6, .version = 9, .crashes = 4, .uptime = 11};
constexpr FieldWidths kWideFieldWidths{.pid = 8, .version = 10, .crashes = 6, .uptime = 15};
// From this width on, the wide fields leave room for a transfer and Red Alert.
constexpr int kWideWindow = 120;
constexpr std::string_view kLongestActivity = "Downloading";

constexpr std::string_view kSeparator = " | ";

// Octal, because a hexadecimal escape would swallow the digit after it.
constexpr std::string_view kSaveCursor = "\0337";
constexpr std::string_view kRestoreCursor = "\0338";

// The less important a segment, the sooner a narrow window loses it.
enum class Importance {
  reserved_place,
  normal_mode,
  version,
  title,
  uptime,
  crashes,
  transfer,
  red_alert,
  core
};

struct Segment {
  Importance importance;
  std::string_view joint;  // between the segment and the one to its left
  struct Piece {
    std::string_view style;
    std::string text;
  };
  std::vector<Piece> pieces;
};

std::string Field(std::string_view text, std::size_t width) {
  return fmt::format("{:<{}}", text, width);
}

Segment TransferSegment(const TransferProgress& progress) {
  const std::string label = Field(progress.ActivityLabel(), kLongestActivity.size());
  return {.importance = Importance::transfer,
          .joint = " ",
          .pieces = {{kWhite, fmt::format("[{} ", label)},
                     {kYellow, fmt::sprintf("%3.0f%%", progress.Percentage())},
                     {kWhite, "] "}}};
}

// Keeps a transfer's place free, so that its coming and going moves nothing: it would take a blank,
// itself in brackets and a blank in place of the separator.
Segment ReservedPlace() {
  constexpr std::size_t kTransferWidth = 1 + kLongestActivity.size() + std::size("[ 100%]") - 1 + 1;
  return {.importance = Importance::reserved_place,
          .joint = "",
          .pieces = {{kGrey, std::string(kTransferWidth - kSeparator.size(), ' ')}}};
}

Segment ModeSegment(bool red_alert) {
  if (red_alert) {
    return {.importance = Importance::red_alert,
            .joint = " |",
            .pieces = {{kBoldWhiteOnRed, " *** RED ALERT *** "}}};
  }
  return {.importance = Importance::normal_mode, .joint = " |", .pieces = {{kGrey, " NORMAL "}}};
}

Segment UptimeSegment(const StatusSnapshot& status, const FieldWidths& widths) {
  constexpr std::string_view kUptime = "Uptime: ";
  constexpr std::string_view kLaunch = "Launch: ";
  static_assert(kUptime.size() == kLaunch.size());
  if (status.next_launch && !status.uptime) {
    const std::string wait = "in " + FormatUptime(*status.next_launch);
    return {Importance::uptime,
            kSeparator,
            {{kWhite, std::string(kLaunch)}, {kYellow, Field(wait, widths.uptime)}}};
  }
  const std::string uptime = status.uptime ? FormatUptime(*status.uptime) : "--";
  return {Importance::uptime,
          kSeparator,
          {{kWhite, std::string(kUptime)}, {kGreen, Field(uptime, widths.uptime)}}};
}

// Returns the segments from left to right.
std::vector<Segment> Segments(const StatusSnapshot& status, const TransferProgress& progress,
                              bool wide) {
  const FieldWidths& widths = wide ? kWideFieldWidths : kFieldWidths;
  const std::string pid = status.core_pid == 0 ? "?" : fmt::format("{}", status.core_pid);
  const std::string version = "v" + PlainText(status.core_version);
  const std::string crashes = fmt::format("{}", status.crash_count);

  std::vector<Segment> segments;
  segments.push_back({Importance::title, "", {{kBoldCyan, " VOSK"}}});
  if (progress.Percentage() != TransferProgress::kHidden) {
    segments.push_back(TransferSegment(progress));
  } else if (wide) {
    segments.push_back(ReservedPlace());
  }
  segments.push_back(
      {Importance::core, kSeparator, {{kWhite, "Core: "}, {kCyan, Field(pid, widths.pid)}}});
  segments.push_back({Importance::version, " ", {{kCyan, Field(version, widths.version)}}});
  segments.push_back(
      {Importance::crashes,
       kSeparator,
       {{kWhite, "Crashes: "},
        {status.crash_count > 0 ? kYellow : kGreen, Field(crashes, widths.crashes)}}});
  segments.push_back(UptimeSegment(status, widths));
  segments.push_back(ModeSegment(status.red_alert));
  return segments;
}

std::string_view JointOf(const Segment& segment, const Segment* left) {
  if (left == nullptr) return segment.importance == Importance::title ? "" : " ";
  // The transfer's bracket separates well enough.
  return left->importance == Importance::transfer ? "" : segment.joint;
}

StyledLine Join(const std::vector<Segment>& segments, int columns) {
  StyledLine line(columns);
  const auto add = [&line](std::string_view style, std::string_view text) {
    line.Add(fmt::format("{}{}", kOnBlue, style), text);
  };
  const Segment* left = nullptr;
  for (const Segment& segment : segments) {
    add(kGrey, JointOf(segment, left));
    for (const auto& piece : segment.pieces) add(piece.style, piece.text);
    left = &segment;
  }
  return line;
}

}  // namespace

std::string BuildStatusRow(const StatusSnapshot& status, const TransferProgress& progress,
                           int window_width) {
  if (window_width < 1) return {};
  std::vector<Segment> segments = Segments(status, progress, window_width >= kWideWindow);
  StyledLine line = Join(segments, UsableColumns(window_width));
  while (line.IsClipped() && segments.size() > 1) {
    segments.erase(std::min_element(segments.begin(), segments.end(),
                                    [](const Segment& one, const Segment& other) {
                                      return one.importance < other.importance;
                                    }));
    line = Join(segments, UsableColumns(window_width));
  }
  return fmt::format("{}{}\x1b[K{}", line.Bytes(), kOnBlue, kReset);
}

StatusBar::StatusBar(platform::Console& console, LogSink& log, const TransferProgress& progress,
                     SnapshotSource snapshot)
    : console_(console), log_(log), progress_(progress), snapshot_(std::move(snapshot)) {}

void StatusBar::DrawStatusBar() {
  const std::lock_guard lock(log_.ConsoleLock());
  const auto window = DrawableWindow(console_, log_);
  if (!window) return;
  const std::string row = BuildStatusRow(snapshot_(), progress_, window->Width());
  console_.Write(platform::StandardStream::output,
                 fmt::format("\x1b[?25l{}\x1b[{};1H\x1b[2K{}{}\x1b[?25h", kSaveCursor,
                             window->Height(), row, kRestoreCursor));
}

}  // namespace vosk::console
