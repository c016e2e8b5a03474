#pragma once

#include <string_view>

namespace vosk::dumps {

// ProcDump's executables beside VOSK.exe; the primary one is preferred.
inline constexpr std::u16string_view kPrimaryExecutable = u"procdump64.exe";
inline constexpr std::u16string_view kFallbackExecutable = u"procdump.exe";

}  // namespace vosk::dumps
