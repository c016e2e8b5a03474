// Whole lives of the supervisor on a simulated host.
#pragma once

#include <string>
#include <vector>

#include "simulation/servers.h"
#include "supervisor/supervisor.h"
#include "tests/support/checked_host.h"
#include "tests/support/log_matchers.h"

namespace vosk::supervisor {

inline constexpr std::uint32_t kAccessViolation = 0xC0000005;
inline constexpr char16_t kCoreName[] = u"VELDRAN Core.exe";
inline constexpr char16_t kMonitorName[] = u"procdump64.exe";

// Keys as the C runtime gives them; an arrow is a prefix and a code.
inline constexpr int kEnter = 13;
inline constexpr int kArrow = 224;
inline constexpr int kUp = 72;
inline constexpr int kDown = 80;

using support::SimServers;

struct LifeOptions {
  std::vector<std::string> arguments = {};
  std::chrono::seconds quit_at{60};
};

// The operator opens the menu and runs one of its items, counted from 1.
void ChooseItem(support::SimulatedHost& host, int item);

// How many processes of that executable there have ever been.
[[nodiscard]] std::size_t EverStarted(const support::SimulatedHost& host, std::u16string_view name);

// One life from start to end; the exit status.
int LiveOnce(support::SimulatedHost& host, SimServers& network, const LifeOptions& options = {});

}  // namespace vosk::supervisor
