// The escape sequences of the console's colours. Write them only while the console accepts them.
#pragma once

#include <string_view>

namespace vosk::console {

inline constexpr std::string_view kReset = "\x1b[0m";
inline constexpr std::string_view kBold = "\x1b[1m";
inline constexpr std::string_view kReverse = "\x1b[7m";
inline constexpr std::string_view kGrey = "\x1b[90m";
inline constexpr std::string_view kRed = "\x1b[91m";
inline constexpr std::string_view kGreen = "\x1b[92m";
inline constexpr std::string_view kYellow = "\x1b[93m";
inline constexpr std::string_view kMagenta = "\x1b[95m";
inline constexpr std::string_view kCyan = "\x1b[96m";
inline constexpr std::string_view kWhite = "\x1b[97m";
inline constexpr std::string_view kBoldCyan = "\x1b[1;96m";
inline constexpr std::string_view kBoldWhiteOnRed = "\x1b[41m\x1b[1;97m";
inline constexpr std::string_view kOnBlue = "\x1b[44m";

}  // namespace vosk::console
