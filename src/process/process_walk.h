#pragma once

#include <functional>
#include <optional>

#include "platform/processes.h"

namespace vosk::process {

enum class WalkStep { snapshot, first_entry, next_entry };

// The step at which a walk over the process list failed, and the system's number for it.
struct WalkFailure {
  WalkStep step;
  platform::ErrorCode code;
};

// Whether the walk found a list without any entry, which some callers do not take for a failure.
[[nodiscard]] bool IsEmptyList(const WalkFailure& failure);

// Shows every running process to `visit`. The end of the list is no failure; a list that ends
// before its first entry is one. What was visited before a failure stays visited.
std::optional<WalkFailure> WalkProcesses(
    platform::Processes& processes,
    const std::function<void(const platform::ProcessEntry&)>& visit);

}  // namespace vosk::process
