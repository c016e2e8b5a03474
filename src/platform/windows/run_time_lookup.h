// Looks up functions that not every Windows has only when they are needed, so that VOSK starts
// without them.
#pragma once

#include <windows.h>

#include "platform/types.h"
#include "platform/windows/error_text.h"

namespace vosk::platform::windows {

// Returns the function in a system library. The library stays loaded: not all graphics drivers
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
