// The contract tests against the simulated host.
#include <fmt/format.h>

#include <cstdio>

#include "tests/contract/host_under_test.h"
#include "tests/support/checked_host.h"

namespace vosk::contract {
namespace {

class SimulatedSide : public HostUnderTest {
 public:
  SimulatedSide() {
    const auto ntdll = host_.machine.system_directory / "ntdll.dll";
    host_.machine.file_versions[ntdll] = {10, 0, 22621, 2506};
    host_.machine.file_versions[host_.machine.system_directory / "kernel32.dll"] = {10, 0, 22621,
                                                                                    1};
    host_.PutFile(host_.machine.system_directory / "kernel32.dll", "MZ");
    host_.InstallProgram(host_.system.module_path, [this, ntdll](support::SimProcess& self) {
      self.modules = {{host_.system.module_path}, {ntdll}};
      std::uint32_t exit_code = 0;
      long life = 0;
      const std::size_t words = self.command_line.find(" --child ");
      if (words == std::string::npos) return;
      std::sscanf(self.command_line.c_str() + words, " --child %u %ld", &exit_code, &life);
      host_.LivesFor(support::Duration(life), exit_code)(self);
    });
  }

  platform::Host Bundle() override { return host_.Bundle(); }

  bool LinkDirectory(const std::filesystem::path& link,
                     const std::filesystem::path& target) override {
    std::error_code error;
    std::filesystem::create_directory_symlink(std::filesystem::absolute(target), link, error);
    return !error;
  }

  void RemoveLink(const std::filesystem::path& link) override { std::filesystem::remove(link); }

  std::string WithOutputTo(Output output, const std::function<void()>& writes) override {
    constexpr auto kStream = platform::StandardStream::output;
    using support::StreamTarget;
    host_.console.Forget();
    constexpr std::array kTargets{StreamTarget::console, StreamTarget::redirected,
                                  StreamTarget::missing};  // in the order of `Output`
    host_.console.Redirect(kStream, kTargets.at(static_cast<std::size_t>(output)));
    writes();
    host_.console.Redirect(kStream, StreamTarget::console);
    return host_.console.TextOf(kStream);
  }

  void PressUpAndM() override {
    for (const int key : {224, 72, int{'m'}}) host_.KeyPressed(key);
  }

  void PressControlC() override {
    EXPECT_TRUE(host_.system.Control(platform::ControlEvent::interrupt));
  }

  void CloseNextBox() override {}

  std::filesystem::path Package(int number) override {
    const std::filesystem::path path = fmt::format("C:/contract_{}.msi", number);
    host_.PutFile(path, host_.installer.MakePackage(
                            {.product_code = kProducts.at(static_cast<std::size_t>(number) - 1),
                             .version = fmt::format("1.2.{}", number),
                             .upgrade_code = kFamily,
                             .files = {fmt::format("contract {}.txt", number)}}));
    return path;
  }

 private:
  support::CheckedHost host_;
};

}  // namespace

std::unique_ptr<HostUnderTest> MakeHostUnderTest() {
  return std::make_unique<SimulatedSide>();
}

}  // namespace vosk::contract
