#include "supervisor/unsent_reports.h"

#include <algorithm>

#include "console/uptime.h"
#include "identity.h"
#include "text/utf.h"

namespace vosk::supervisor {
namespace {

using Path = std::filesystem::path;
using std::chrono::seconds;

constexpr std::uint64_t kMostBytes = std::uint64_t{2} << 30;
constexpr std::uint64_t kBytesPerMegabyte = 1'048'576;
constexpr seconds kPauseAfterFailure = std::chrono::hours(1);
constexpr seconds kPauseAfterSuccess = std::chrono::minutes(10);
constexpr seconds kPauseAfterDisturbance = std::chrono::minutes(1);
constexpr seconds kQuestionInterval{1};
constexpr std::string_view kGivenUpSuffix = ".gave_up";
constexpr int kMostFailures = 20;
// Somebody may just be looking at the file; a virus scanner, for example.
constexpr int kRenameAttempts = 3;
constexpr std::chrono::milliseconds kRenamePause{50};
constexpr auto kLongestOutage = std::chrono::hours(2 * 24);
constexpr auto kLongestWait = std::chrono::hours(30 * 24);

Path With(const Path& path, std::string_view suffix) {
  Path longer = path;
  longer += suffix;
  return longer;
}

}  // namespace

UnsentReports::UnsentReports(platform::Files& files, platform::Clock& clock, console::LogSink& log,
                             report::Uploader& uploader, const Places& places,
                             std::function<bool()> disturbed)
    : files_(files),
      clock_(clock),
      log_(log),
      uploader_(uploader),
      places_(places),
      disturbed_(std::move(disturbed)) {}

Path UnsentReports::Folder() const {
  return places_.TempDirectory() / identity::kUnsentReportsName;
}

void UnsentReports::List(const Path& folder, std::vector<Report>& reports) {
  if (!files_.Exists(folder).value_or(false)) return;
  const auto walk = files_.Walk(folder, platform::WalkDepth::direct_entries);
  if (!walk) return log_.LogWarn("Unsent reports: cannot look into {}: {}", folder, walk.error());
  while (true) {
    const auto entry = (*walk)->Next();
    if (!entry) {
      return log_.LogWarn("Unsent reports: cannot look into {}: {}", folder, entry.error());
    }
    if (!*entry) return;
    const Path& path = **entry;
    const bool given_up = path.extension() == kGivenUpSuffix;
    if (!given_up && (path.extension() != kUnsentSuffix || path.stem().extension() != ".zip")) {
      continue;
    }
    reports.push_back({.path = path,
                       .given_up = given_up,
                       .written = files_.LastWriteTime(path).value_or(clock_.WallNow()),
                       .size = files_.SizeOf(path).value_or(0)});
  }
}

std::vector<UnsentReports::Report> UnsentReports::ListAll() {
  std::vector<Report> reports;
  List(Folder(), reports);
  List(places_.dump_storage_directory, reports);
  std::ranges::stable_sort(reports, {}, &Report::written);
  return reports;
}

void UnsentReports::Rescue() {
  TidyFolder();
  std::vector<Report> reports = ListAll();
  Bound(reports);
  for (const Report& report : reports) {
    if (report.path.parent_path() == Folder()) continue;
    if (const auto made = files_.CreateDirectories(Folder()); !made) {
      return log_.LogError("Unsent reports: cannot make {}: {}", Folder(), made.error());
    }
    const Path kept = Folder() / report.path.filename();
    if (const auto moved = RenamePatiently(report.path, kept)) {
      log_.LogInfo("Unsent reports: kept for another attempt: {}", kept);
    } else {
      log_.LogError("Unsent reports: cannot move {}: {}", report.path, moved.error());
    }
  }
}

platform::Result<> UnsentReports::RenamePatiently(const Path& from, const Path& to) {
  auto renamed = files_.Rename(from, to);
  for (int attempt = 1; !renamed && attempt < kRenameAttempts; ++attempt) {
    clock_.SleepFor(kRenamePause);
    renamed = files_.Rename(from, to);
  }
  return renamed;
}

void UnsentReports::TidyFolder() {
  if (!files_.Exists(Folder()).value_or(false)) return;
  const auto walk = files_.Walk(Folder(), platform::WalkDepth::direct_entries);
  if (!walk) return;
  std::vector<Path> interrupted;
  std::vector<Path> sent;
  while (true) {
    const auto entry = (*walk)->Next();
    if (!entry || !*entry) break;
    if ((*entry)->extension() == ".zip") interrupted.push_back(**entry);
    if ((*entry)->extension() == ".sent") sent.push_back(**entry);
  }
  for (const Path& zip : interrupted) {
    static_cast<void>(RenamePatiently(zip, With(zip, kUnsentSuffix)));
  }
  for (const Path& zip : sent) static_cast<void>(files_.Remove(zip));
}

void UnsentReports::Bound(std::vector<Report>& reports) {
  std::uint64_t bytes = 0;
  for (const Report& report : reports) bytes += report.size;
  auto oldest = reports.begin();
  for (; oldest != reports.end() && bytes > kMostBytes; ++oldest) {
    bytes -= oldest->size;
    if (const auto removed = files_.Remove(oldest->path)) {
      log_.LogWarn("Unsent reports: deleted the oldest, {} ({} MB), to keep within {} MB.",
                   oldest->path, oldest->size / kBytesPerMegabyte, kMostBytes / kBytesPerMegabyte);
    } else {
      log_.LogError("Unsent reports: cannot delete {}: {}", oldest->path, removed.error());
    }
  }
  reports.erase(reports.begin(), oldest);
}

void UnsentReports::NoteFailure() {
  next_attempt_ = clock_.SteadyNow() + kPauseAfterFailure;
  std::vector<Report> reports = ListAll();
  Bound(reports);
}

void UnsentReports::SendWhenDue(SteadyTime now) {
  if (now < next_attempt_) return;
  next_attempt_ = now + kPauseAfterSuccess;
  // In its own folder a report survives even a VOSK that is ended while it sends it.
  Rescue();
  std::vector<Report> reports = ListAll();
  std::erase_if(reports, [this](const Report& report) { return GiveUp(report); });
  if (!reports.empty()) Send(reports.front(), reports.size());
}

bool UnsentReports::GiveUp(const Report& report) {
  if (report.given_up) return true;
  const auto failed = failures_.find(report.path.filename());
  const int times = failed == failures_.end() ? 0 : failed->second;
  const auto waited = clock_.WallNow() - report.written;
  // A server that is down for a day is no reason to give up what it has never looked at.
  const bool failed_too_often = times >= kMostFailures && waited >= kLongestOutage;
  if (!failed_too_often && waited < kLongestWait) return false;
  const Path given_up = With(report.path, kGivenUpSuffix);
  if (const auto renamed = files_.Rename(report.path, given_up)) {
    log_.LogWarn("Unsent reports: gave up on {} after {} failed attempts.", given_up, times);
  } else {
    log_.LogError("Unsent reports: cannot rename {}: {}", report.path, renamed.error());
  }
  return true;
}

void UnsentReports::Send(const Report& report, std::size_t waiting) {
  Path zip = report.path;
  zip.replace_extension();
  if (const auto renamed = files_.Rename(report.path, zip); !renamed) {
    log_.LogWarn("Unsent reports: cannot rename {}: {}", report.path, renamed.error());
    return;
  }
  log_.LogInfo("Unsent reports: sending {} once more; {} waiting.", zip, waiting);
  bool broken_off = false;
  SteadyTime next_question{};
  const auto interrupt = [&] {
    const SteadyTime now = clock_.SteadyNow();
    if (broken_off || now < next_question) return broken_off;
    next_question = now + kQuestionInterval;
    return broken_off = disturbed_();
  };
  if (uploader_.TusUpload(zip, interrupt)) {
    PutAwaySent(zip);
    failures_.erase(report.path.filename());
    log_.LogInfo("Unsent reports: delivered {}; {} still waiting.", zip, waiting - 1);
    next_attempt_ = clock_.SteadyNow() + kPauseAfterSuccess;
    return;
  }
  if (const auto renamed = RenamePatiently(zip, report.path); !renamed) {
    log_.LogError("Unsent reports: cannot rename {}: {}", zip, renamed.error());
  }
  if (!broken_off) ++failures_[report.path.filename()];
  const seconds pause = broken_off ? kPauseAfterDisturbance : kPauseAfterFailure;
  next_attempt_ = clock_.SteadyNow() + pause;
  log_.LogWarn("Unsent reports: {} {}. The next attempt is due in {}.",
               broken_off ? "broke off the upload of" : "could not deliver", report.path,
               console::FormatUptime(pause));
}

void UnsentReports::PutAwaySent(const Path& zip) {
  if (!files_.Exists(zip).value_or(false) || files_.Remove(zip)) return;
  // It must not be taken for a report whose upload was cut short.
  static_cast<void>(files_.Rename(zip, With(zip, ".sent")));
}

}  // namespace vosk::supervisor
