// Reports that could not be sent: they survive the next start, and are sent again while the Core
// runs undisturbed.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <vector>

#include "console/log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "report/upload/uploader.h"
#include "supervisor/places.h"
#include "supervisor/state.h"

namespace vosk::supervisor {

inline constexpr std::string_view kUnsentSuffix = ".failed_upload";

class UnsentReports {
 public:
  using SteadyTime = SupervisorState::SteadyTime;

  // An upload is broken off as soon as `disturbed` returns true; it is asked once a second.
  UnsentReports(platform::Files& files, platform::Clock& clock, console::LogSink& log,
                report::Uploader& uploader, const Places& places, std::function<bool()> disturbed);

  // Moves the unsent reports out of the dump storage, which every start empties.
  void Rescue();
  // A report has just been kept because it could not be sent: it is tried again in an hour. Deletes
  // the oldest reports beyond the bytes that all of them may take.
  void NoteFailure();
  // Sends the oldest report once more if its time has come. Takes as long as an upload.
  void SendWhenDue(SteadyTime now);

 private:
  struct Report {
    std::filesystem::path path;
    bool given_up = false;  // it only takes room
    std::chrono::system_clock::time_point written;
    std::uint64_t size = 0;
  };

  [[nodiscard]] std::filesystem::path Folder() const;
  // Adds the reports of a folder; one that is missing or unreadable has none.
  void List(const std::filesystem::path& folder, std::vector<Report>& reports);
  // Those of both folders, the oldest first.
  [[nodiscard]] std::vector<Report> ListAll();
  // Gives the folder's files back the names that say what they are, after a VOSK that was ended
  // while it sent one.
  void TidyFolder();
  // Deletes the oldest of these reports until the rest keeps within its bytes.
  void Bound(std::vector<Report>& reports);
  // Tries a few times while the file is held.
  platform::Result<> RenamePatiently(const std::filesystem::path& from,
                                     const std::filesystem::path& to);
  // Returns true if the report is too old or has failed too often; it is set aside then.
  bool GiveUp(const Report& report);
  void Send(const Report& report, std::size_t waiting);
  void PutAwaySent(const std::filesystem::path& zip);

  platform::Files& files_;
  platform::Clock& clock_;
  console::LogSink& log_;
  report::Uploader& uploader_;
  const Places& places_;
  std::function<bool()> disturbed_;
  SteadyTime next_attempt_{};
  std::map<std::filesystem::path, int> failures_;  // by the file's name
};

}  // namespace vosk::supervisor
