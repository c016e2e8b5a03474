#include "tools/rehearsal/script.h"

#include <fmt/format.h>

#include <fstream>
#include <regex>
#include <sstream>

#include "identity.h"
#include "simulation/zip_bytes.h"
#include "text/utf.h"

namespace vosk::rehearsal {

using namespace std::chrono_literals;
using simulation::AfterPowerCut;
using simulation::SimPackage;
using simulation::StreamTarget;

namespace {

// The simulated machine's local time when a life begins.
constexpr Duration kTimeOfBeginning = 9h;
constexpr Duration kDay = 24h;
constexpr std::uint32_t kAccessViolation = 0xC0000005;

struct Words {
  const std::smatch& match;
  Duration at{0};  // when the sentence happens

  [[nodiscard]] std::string Text(std::size_t group) const { return match[group]; }
  [[nodiscard]] std::uint64_t Number(std::size_t group, std::uint64_t otherwise = 0) const {
    return match[group].matched ? std::stoull(match[group], nullptr, 0) : otherwise;
  }
  // "6 h", with the number in the group and the unit in the next.
  [[nodiscard]] Duration Time(std::size_t group) const {
    static const std::map<std::string, Duration> kUnits = {
        {"ms", 1ms}, {"s", 1s}, {"min", 1min}, {"h", 1h}, {"d", kDay}};
    return static_cast<std::int64_t>(Number(group)) * kUnits.at(match[group + 1]);
  }
};

struct Sentence {
  std::string pattern;
  std::string meaning;
  std::regex compiled;
  std::function<std::function<void(Life&)>(const Words&)> deed;
  bool planned_ahead = false;
};

constexpr char kTime[] = "(\\d+) (ms|s|min|h|d)";

bool& ServerNamed(Life& life, const std::string& name) {
  if (name == "collection server") return life.servers.server_up;
  if (name == "version service") return life.servers.version_service_up;
  return life.servers.downloads_up;
}

// Sets whether future monitors end at once or do their work.
void SetMonitor(Life& life, simulation::MonitorBehaviour behaviour) {
  life.host.InstallMonitor(behaviour);
}

std::function<void(Life&)> Publish(const Words& words) {
  SimPackage package{.version = words.Text(1)};
  const std::string flaw = words.Text(2);
  const auto exit_code = static_cast<std::uint32_t>(words.Number(3));
  return [=](Life& life) mutable {
    if (exit_code != 0) package.install_exit_code = exit_code;
    if (flaw.find("without VOSK") != std::string::npos) package.files = {"VELDRAN Core.exe"};
    if (flaw.find("without the Core") != std::string::npos) package.files = {"VOSK.exe"};
    if (flaw.find("crashes at once") != std::string::npos) {
      life.MakeCrashing(package.version, 1500ms);
    }
    life.PublishRelease(package);
    if (flaw.find("cannot be unpacked") != std::string::npos) {
      for (auto& [url, bytes] : life.servers.downloads) bytes.resize(bytes.size() / 2);
    }
  };
}

// "m down enter 224 81": letters, the keys' names and the codes of the C runtime.
std::vector<int> KeysNamed(const std::string& text) {
  static const std::map<std::string, std::vector<int>> kNamed = {
      {"enter", {13}}, {"up", {224, 72}}, {"down", {224, 80}}};
  std::vector<int> keys;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (const auto named = kNamed.find(word); named != kNamed.end()) {
      keys.insert(keys.end(), named->second.begin(), named->second.end());
    } else {
      keys.push_back(word[0] > '9' ? word[0] : std::stoi(word));
    }
  }
  return keys;
}

class Vocabulary {
 public:
  using Deed = std::function<std::function<void(Life&)>(const Words&)>;
  void Add(std::string pattern, std::string meaning, Deed deed) {
    const std::regex compiled(pattern);
    all.push_back({std::move(pattern), std::move(meaning), compiled, std::move(deed)});
  }
  // Adds a sentence whose deed needs none of its words.
  void AddPlain(std::string pattern, std::string meaning, void (*deed)(Life&)) {
    Add(std::move(pattern), std::move(meaning), [deed](const Words&) { return deed; });
  }

