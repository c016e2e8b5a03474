// What the interfaces of this folder share: numbers, results and handles.
#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <tl/expected.hpp>
#include <utility>

namespace vosk::platform {

// The system's own error number (GetLastError).
struct ErrorCode {
  std::uint32_t value = 0;
  friend auto operator<=>(const ErrorCode&, const ErrorCode&) = default;
};

inline constexpr ErrorCode kSuccess{0};
inline constexpr ErrorCode kFileNotFound{2};
inline constexpr ErrorCode kAccessDenied{5};
inline constexpr ErrorCode kInvalidHandle{6};
inline constexpr ErrorCode kNoMoreFiles{18};
inline constexpr ErrorCode kGeneralFailure{31};
inline constexpr ErrorCode kSharingViolation{32};
inline constexpr ErrorCode kInvalidParameter{87};
inline constexpr ErrorCode kDiskFull{112};
inline constexpr ErrorCode kNoMoreItems{259};
inline constexpr ErrorCode kCancelled{1223};
inline constexpr ErrorCode kNotAllAssigned{1300};

template <typename T = void>
using Result = tl::expected<T, ErrorCode>;

// The outcome of a COM or shell call, negative values of which are failures.
struct HResult {
  std::uint32_t value = 0;
  [[nodiscard]] bool Failed() const { return (value & 0x80000000u) != 0; }
  friend auto operator<=>(const HResult&, const HResult&) = default;
};

inline constexpr HResult kChangedMode{0x80010106};  // RPC_E_CHANGED_MODE

// A failed file operation: the system's number and the system's own text for it, in UTF-8.
struct FileError {
  ErrorCode code;
  std::string text;
};

template <typename T = void>
using FileResult = tl::expected<T, FileError>;

using ProcessId = std::uint32_t;
using HandleValue = std::uintptr_t;

inline constexpr HandleValue kNoHandle = 0;
inline constexpr HandleValue kInvalidHandleValue = ~HandleValue{0};

class HandleCloser {
 public:
  virtual ~HandleCloser() = default;
  // Called once for each handle given out, with its value.
  virtual void CloseHandleValue(HandleValue value) = 0;
};

// Owns one handle of the system and closes it. An empty or invalid one closes nothing. The Tag
// keeps handles of different kinds apart.
template <typename Tag>
class OwnedHandle {
 public:
  OwnedHandle() = default;
  OwnedHandle(HandleValue value, HandleCloser& closer) : value_(value), closer_(&closer) {}
  OwnedHandle(OwnedHandle&& other) noexcept
      : value_(std::exchange(other.value_, kNoHandle)),
        closer_(std::exchange(other.closer_, nullptr)) {}
  OwnedHandle& operator=(OwnedHandle&& other) noexcept {
    OwnedHandle taken(std::move(other));
    std::swap(value_, taken.value_);
    std::swap(closer_, taken.closer_);
    return *this;
  }
  ~OwnedHandle() { Reset(); }

  void Reset() {
    const HandleValue value = std::exchange(value_, kNoHandle);
    HandleCloser* closer = std::exchange(closer_, nullptr);
    if (closer != nullptr && value != kNoHandle && value != kInvalidHandleValue) {
      closer->CloseHandleValue(value);
    }
  }

  [[nodiscard]] explicit operator bool() const {
    return value_ != kNoHandle && value_ != kInvalidHandleValue;
  }
  [[nodiscard]] HandleValue Value() const { return value_; }

 private:
  HandleValue value_ = kNoHandle;
  HandleCloser* closer_ = nullptr;
};

using ProcessHandle = OwnedHandle<struct ProcessTag>;
using TokenHandle = OwnedHandle<struct TokenTag>;
using DumpFileHandle = OwnedHandle<struct DumpFileTag>;

}  // namespace vosk::platform
