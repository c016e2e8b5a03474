// A life as a plain text: the machine, and what happens when.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/rehearsal/life.h"

namespace vosk::rehearsal {

// The error for a line that is no sentence of a life.
struct ScriptError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class Script {
 public:
  // Reads a .life file. Throws ScriptError.
  static Script FromFile(const std::filesystem::path& file);
  explicit Script(const std::string& text);

  // Sets the scene of a fresh life and lets everything happen in its time.
  void Apply(Life& life) const;
  // Returns the time of the last line, which must be "end" or "operator quits" with its shutdown.
  [[nodiscard]] Duration Length() const { return length_; }
  // The stretch in which sweeps hit calls, between "sweep from here" and "sweep to here"; the whole
  // life, if nothing is said.
  [[nodiscard]] Duration SweepFrom() const { return sweep_from_; }
  [[nodiscard]] Duration SweepTo() const { return std::min(sweep_to_, length_); }

  // Returns every sentence that a life may hold, a line each, for the help text.
  [[nodiscard]] static std::string Sentences();

 private:
  using Deed = std::function<void(Life&)>;
  struct Event {
    Duration at{0};
    Deed deed;
    bool planned_ahead = false;  // it handles its time itself
  };
  void ReadLine(const std::string& line);
  void SetDeed(Event& event, const std::string& sentence);

  std::vector<Event> events_;
  Duration last_{0};
  Duration length_{0};
  Duration sweep_from_{0};
  Duration sweep_to_ = Duration::max();
  bool ended_ = false;
};

}  // namespace vosk::rehearsal