  std::vector<Sentence> all;
};

// Adds the sentences for what differs from the usual when VOSK begins.
void AddScenes(Vocabulary& add) {
  add.Add("VOSK stands in '(.+)'", "with its dump monitor, and not beside the Core",
          [](const Words& words) {
            return [place = text::PathFromUtf8(words.Text(1))](Life& life) {
              life.host.system.module_path = place / identity::kSupervisorExecutable;
              life.host.InstallProgram(life.host.system.module_path);
              life.host.InstallMonitor();
            };
          });
  add.Add("VOSK is started with (.+)", "its command line", [](const Words& words) {
    return [argument = words.Text(1)](Life& life) { life.arguments.push_back(argument); };
  });
  add.Add("network library fails with (.+)", "at VOSK's start", [](const Words& words) {
    return [error = words.Text(1)](Life& life) { life.servers.initialize_error = error; };
  });
  add.Add("version service says '(.*)'", "whatever can be downloaded", [](const Words& words) {
    return [version = words.Text(1)](Life& life) { life.servers.latest_version = version; };
  });
  add.Add("file '(.+)' holds '(.*)'", "somebody has put it there", [](const Words& words) {
    return [path = text::PathFromUtf8(words.Text(1)), bytes = words.Text(2)](Life& life) {
      life.host.PutFile(path, bytes);
    };
  });
  add.Add("file '(.+)' is gone", "or a directory with all in it", [](const Words& words) {
    return [path = text::PathFromUtf8(words.Text(1))](Life&) { std::filesystem::remove_all(path); };
  });
}

void AddOddities(Vocabulary& add) {
  add.Add("process '(.+)' runs", "somebody has started it", [](const Words& words) {
    return [name = words.Text(1)](Life& life) {
      life.host.processes.Add(std::u16string(name.begin(), name.end()));
    };
  });
  add.Add("Core (refuses|allows) handles", "to everybody", [](const Words& words) {
    return [refuses = words.Text(1) == "refuses"](Life& life) {
      for (auto* core : life.host.processes.Running(identity::kCoreExecutable)) {
        core->open_error.reset();
        if (refuses) core->open_error = platform::kAccessDenied;
      }
    };
  });
  add.Add("monitor exits with (\\d+)", "the running one", [](const Words& words) {
    return [code = static_cast<std::uint32_t>(words.Number(1))](Life& life) {
      life.host.processes.End(*life.host.processes.Running(u"procdump64.exe").front(), code);
    };
  });
  add.Add("crashes leave (\\d+) dumps", "that the monitor writes", [](const Words& words) {
    return [dumps = static_cast<int>(words.Number(1))](Life& life) {
      SetMonitor(life, {.dumps_per_crash = dumps});
    };
  });
  add.Add("keys (.+)", "the operator presses them", [](const Words& words) {
    return [keys = KeysNamed(words.Text(1))](Life& life) {
      for (const int key : keys) life.host.KeyPressed(key);
    };
  });
}

// Adds the sentences about the machine.
void AddMachine(Vocabulary& add) {
  add.AddPlain("no Core", "no Core is installed", [](Life&) {
    std::filesystem::remove(text::PathFromUtf8(identity::kDefaultTargetPath));
  });
  add.AddPlain("Core is running", "a Core runs that VOSK has not launched", [](Life& life) {
    life.host.processes.Add(std::u16string(identity::kCoreExecutable));
  });
  add.AddPlain("no console", "VOSK runs without a console", [](Life& life) {
    life.host.console.Redirect(platform::StandardStream::output, StreamTarget::missing);
    life.host.console.Redirect(platform::StandardStream::error, StreamTarget::missing);
  });
  add.AddPlain("ProcDump can be downloaded", "from its maker", [](Life& life) {
    life.servers.downloads[std::string(identity::kProcDumpUrl)] =
        simulation::ZipBytes({{"procdump64.exe", "MZ"}});
  });
  add.Add("release (\\S+) is installed", "it is what runs at first", [](const Words& words) {
    return [version = words.Text(1)](Life& life) { life.InstallRelease(version); };
  });
  add.Add(
      "release ([^ ,]+) published(, (?:its installer fails with (\\d+)|its package cannot be "
      "unpacked|without VOSK|without the Core|its Core crashes at once))?",
      "the version service tells of it", Publish);
  add.Add("Core (?:crashes|exits with (\\w+))", "the running Core ends", [](const Words& words) {
    const auto code = static_cast<std::uint32_t>(words.Number(1, kAccessViolation));
    return [code](Life& life) { life.host.CoreExits(code); };
  });
}

void AddServersAndMonitors(Vocabulary& add) {
  add.Add("(collection server|version service|download server) (up|down)(?: for " +
              std::string(kTime) + ")?",
          "a server answers, or does not", [](const Words& words) {
            const std::string name = words.Text(1);
            const bool up = words.Text(2) == "up";
            const Duration until = words.match[3].matched ? words.at + words.Time(3) : Duration(0);
            return [=](Life& life) {
              ServerNamed(life, name) = up;
              if (until == Duration(0)) return;
              life.At(until, [=](Life& later) { ServerNamed(later, name) = !up; });
            };
          });
  add.Add("transfers take " + std::string(kTime), "each upload and download",
          [](const Words& words) {
            return [time = words.Time(1)](Life& life) { life.servers.transfer_time = time; };
          });
  add.Add("refusals take " + std::string(kTime), "as long as VOSK tries", [](const Words& words) {
    return [time = words.Time(1)](Life& life) { life.servers.refusal_time = time; };
  });
  add.Add("([A-Z]:) (\\d+) (GiB|MiB) free", "the volume's free space", [](const Words& words) {
    const std::uint64_t unit = words.Text(3) == "GiB" ? 1ull << 30 : 1ull << 20;
    return [root = words.Text(1) + "/", bytes = words.Number(2) * unit](Life& life) {
      life.host.files.free_space_of[root] = bytes;
    };
  });
  add.AddPlain("monitor refuses", "every dump monitor leaves at once",
               [](Life& life) { SetMonitor(life, {.leaves_at_once = true}); });
  add.AddPlain("monitor works", "it does its work again", [](Life& life) { SetMonitor(life, {}); });
  add.Add("dumps take " + std::string(kTime), "to be written", [](const Words& words) {
    return [time = words.Time(1)](Life& life) { SetMonitor(life, {.writing_time = time}); };
  });
}

void AddBlows(Vocabulary& add) {
  add.Add("Core ends (late|at once|never) when it is ended", "how a running Core dies",
          [](const Words& words) {
            const auto how = words.Text(1) == "late"    ? simulation::OnTerminate::dies_late
                             : words.Text(1) == "never" ? simulation::OnTerminate::ignores
                                                        : simulation::OnTerminate::dies;
            return [how](Life& life) {
              for (auto* core : life.host.processes.Running(identity::kCoreExecutable)) {
                core->on_terminate = how;
              }
            };
          });
  add.Add("clock steps (-?)" + std::string(kTime), "somebody sets the machine's clock",
          [](const Words& words) {
            const Duration by = words.Text(1) == "-" ? -words.Time(2) : words.Time(2);
            return [by](Life& life) { life.host.clock.StepWallClock(by); };
          });
  add.Add("calls of (\\S+) fail with (\\w+)(?: (\\d+) times)?(?: after (\\d+) others)?",
          "a call of the system is refused", [](const Words& words) {
            const simulation::FaultRule rule{.scope = words.Text(1),
                                             .first = static_cast<int>(words.Number(4)) + 1,
                                             .count = static_cast<int>(words.Number(3, 1)),
                                             .code = static_cast<std::uint32_t>(words.Number(2))};
            return [rule](Life& life) { life.host.choke.faults.Add(rule); };
          });
  add.Add("operator (presses Ctrl\\+C|closes the console)", "where VOSK lets that end it",
          [](const Words& words) {
            using platform::ControlEvent;
            const bool pressed = words.Text(1) == "presses Ctrl+C";
            return [event = pressed ? ControlEvent::interrupt
                                    : ControlEvent::console_closed](Life& life) {
              if (!life.host.system.Control(event)) life.KillVosk();
            };
          });
  add.AddPlain("VOSK killed", "it is started again ten seconds later",
               [](Life& life) { life.KillVosk(); });
  add.Add("power cut(, files (cut short|empty))?", "a minute later the machine runs again",
          [](const Words& words) {
            const auto after = words.Text(2) == "empty"       ? AfterPowerCut::empty
                               : words.Text(2) == "cut short" ? AfterPowerCut::cut_short
                                                              : AfterPowerCut::whole;
            return [after, at = words.at](Life& life) { life.CutPowerAt(at, after); };
          });
  add.all.back().planned_ahead = true;
  add.Add("operator chooses (\\d)", "an item of the menu", [](const Words& words) {
    return [item = static_cast<int>(words.Number(1))](Life& life) { life.OperatorChooses(item); };
  });
  add.AddPlain("operator quits", "VOSK ends, and the Core with it",
               [](Life& life) { life.OperatorQuits(); });
}

std::vector<Sentence> MakeSentences() {
  Vocabulary sentences;
  for (const auto add : {AddMachine, AddServersAndMonitors, AddBlows, AddScenes, AddOddities}) {
    add(sentences);
  }
  return sentences.all;
}

const std::vector<Sentence>& AllSentences() {
  static const std::vector<Sentence> kSentences = MakeSentences();
  return kSentences;
}

}  // namespace

