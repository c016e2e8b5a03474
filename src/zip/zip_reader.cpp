#include "zip/zip_reader.h"

#include <fmt/format.h>
#include <miniz.h>

#include "text/utf.h"

namespace vosk::zip {
namespace {

ZipReader::Outcome Failed(mz_zip_error error) {
  return tl::unexpected<std::string>(mz_zip_get_error_string(error));
}

}  // namespace

struct ZipReader::Archive {
  mz_zip_archive zip{};
};

ZipReader::ZipReader(platform::Files& files)
    : files_(files), archive_(std::make_unique<Archive>()) {}

ZipReader::~ZipReader() {
  // An archive that was never opened is refused without harm.
  mz_zip_reader_end(&archive_->zip);
}

ZipReader::Outcome ZipReader::LastError() const {
  return Failed(mz_zip_peek_last_error(&archive_->zip));
}

ZipReader::Outcome ZipReader::Open(const std::filesystem::path& zip_path) {
  const auto name = text::TryPathToUtf8(zip_path);
  if (!name) return Failed(MZ_ZIP_INVALID_FILENAME);
  if (mz_zip_reader_init_file(&archive_->zip, name->c_str(), 0) == 0) return LastError();
  return {};
}

std::optional<std::uint32_t> ZipReader::Locate(const std::string& member_name) {
  const int index = mz_zip_reader_locate_file(&archive_->zip, member_name.c_str(), nullptr, 0);
  if (index < 0) return std::nullopt;
  return static_cast<std::uint32_t>(index);
}

ZipReader::Outcome ZipReader::CheckMember(std::uint32_t index) {
  mz_zip_archive_file_stat member{};
  if (mz_zip_reader_file_stat(&archive_->zip, index, &member) == 0) return LastError();
  if (member.m_is_directory || !member.m_is_supported) return Failed(MZ_ZIP_UNSUPPORTED_FEATURE);
  // miniz takes a member without bytes for an empty file, whatever size the directory promises.
  if (member.m_comp_size == 0 && member.m_uncomp_size != 0) {
    return Failed(MZ_ZIP_INVALID_HEADER_OR_CORRUPTED);
  }
  return {};
}

ZipReader::Outcome ZipReader::ExtractToFile(std::uint32_t index,
                                            const std::filesystem::path& destination) {
  const auto name = text::TryPathToUtf8(destination);
  if (!name) return Failed(MZ_ZIP_INVALID_FILENAME);
  if (Outcome sound = CheckMember(index); !sound) return sound;
  mz_zip_archive& zip = archive_->zip;
  // The last error may still be that of a name that was not found.
  mz_zip_clear_last_error(&zip);
  if (mz_zip_reader_extract_to_file(&zip, index, name->c_str(), 0) != 0) return {};
  mz_zip_error error = mz_zip_peek_last_error(&zip);
  // miniz notes nothing if the compressed bytes themselves make no sense.
  if (error == MZ_ZIP_NO_ERROR) error = MZ_ZIP_DECOMPRESSION_FAILED;
  // A file that could not even be opened is somebody else's, and whole.
  if (error == MZ_ZIP_FILE_OPEN_FAILED) return Failed(error);
  if (const auto removed = files_.Remove(destination); !removed) {
    return tl::unexpected(fmt::format("{} (the incomplete file stays: {})",
                                      mz_zip_get_error_string(error), removed.error().text));
  }
  return Failed(error);
}

}  // namespace vosk::zip
