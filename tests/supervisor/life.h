// Whole lives of the supervisor on a simulated host, with a collection server that has no socket.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "supervisor/network.h"
#include "supervisor/supervisor.h"
#include "tests/support/log_recorder.h"
#include "tests/support/simulated_host.h"

namespace vosk::supervisor {

inline constexpr std::uint32_t kAccessViolation = 0xC0000005;
inline constexpr char16_t kCoreName[] = u"VELDRAN Core.exe";
inline constexpr char16_t kMonitorName[] = u"procdump64.exe";

// Keys as the C runtime gives them; an arrow is a prefix and a code.
inline constexpr int kEnter = 13;
inline constexpr int kArrow = 224;
inline constexpr int kUp = 72;
inline constexpr int kDown = 80;

class FakeNetwork : public Network {
 public:
  tl::expected<void, std::string> Initialize() override {
    if (!initialize_error.empty()) return tl::unexpected(initialize_error);
    ++open_initialisations;
    return {};
  }
  void CleanUp() override { --open_initialisations; }
  std::unique_ptr<report::Uploader> MakeUploader(const platform::Host& host, console::LogSink& log,
                                                 console::TransferProgress& progress) override;

  std::unique_ptr<net::Downloader> MakeDownloader(const platform::Host& host, console::LogSink& log,
                                                  console::TransferProgress& progress,
                                                  const std::atomic<bool>& terminate) override;
  std::unique_ptr<net::VersionService> MakeVersionService(console::LogSink& log) override;

  std::string initialize_error;
  // What can be downloaded, by its address.
  std::map<std::string, std::string, std::less<>> downloads;
  // What the version service says; empty: it does not answer.
  std::string latest_version;
  int version_queries = 0;
  bool server_up = true;
  int open_initialisations = 0;
  // The archives that arrived, by file name, each with the names of its entries.
  std::vector<std::string> received;
  std::vector<std::vector<std::string>> received_entries;
};

struct LifeOptions {
  std::vector<std::string> arguments = {};
  std::chrono::seconds quit_at{60};
};

// Installs a Core with a log and a monitor, and has Q pressed in the end.
void FurnishHost(support::SimulatedHost& host, support::MonitorBehaviour monitor = {});

// The operator opens the menu and runs one of its items, counted from 1.
void ChooseItem(support::SimulatedHost& host, int item);

// How many processes of that executable there have ever been.
[[nodiscard]] std::size_t EverStarted(const support::SimulatedHost& host, std::u16string_view name);

// One life from start to end; the exit status.
int LiveOnce(support::SimulatedHost& host, FakeNetwork& network, const LifeOptions& options = {});

}  // namespace vosk::supervisor
