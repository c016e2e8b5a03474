// Every name, place and address of a site is here. The addresses are set when VOSK is built (cmake
// -D VOSK_COLLECTION_URL=...); nothing is read at run time.
#pragma once

#include <string_view>

namespace vosk::identity {

inline constexpr std::string_view kVersion = "3.3";
inline constexpr std::u16string_view kSupervisorExecutable = u"VOSK.exe";
inline constexpr std::u16string_view kCoreExecutable = u"VELDRAN Core.exe";

// The directory in which the Core's installer puts the Core and VOSK.
inline constexpr std::string_view kInstallDirectory =
    R"(C:\Program Files\VELDRAN Inc\VELDRAN Core)";
inline constexpr std::string_view kDefaultTargetPath =
    R"(C:\Program Files\VELDRAN Inc\VELDRAN Core\VELDRAN Core.exe)";

inline constexpr std::string_view kLogFileName = "VOSK.log";
inline constexpr std::string_view kDumpStorageName = "VELDRAN_VOSK_Dumps";
inline constexpr std::string_view kUnsentReportsName = "VELDRAN_VOSK_Unsent";

// The TUS creation endpoint of the crash-collection server.
extern const std::string_view kCollectionUrl;
// The service that returns the latest version of the Core.
extern const std::string_view kVersionServiceUrl;
// The zip that holds the Core's installer.
extern const std::string_view kCorePackageUrl;
// ProcDump's distribution zip.
extern const std::string_view kProcDumpUrl;
// The GUID, in braces, that every version of the Core's installer carries.
extern const std::string_view kCoreUpgradeCode;

}  // namespace vosk::identity
