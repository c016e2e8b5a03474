#pragma once

#include <atomic>
#include <string>
#include <string_view>

namespace vosk::console {

// The progress of the current transfer or packing, for the status bar.
class TransferProgress {
 public:
  static constexpr double kHidden = -1.0;

  void Begin(std::string_view label) {
    activity_label_ = label;
    percentage_.exchange(0.0);
  }
  void SetLabel(std::string_view label) { activity_label_ = label; }
  void Set(double percentage) { percentage_.exchange(percentage); }
  // Hides the display: kHidden and an empty label.
  void Reset() {
    percentage_.exchange(kHidden);
    activity_label_.clear();
  }

  [[nodiscard]] double Percentage() const { return percentage_.load(); }
  [[nodiscard]] const std::string& ActivityLabel() const { return activity_label_; }

 private:
  std::atomic<double> percentage_{kHidden};
  std::string activity_label_;
};

}  // namespace vosk::console
