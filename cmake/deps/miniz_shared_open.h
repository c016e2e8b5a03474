// Force-included when miniz is built for Windows. miniz opens files with _wfopen_s, which refuses
// every file that another process has open for writing. A report must be able to hold the log that
// the Core is still writing, so reading shares everything and writing shares reading only.
#pragma once
#include <errno.h>
#include <share.h>
#include <stdio.h>
#include <wchar.h>

static __inline errno_t MinizSharedOpen(FILE** file, const wchar_t* name, const wchar_t* mode) {
  *file = _wfsopen(name, mode, mode[0] == L'r' ? _SH_DENYNO : _SH_DENYWR);
  return *file ? 0 : errno;
}
#define _wfopen_s MinizSharedOpen
