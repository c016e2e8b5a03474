#include "platform/files.h"

#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>
#include <windows.h>

#include <array>

#include "platform/system.h"
#include "platform/windows/directory_walk.h"
#include "platform/windows/error_text.h"
#include "platform/windows/file_streams.h"
#include "platform/windows/file_time.h"
#include "platform/windows/parts.h"
#include "platform/windows/wide.h"

namespace vosk::platform::windows {
namespace {

constexpr DWORD kShareEverything = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool MeansMissing(ErrorCode code) {
  return code.value == ERROR_FILE_NOT_FOUND || code.value == ERROR_PATH_NOT_FOUND ||
         code.value == ERROR_INVALID_NAME || code.value == ERROR_BAD_NETPATH;
}

Result<WIN32_FILE_ATTRIBUTE_DATA> AttributesOf(const std::filesystem::path& path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!::GetFileAttributesExW(SystemPath(path).c_str(), GetFileExInfoStandard, &data)) {
    return tl::unexpected(LastFileError());
  }
  return data;
}

class WindowsFiles : public Files {
 public:
  Result<bool> Exists(const std::filesystem::path& path) override {
    const auto attributes = AttributesOf(path);
    if (attributes) return true;
    if (MeansMissing(attributes.error().code)) return false;
    return tl::unexpected(attributes.error());
  }

  Result<FileType> TypeOf(const std::filesystem::path& path) override {
    return AttributesOf(path).map([](const WIN32_FILE_ATTRIBUTE_DATA& data) {
      if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return FileType::directory;
      if ((data.dwFileAttributes & FILE_ATTRIBUTE_DEVICE) != 0) return FileType::other;
      return FileType::regular;
    });
  }

  Result<std::uint64_t> SizeOf(const std::filesystem::path& path) override {
    return AttributesOf(path).map([](const WIN32_FILE_ATTRIBUTE_DATA& data) {
      return std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
    });
  }

