#include "supervisor/backoff.h"

#include <algorithm>

namespace vosk::supervisor {

std::chrono::seconds Backoff::Fail() {
  ++failures_;
  if (failures_ <= plan_.free_failures) return std::chrono::seconds(0);
  const bool is_first = failures_ == plan_.free_failures + 1;
  wait_ = is_first ? plan_.first : std::min(wait_ * 2, plan_.longest);
  return wait_;
}

}  // namespace vosk::supervisor
