// How long to wait before something that keeps failing is tried again.
#pragma once

#include <chrono>

namespace vosk::supervisor {

struct BackoffPlan {
  int free_failures = 0;  // after so many failures in a row there is no wait yet
  std::chrono::seconds first{};
  std::chrono::seconds longest{};
};

class Backoff {
 public:
  explicit Backoff(const BackoffPlan& plan) : plan_(plan) {}

  // One more failure. Returns the wait that follows: the plan's first, then always twice as long,
  // up to its longest.
  std::chrono::seconds Fail();
  // What failed has succeeded, or something new is tried.
  void Reset() { failures_ = 0; }
  [[nodiscard]] int Failures() const { return failures_; }

 private:
  BackoffPlan plan_;
  int failures_ = 0;
  std::chrono::seconds wait_{};
};

}  // namespace vosk::supervisor