Script Script::FromFile(const std::filesystem::path& file) {
  std::ifstream stream(file);
  if (!stream) throw ScriptError(fmt::format("{} cannot be read", file.string()));
  std::ostringstream text;
  text << stream.rdbuf();
  return Script(text.str());
}

Script::Script(const std::string& text) {
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    if (!line.empty() && line[0] != '#') ReadLine(line);
  }
  if (!ended_) throw ScriptError("the life has no end");
}

void Script::ReadLine(const std::string& line) {
  static const std::regex kTimed("(?:day (\\d+) )?(\\d\\d):(\\d\\d)(?::(\\d\\d))? (.*)");
  std::smatch match;
  Event event;
  std::string sentence = line;
  if (std::regex_match(line, match, kTimed)) {
    const auto number = [&match](std::size_t group, int otherwise) {
      return match[group].matched ? std::stoi(match[group]) : otherwise;
    };
    event.at = kDay * (number(1, 1) - 1) + std::chrono::hours(number(2, 0)) +
               std::chrono::minutes(number(3, 0)) + std::chrono::seconds(number(4, 0)) -
               kTimeOfBeginning;
    sentence = match[5];
  }
  if (event.at < last_) throw ScriptError(fmt::format("'{}' is before what stands above", line));
  last_ = event.at;
  if (sentence == "end") {
    ended_ = true;
    length_ = event.at;
  } else if (sentence == "sweep from here") {
    sweep_from_ = event.at;
  } else if (sentence == "sweep to here") {
    sweep_to_ = event.at;
  } else {
    SetDeed(event, sentence);
    events_.push_back(std::move(event));
  }
}

void Script::SetDeed(Event& event, const std::string& sentence) {
  for (const Sentence& known : AllSentences()) {
    std::smatch match;
    if (!std::regex_match(sentence, match, known.compiled)) continue;
    event.deed = known.deed({.match = match, .at = event.at});
    event.planned_ahead = known.planned_ahead;
    return;
  }
  throw ScriptError(fmt::format("'{}' says nothing that can be rehearsed", sentence));
}

void Script::Apply(Life& life) const {
  // This lets the life pass in full there, whether or not it is swept.
  life.At(sweep_from_, [](Life&) {});
  for (const Event& event : events_) {
    // Events without a time set the scene.
    const bool now = event.at == Duration(0) || event.planned_ahead;
    now ? event.deed(life) : life.At(event.at, event.deed);
  }
}

std::string Script::Sentences() {
  std::string text;
  for (const Sentence& sentence : AllSentences()) {
    text += fmt::format("  {}\n      {}\n", sentence.pattern, sentence.meaning);
  }
  return text;
}

}  // namespace vosk::rehearsal
