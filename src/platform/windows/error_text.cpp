#include "platform/windows/error_text.h"

#include <windows.h>

#include "text/utf.h"

namespace vosk::platform::windows {

ErrorCode LastError() {
  return ErrorCode{::GetLastError()};
}

std::string ErrorText(ErrorCode code) {
  wchar_t* buffer = nullptr;
  const DWORD length = ::FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, code.value, 0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
  std::u16string text(buffer, buffer + length);
  ::LocalFree(buffer);
  while (!text.empty() && (text.back() == u'\n' || text.back() == u'\r' || text.back() == u' ')) {
    text.pop_back();
  }
  return text.empty() ? "Unknown error" : text::WideToUtf8(text);
}

Error LastFileError() {
  const ErrorCode code = LastError();
  return {code, ErrorText(code)};
}

}  // namespace vosk::platform::windows
