// The side of the platform that the contract tests run against: whichever is linked.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "platform/clock.h"
#include "platform/console.h"
#include "platform/dump_writer.h"
#include "platform/files.h"
#include "platform/host.h"
#include "platform/installer.h"
#include "platform/machine.h"
#include "platform/processes.h"
#include "platform/registry.h"
#include "platform/system.h"

namespace vosk::contract {

// Where standard output leads.
enum class Output { screen, file, nowhere };

// The products of the packages below, and the family that both belong to.
inline const std::string kFamily = "{3D6A5C0E-51B7-4C0B-9A52-0E7C3E8F1B11}";
inline const std::array<std::string, 2> kProducts = {"{00000000-0000-0000-0000-000000000001}",
                                                     "{00000000-0000-0000-0000-000000000002}"};

class HostUnderTest {
 public:
  virtual ~HostUnderTest() = default;
  virtual platform::Host Bundle() = 0;
  // Makes a directory that is only a link to another.
  virtual bool LinkDirectory(const std::filesystem::path& link,
                             const std::filesystem::path& target) = 0;
  virtual void RemoveLink(const std::filesystem::path& link) = 0;
  // Runs something with standard output leading elsewhere and returns what arrived there; for a
  // screen, its first two lines.
  virtual std::string WithOutputTo(Output output, const std::function<void()>& writes) = 0;
  // Presses the arrow up and then M.
  virtual void PressUpAndM() = 0;
  virtual void PressControlC() = 0;
  // Sees to it that the next message box is closed, as far as there is anybody to show it to.
  virtual void CloseNextBox() = 0;
  // Returns the package of kProducts[number - 1] in version 1.2.NUMBER, which installs one file,
  // "contract NUMBER.txt".
  virtual std::filesystem::path Package(int number) = 0;
};

[[nodiscard]] std::unique_ptr<HostUnderTest> MakeHostUnderTest();

// Gives each test the host, an empty directory and children to run.
class Contract : public testing::Test {
 protected:
  Contract();
  ~Contract() override;

  // Returns the command line of a child that ends with a code after a while.
  [[nodiscard]] std::string ChildCommand(std::uint32_t exit_code,
                                         std::chrono::milliseconds life) const;
  platform::StartedProcess StartChild(std::uint32_t exit_code, std::chrono::milliseconds life);

  std::unique_ptr<HostUnderTest> side_ = MakeHostUnderTest();
  platform::Host host_ = side_->Bundle();
  std::filesystem::path scratch_;
};

// Write and read a file's bytes past the platform.
void PutBytes(const std::filesystem::path& path, const std::string& bytes);
[[nodiscard]] std::string BytesOf(const std::filesystem::path& path);
// Removes the carriage returns that Windows puts before line feeds.
[[nodiscard]] std::string PlainLines(std::string text);

// Returns the number of a failed call, or 0 if it succeeded.
template <typename T>
std::uint32_t CodeOf(const platform::Result<T>& result) {
  return result ? 0 : result.error().code.value;
}

}  // namespace vosk::contract
