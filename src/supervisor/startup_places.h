// How start-up finds its places: the supervisor's own folder, the dump storage, the Core, its logs.
#pragma once

#include <string>
#include <tl/expected.hpp>

#include "console/log.h"
#include "platform/host.h"
#include "supervisor/places.h"

namespace vosk::supervisor {

class StartupPlaces {
 public:
  StartupPlaces(const platform::Host& host, console::LogSink& log);

  // Where VOSK stands and where dumps go; the text of a failure ends the start-up.
  [[nodiscard]] tl::expected<void, std::string> FixDirectories(Places& places);

  // The Core at its default place, else beside VOSK. False where it is in neither.
  [[nodiscard]] bool LocateTarget(Places& places);

  // Where the Core keeps its statistics and logs; left empty, with a warning, where it cannot be
  // had.
  void LocateLogRoot(Places& places);

 private:
  [[nodiscard]] tl::expected<void, std::string> PrepareDumpStorage(Places& places);
  [[nodiscard]] bool IsTargetAt(const std::filesystem::path& path, std::string_view not_found);

  platform::Host host_;
  console::LogSink& log_;
};

// The Core's stats directory below the roaming application data.
[[nodiscard]] std::filesystem::path LogRootBelow(const std::filesystem::path& roaming_app_data);

}  // namespace vosk::supervisor