  Result<bool> IsLink(const std::filesystem::path& path) override {
    return AttributesOf(path).map([](const WIN32_FILE_ATTRIBUTE_DATA& data) {
      return (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    });
  }

  Result<std::chrono::system_clock::time_point> LastWriteTime(
      const std::filesystem::path& path) override {
    return AttributesOf(path).map(
        [](const WIN32_FILE_ATTRIBUTE_DATA& data) { return SystemTimeOf(data.ftLastWriteTime); });
  }

  Result<bool> Remove(const std::filesystem::path& path) override {
    const std::wstring name = SystemPath(path);
    const DWORD attributes = ::GetFileAttributesW(name.c_str());
    const bool known = attributes != INVALID_FILE_ATTRIBUTES;
    const bool directory = known && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const bool read_only = known && (attributes & FILE_ATTRIBUTE_READONLY) != 0;
    if (read_only) ::SetFileAttributesW(name.c_str(), attributes & ~FILE_ATTRIBUTE_READONLY);
    if (directory ? ::RemoveDirectoryW(name.c_str()) : ::DeleteFileW(name.c_str())) return true;
    const ErrorCode code = LastError();
    if (read_only) ::SetFileAttributesW(name.c_str(), attributes);
    if (MeansMissing(code)) return false;
    return tl::unexpected(Error{code, ErrorText(code)});
  }

  Result<> Rename(const std::filesystem::path& from, const std::filesystem::path& to) override {
    if (!::MoveFileExW(SystemPath(from).c_str(), SystemPath(to).c_str(), 0)) {
      return tl::unexpected(LastFileError());
    }
    return {};
  }

  Result<> Replace(const std::filesystem::path& from, const std::filesystem::path& to) override {
    const std::wstring name = SystemPath(to);
    const DWORD attributes = ::GetFileAttributesW(name.c_str());
    const bool read_only =
        attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0;
    if (read_only) ::SetFileAttributesW(name.c_str(), attributes & ~FILE_ATTRIBUTE_READONLY);
    if (::MoveFileExW(SystemPath(from).c_str(), name.c_str(), MOVEFILE_REPLACE_EXISTING)) return {};
    const Error error = LastFileError();
    if (read_only) ::SetFileAttributesW(name.c_str(), attributes);
    return tl::unexpected(error);
  }

  Result<> Flush(const std::filesystem::path& path) override {
    const FileHandle file(::CreateFileW(SystemPath(path).c_str(), GENERIC_WRITE, kShareEverything,
                                        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file || !::FlushFileBuffers(file.Get())) return tl::unexpected(LastFileError());
    return {};
  }

  Result<> CheckRename(const std::filesystem::path& path) override {
    // What a rename opens the file for.
    const FileHandle file(::CreateFileW(SystemPath(path).c_str(), DELETE, kShareEverything, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return tl::unexpected(LastFileError());
    return {};
  }

  Result<> RenameAtNextBoot(const std::filesystem::path& from,
                            const std::filesystem::path& to) override {
    if (!::MoveFileExW(SystemPath(from).c_str(), SystemPath(to).c_str(),
                       MOVEFILE_DELAY_UNTIL_REBOOT)) {
      return tl::unexpected(LastFileError());
    }
    // It stands in the registry, which reaches the disk later than the power may last.
    HKEY key = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Control\\Session Manager",
                        0, KEY_QUERY_VALUE, &key) == ERROR_SUCCESS) {
      ::RegFlushKey(key);
      ::RegCloseKey(key);
    }
    return {};
  }

  Result<> Copy(const std::filesystem::path& from, const std::filesystem::path& to) override {
    if (!::CopyFileW(SystemPath(from).c_str(), SystemPath(to).c_str(), /*bFailIfExists=*/TRUE)) {
      return tl::unexpected(LastFileError());
    }
    return {};
  }

  Result<> CreateDirectories(const std::filesystem::path& path) override {
    if (::CreateDirectoryW(SystemPath(path).c_str(), nullptr)) return {};
    const Error error = LastFileError();
    if (error.code.value == ERROR_PATH_NOT_FOUND && path.has_relative_path()) {
      if (auto parent = CreateDirectories(path.parent_path()); !parent) return parent;
      if (::CreateDirectoryW(SystemPath(path).c_str(), nullptr)) return {};
      return tl::unexpected(LastFileError());
    }
    if (TypeOf(path) == FileType::directory) return {};
    return tl::unexpected(error);
  }

  Result<std::unique_ptr<DirectoryWalk>> Walk(const std::filesystem::path& directory,
                                              WalkDepth depth) override {
    return OpenWalk(directory, depth);
  }

  Result<std::uint64_t> FreeSpace(const std::filesystem::path& root) override {
    ULARGE_INTEGER available{};
    if (!::GetDiskFreeSpaceExW(root.c_str(), &available, nullptr, nullptr)) {
      return tl::unexpected(LastError());
    }
    return available.QuadPart;
  }

  Result<std::filesystem::path> CurrentDirectory() override {
    std::array<wchar_t, kMaxPath> buffer{};
    const DWORD length = ::GetCurrentDirectoryW(kMaxPath, buffer.data());
    if (length == 0 || length >= kMaxPath) return tl::unexpected(LastError());
    return std::wstring(buffer.data(), length);
  }

  Result<std::unique_ptr<std::istream>> OpenForReading(const std::filesystem::path& path) override {
    FileHandle file(::CreateFileW(SystemPath(path).c_str(), GENERIC_READ, kShareEverything, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return tl::unexpected(LastFileError());
    return std::make_unique<StreamOver<std::istream, HandleReader>>(std::move(file));
  }

  Result<std::unique_ptr<std::ostream>> OpenForAppending(
      const std::filesystem::path& path) override {
    return OpenToWrite(path, _O_APPEND | _O_TEXT);
  }

  Result<std::unique_ptr<std::ostream>> OpenForWriting(const std::filesystem::path& path) override {
    return OpenToWrite(path, _O_TRUNC | _O_BINARY);
  }

  Result<std::unique_ptr<std::ostream>> OpenTextForWriting(
      const std::filesystem::path& path) override {
    return OpenToWrite(path, _O_TRUNC | _O_TEXT);
  }

 private:
  static Result<std::unique_ptr<std::ostream>> OpenToWrite(const std::filesystem::path& path,
                                                           int manner) {
    int descriptor = -1;
    const int flags = _O_WRONLY | _O_CREAT | _O_NOINHERIT | manner;
    const errno_t failure =
        ::_wsopen_s(&descriptor, SystemPath(path).c_str(), flags, _SH_DENYNO, _S_IREAD | _S_IWRITE);
    if (failure != 0) return tl::unexpected(ErrorCode{static_cast<std::uint32_t>(failure)});
    return std::make_unique<StreamOver<std::ostream, DescriptorWriter>>(descriptor);
  }
};

}  // namespace

std::unique_ptr<Files> MakeFiles() {
  return std::make_unique<WindowsFiles>();
}

}  // namespace vosk::platform::windows
