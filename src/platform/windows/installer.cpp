#include "platform/installer.h"

#include <windows.h>
// These build on windows.h.
#include <msi.h>
#include <msiquery.h>

#include <array>

#include "platform/windows/parts.h"
#include "platform/windows/wide.h"

namespace vosk::platform::windows {
namespace {

// A GUID in braces with its terminator.
constexpr std::size_t kProductCodeLength = 39;

template <typename Tag>
MSIHANDLE HandleOf(const OwnedHandle<Tag>& handle) {
  return static_cast<MSIHANDLE>(handle.Value());
}

class WindowsInstaller : public Installer {
 public:
  Result<PackageDatabase> OpenDatabase(const std::filesystem::path& package) override {
    MSIHANDLE database = 0;
    return Own<PackageDatabase>(::MsiOpenDatabaseW(package.c_str(), MSIDBOPEN_READONLY, &database),
                                database);
  }

  Result<DatabaseView> OpenView(const PackageDatabase& database,
                                const std::string& query) override {
    MSIHANDLE view = 0;
    return Own<DatabaseView>(
        ::MsiDatabaseOpenViewW(HandleOf(database), ToWide(query).c_str(), &view), view);
  }

  Result<> Execute(const DatabaseView& view) override {
    return Judge(::MsiViewExecute(HandleOf(view), 0));
  }

  Result<DatabaseRecord> Fetch(const DatabaseView& view) override {
    MSIHANDLE record = 0;
    return Own<DatabaseRecord>(::MsiViewFetch(HandleOf(view), &record), record);
  }

  Result<std::string> FieldText(const DatabaseRecord& record, std::uint32_t field) override {
    // The first call returns the length without the terminator, the second needs room for it.
    wchar_t nothing[1] = L"";
    DWORD length = 0;
    const UINT asked = ::MsiRecordGetStringW(HandleOf(record), field, nothing, &length);
    if (asked != ERROR_MORE_DATA && asked != ERROR_SUCCESS) return Judge<std::string>(asked);
    std::wstring text(++length, L'\0');
    const UINT read = ::MsiRecordGetStringW(HandleOf(record), field, text.data(), &length);
    if (read != ERROR_SUCCESS) return Judge<std::string>(read);
    return FromWide({text.data(), length});
  }

  Result<std::string> RelatedProduct(const std::string& upgrade_code,
                                     std::uint32_t index) override {
    std::array<wchar_t, kProductCodeLength> code{};
    const UINT status =
        ::MsiEnumRelatedProductsW(ToWide(upgrade_code).c_str(), 0, index, code.data());
    if (status != ERROR_SUCCESS) return Judge<std::string>(status);
    return FromWide(code.data());
  }

  void CloseHandleValue(HandleValue value) override {
    ::MsiCloseHandle(static_cast<MSIHANDLE>(value));
  }

 private:
  // These calls return their error number and do not set the last error.
  template <typename T = void>
  static Result<T> Judge(UINT status) {
    if (status != ERROR_SUCCESS) return tl::unexpected(ErrorCode{status});
    return {};
  }

  // Takes the handle by reference, because the other argument is the call that fills it.
  template <typename Handle>
  Result<Handle> Own(UINT status, const MSIHANDLE& handle) {
    if (status != ERROR_SUCCESS) return tl::unexpected(ErrorCode{status});
    return Handle(handle, *this);
  }
};

}  // namespace

std::unique_ptr<Installer> MakeInstaller() {
  return std::make_unique<WindowsInstaller>();
}

}  // namespace vosk::platform::windows
