#pragma once

#include <windows.h>

#include <cstdint>
#include <utility>

#include "platform/types.h"

namespace vosk::platform::windows {

// Owns a handle that does not leave this folder. Close is the call that closes it; Invalid is the
// value that, besides null, means no handle.
template <auto Close, HandleValue Invalid = kNoHandle>
class UniqueHandle {
 public:
  explicit UniqueHandle(HANDLE value = nullptr) : value_(value) {}
  UniqueHandle(UniqueHandle&& other) noexcept : value_(std::exchange(other.value_, nullptr)) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  ~UniqueHandle() {
    if (*this) Close(value_);
  }

  [[nodiscard]] explicit operator bool() const {
    return value_ != nullptr && reinterpret_cast<HandleValue>(value_) != Invalid;
  }
  [[nodiscard]] HANDLE Get() const { return value_; }

 private:
  HANDLE value_;
};

using ThreadHandle = UniqueHandle<::CloseHandle>;
using SnapshotHandle = UniqueHandle<::CloseHandle, kInvalidHandleValue>;
using FileHandle = UniqueHandle<::CloseHandle, kInvalidHandleValue>;
using FindHandle = UniqueHandle<::FindClose, kInvalidHandleValue>;

// Converts a handle to its number outside this folder, and back.
inline HandleValue ValueOf(HANDLE handle) {
  return reinterpret_cast<HandleValue>(handle);
}
template <typename Tag>
HANDLE Raw(const OwnedHandle<Tag>& handle) {
  return reinterpret_cast<HANDLE>(handle.Value());
}

}  // namespace vosk::platform::windows
