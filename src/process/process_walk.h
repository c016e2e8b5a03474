#pragma once

#include <functional>
#include <optional>
#include <string_view>

#include "console/log.h"
#include "platform/processes.h"

namespace vosk::process {

enum class WalkStep { snapshot, first_entry, next_entry };

// The step at which a walk over the process list failed, and the system's number for it.
struct WalkFailure {
  WalkStep step;
  platform::ErrorCode code;
};

// Returns whether the list had no entry at all, which some callers do not take for a failure.
[[nodiscard]] bool IsEmptyList(const WalkFailure& failure);

// What the log says of a failure at each step; the system's number follows.
struct WalkTexts {
  std::string_view snapshot;
  std::string_view first_entry;
  std::string_view next_entry;
};
void LogWalkFailure(const WalkFailure& failure, const WalkTexts& texts, console::LogSink& log);

// Calls `visit` with every running process. Returns the failure, if any; an empty list is a
// failure, too. Processes before the failure were visited.
std::optional<WalkFailure> WalkProcesses(
    platform::Processes& processes,
    const std::function<void(const platform::ProcessEntry&)>& visit);

}  // namespace vosk::process
