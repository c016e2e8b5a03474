// What the interfaces of this folder share: numbers, results and handles.
#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <tl/expected.hpp>
#include <utility>

namespace vosk::platform {

// The number with which the system or its C runtime reports a failure: GetLastError, an HRESULT or
// errno, as documented for the call.
struct ErrorCode {
  std::uint32_t value = 0;
  friend auto operator<=>(const ErrorCode&, const ErrorCode&) = default;
};

inline constexpr ErrorCode kSuccess{0};
inline constexpr ErrorCode kFileNotFound{2};
inline constexpr ErrorCode kPathNotFound{3};
inline constexpr ErrorCode kAccessDenied{5};
inline constexpr ErrorCode kInvalidHandle{6};
inline constexpr ErrorCode kNoMoreFiles{18};
inline constexpr ErrorCode kGeneralFailure{31};
inline constexpr ErrorCode kSharingViolation{32};
inline constexpr ErrorCode kInvalidParameter{87};
inline constexpr ErrorCode kDiskFull{112};
inline constexpr ErrorCode kBadExecutable{193};
inline constexpr ErrorCode kNoMoreItems{259};
inline constexpr ErrorCode kCancelled{1223};
inline constexpr ErrorCode kNotAllAssigned{1300};

inline constexpr ErrorCode kChangedMode{0x80010106};  // RPC_E_CHANGED_MODE

// Why a call of the system failed: its number and, from file operations, the system's own words for
// it (UTF-8). Other calls leave the words empty.
struct Error {
  Error() = default;
  // Implicit: most calls have no more to say than a number.
  Error(ErrorCode number, std::string words = {}) : code(number), text(std::move(words)) {}

  ErrorCode code;
  std::string text;

  friend bool operator==(const Error&, const Error&) = default;
  friend bool operator==(const Error& error, ErrorCode code) { return error.code == code; }
};

template <typename T = void>
using Result = tl::expected<T, Error>;

using ProcessId = std::uint32_t;
using HandleValue = std::uintptr_t;

inline constexpr HandleValue kNoHandle = 0;
inline constexpr HandleValue kInvalidHandleValue = ~HandleValue{0};

class HandleCloser {
 public:
  virtual ~HandleCloser() = default;
  // Called once for each open handle, with its value.
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
