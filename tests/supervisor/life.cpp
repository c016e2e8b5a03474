#include "tests/supervisor/life.h"

namespace vosk::supervisor {

void ChooseItem(support::SimulatedHost& host, int item) {
  host.KeyPressed('m');
  for (int at = 1; at < item; ++at) {
    host.KeyPressed(kArrow);
    host.KeyPressed(kDown);
  }
  host.KeyPressed(kEnter);
}

std::size_t EverStarted(const support::SimulatedHost& host, std::u16string_view name) {
  std::size_t count = 0;
  for (const auto& [pid, process] : host.processes.Table())
    count += process.executable_name == name;
  return count;
}

int LiveOnce(support::SimulatedHost& host, SimServers& network, const LifeOptions& options) {
  host.At(options.quit_at, [](support::SimulatedHost& at) { at.KeyPressed('q'); });
  return Supervisor(host.Bundle(), network).Run(options.arguments);
}

}  // namespace vosk::supervisor
