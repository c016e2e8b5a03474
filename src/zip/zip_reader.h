// Reads a zip archive: finds a member by its name and writes it to a file of the caller's choice.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <tl/expected.hpp>

#include "platform/files.h"

namespace vosk::zip {

class ZipReader {
 public:
  // Success, or miniz's text for what went wrong.
  using Outcome = tl::expected<void, std::string>;

  // `files` removes what a failed extraction leaves; it outlives the reader.
  explicit ZipReader(platform::Files& files);
  // Closes the archive.
  ~ZipReader();
  ZipReader(const ZipReader&) = delete;
  ZipReader& operator=(const ZipReader&) = delete;

  // Must be called once, before anything else.
  [[nodiscard]] Outcome Open(const std::filesystem::path& zip_path);
  // Returns the index of the member with this whole name, folders included; letters match in either
  // case.
  [[nodiscard]] std::optional<std::uint32_t> Locate(const std::string& member_name);
  // Writes the member to `destination`, replacing a file there; the member's name in the archive
  // does not matter. A failed extraction leaves no incomplete file behind.
  [[nodiscard]] Outcome ExtractToFile(std::uint32_t index,
                                      const std::filesystem::path& destination);

 private:
  struct Archive;

  [[nodiscard]] Outcome LastError() const;
  [[nodiscard]] Outcome CheckMember(std::uint32_t index);

  platform::Files& files_;
  std::unique_ptr<Archive> archive_;
};

}  // namespace vosk::zip
