// The servers that VOSK talks to, without sockets: the collection server, the version service and
// whatever can be downloaded.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "simulation/simulated_host.h"
#include "supervisor/network.h"

namespace vosk::simulation {

struct ReceivedReport {
  std::string name;                  // the archive's file name
  std::vector<std::string> entries;  // the names of its entries
  std::vector<DumpId> dumps;         // the dumps in it, by their contents
};

class SimServers : public supervisor::Network {
 public:
  explicit SimServers(SimulatedHost& host) : host_(host) {}

  tl::expected<void, std::string> Initialize() override;
  void CleanUp() override { --open_initialisations; }
  std::unique_ptr<report::Uploader> MakeUploader(const platform::Host& host, console::LogSink& log,
                                                 console::TransferProgress& progress) override;
  std::unique_ptr<net::Downloader> MakeDownloader(const platform::Host& host, console::LogSink& log,
                                                  console::TransferProgress& progress,
                                                  const std::atomic<bool>& terminate) override;
  std::unique_ptr<net::VersionService> MakeVersionService(console::LogSink& log) override;

  // Offers a package with the Core and VOSK for download. The version service does not change.
  void PublishPackage(const SimPackage& package);

  // Returns the file names of the arrived reports, in order.
  [[nodiscard]] std::vector<std::string> ReceivedNames() const;

  std::string initialize_error;
  // The downloads by their address.
  std::map<std::string, std::string, std::less<>> downloads;
  // The version service's answer; empty: it does not answer.
  std::string latest_version;
  bool server_up = true;
  bool version_service_up = true;
  bool downloads_up = true;
  // How long one transfer takes, and how long VOSK tries if nobody answers.
  Duration transfer_time{0};
  Duration refusal_time{0};

  int open_initialisations = 0;
  int version_queries = 0;
  std::uint64_t requests = 0;  // of every kind
  Duration time_spent{0};      // on all of them
  std::vector<ReceivedReport> received;

 private:
  friend class SimUploader;
  friend class SimDownloader;
  friend class SimVersionService;
  // Counts a request and lets its time pass; returns whether it succeeds.
  bool Request(std::string_view operation, bool server_answers);

  SimulatedHost& host_;
};

// Returns the dumps in an archive, by their contents; none if the file is no archive.
[[nodiscard]] std::vector<DumpId> DumpsInArchive(const std::filesystem::path& archive);

}  // namespace vosk::simulation
