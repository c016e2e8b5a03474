#include "process/process_walk.h"

namespace vosk::process {

bool IsEmptyList(const WalkFailure& failure) {
  return failure.step == WalkStep::first_entry && failure.code == platform::kNoMoreFiles;
}

void LogWalkFailure(const WalkFailure& failure, const WalkTexts& texts, console::LogSink& log) {
  switch (failure.step) {
    case WalkStep::snapshot:
      return log.LogError("{}{}", texts.snapshot, failure.code);
    case WalkStep::first_entry:
      return log.LogError("{}{}", texts.first_entry, failure.code);
    case WalkStep::next_entry:
      return log.LogError("{}{}", texts.next_entry, failure.code);
  }
}

std::optional<WalkFailure> WalkProcesses(
    platform::Processes& processes,
    const std::function<void(const platform::ProcessEntry&)>& visit) {
  const auto snapshot = processes.TakeSnapshot();
  if (!snapshot) return WalkFailure{WalkStep::snapshot, snapshot.error().code};
  auto entry = (*snapshot)->First();
  if (!entry) return WalkFailure{WalkStep::first_entry, entry.error().code};
  for (; entry; entry = (*snapshot)->Next()) visit(*entry);
  if (entry.error() == platform::kNoMoreFiles) return std::nullopt;
  return WalkFailure{WalkStep::next_entry, entry.error().code};
}

}  // namespace vosk::process
