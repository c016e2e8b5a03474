// Functions that not every Windows has, found when they are needed, so that VOSK starts without
// them.
#pragma once

#include <windows.h>

#include "platform/types.h"
#include "platform/windows/error_text.h"

namespace vosk::platform::windows {

// The function in a library of the system. The library stays loaded: graphics drivers do not all
// survive being unloaded.
template <typename Function>
Result<Function> LookUp(const wchar_t* library, const char* name) {
  const HMODULE module = ::LoadLibraryExW(library, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (module == nullptr) return tl::unexpected(LastError());
  const FARPROC function = ::GetProcAddress(module, name);
  if (function == nullptr) return tl::unexpected(LastError());
  return reinterpret_cast<Function>(reinterpret_cast<void*>(function));
}

}  // namespace vosk::platform::windows
