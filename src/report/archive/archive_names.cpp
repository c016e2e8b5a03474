#include "report/archive/archive_names.h"

#include <fmt/format.h>

#include <algorithm>

#include "text/utf.h"

namespace vosk::report {
namespace {

std::string WithForwardSlashes(std::string name) {
  std::replace(name.begin(), name.end(), '\\', '/');
  return name;
}

}  // namespace

std::filesystem::path ReportZipPath(const std::filesystem::path& dump_path,
                                    std::string_view computer_name, std::string_view tag) {
  std::filesystem::path name = dump_path.stem();
  name += text::PathFromUtf8(fmt::format("_{}_{}.zip", computer_name, tag));
  return dump_path.parent_path() / name;
}

std::string FileNameText(const std::filesystem::path& path) {
  return text::TryPathToUtf8(path.filename()).value_or("<conv_err>");
}

std::string DumpEntryName(const std::filesystem::path& dump) {
  return WithForwardSlashes(FileNameText(dump));
}

std::string FileEntryName(const std::filesystem::path& file) {
  const std::string name = WithForwardSlashes(FileNameText(file));
  // The stem of "hostInfo.txt" is "hostInfo" too.
  return file.stem() == "hostInfo" ? "hostinfo/" + name : name;
}

std::string FolderEntryName(const std::filesystem::path& directory) {
  const std::string name = WithForwardSlashes(FileNameText(directory));
  return name.empty() || name == "." || name == ".." ? "additional_files" : name;
}

std::string EntryNameInFolder(std::string_view folder, const std::filesystem::path& relative) {
  return WithForwardSlashes(fmt::format("{}/{}", folder, text::PathToUtf8(relative)));
}

}  // namespace vosk::report
