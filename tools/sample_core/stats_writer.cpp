#include "stats_writer.h"

#include <windows.h>

#include <knownfolders.h>
#include <share.h>
#include <shlobj.h>

#include <ctime>
#include <fstream>
#include <stdexcept>
#include <string>

namespace vosk::tools {
namespace {

constexpr char kBareVersion[] = "1.2.3";

// Returns the version that the installer put beside the executable; a Core that was only copied has
// a fixed one.
std::string OwnVersion() {
  wchar_t path[MAX_PATH] = L"";
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::ifstream file(std::filesystem::path(path).replace_filename("installed_version.txt"));
  std::string version;
  return file >> version ? version : kBareVersion;
}

std::filesystem::path StatsDirectory() {
  PWSTR roaming = nullptr;
  if (FAILED(SHGetKnownFolderPath(FOLDERID_RoamingAppData, 0, nullptr, &roaming))) {
    CoTaskMemFree(roaming);
    throw std::runtime_error("The roaming application data folder is unknown.");
  }
  std::filesystem::path directory = roaming;
  CoTaskMemFree(roaming);
  return directory / "VELDRAN" / "stats" / "TestNet";
}

// Shared with everyone: a second Core may write the same log, and a report is packed meanwhile.
OpenFile OpenShared(const std::filesystem::path& path, const wchar_t* mode) {
  OpenFile file(_wfsopen(path.c_str(), mode, _SH_DENYNO));
  if (!file) throw std::runtime_error("Cannot write " + path.string());
  return file;
}

std::string LocalTime() {
  const std::time_t now = std::time(nullptr);
  char text[32] = "";
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&now));
  return text;
}

}  // namespace

StatsWriter::StatsWriter(unsigned long pid) : pid_(pid), directory_(StatsDirectory()) {
  std::filesystem::create_directories(directory_ / "node");
  const OpenFile version = OpenShared(directory_ / "CoreVersion.txt", L"w");
  std::fprintf(version.get(), "%s\n", OwnVersion().c_str());
  core_log_ = OpenShared(directory_ / "core.log", L"a");
  node_log_ = OpenShared(directory_ / "node" / "blocks.log", L"a");
}

void StatsWriter::Note(const char* text) {
  std::fprintf(core_log_.get(), "%s [%lu] %s\n", LocalTime().c_str(), pid_, text);
  std::fflush(core_log_.get());
}

void StatsWriter::Tick() {
  Note("alive");
  std::fprintf(node_log_.get(), "%s [%lu] block %lu\n", LocalTime().c_str(), pid_, ++block_);
  std::fflush(node_log_.get());
}

}  // namespace vosk::tools
