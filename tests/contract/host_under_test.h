// The side of the platform that the contract tests run against: whichever is linked.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "platform/clock.h"
#include "platform/console.h"
#include "platform/dump_writer.h"
#include "platform/files.h"
#include "platform/host.h"
#include "platform/processes.h"
#include "platform/system.h"

namespace vosk::contract {

class HostUnderTest {
 public:
  virtual ~HostUnderTest() = default;
  virtual platform::Host Bundle() = 0;
  // Makes a directory that is only a link to another.
  virtual bool LinkDirectory(const std::filesystem::path& link,
                             const std::filesystem::path& target) = 0;
  virtual void RemoveLink(const std::filesystem::path& link) = 0;
  // Runs something with standard output going to a file and gives what arrived there.
  virtual std::string RedirectOutput(const std::function<void()>& writes) = 0;
};

[[nodiscard]] std::unique_ptr<HostUnderTest> MakeHostUnderTest();

// Gives each test the host, an empty directory and children to run.
class Contract : public testing::Test {
 protected:
  Contract();
  ~Contract() override;

  // The running program again, as a child that ends with a code after a while.
  [[nodiscard]] std::string ChildCommand(std::uint32_t exit_code,
                                         std::chrono::milliseconds life) const;
  platform::StartedProcess StartChild(std::uint32_t exit_code, std::chrono::milliseconds life);

  std::unique_ptr<HostUnderTest> side_ = MakeHostUnderTest();
  platform::Host host_ = side_->Bundle();
  std::filesystem::path scratch_;
};

// A file's bytes, written and read past the platform.
void PutBytes(const std::filesystem::path& path, const std::string& bytes);
[[nodiscard]] std::string BytesOf(const std::filesystem::path& path);
// Without the carriage returns that Windows puts before line feeds.
[[nodiscard]] std::string PlainLines(std::string text);

// The number of a failed call; 0 for one that succeeded.
template <typename T>
std::uint32_t CodeOf(const platform::Result<T>& result) {
  return result ? 0 : result.error().value;
}
template <typename T>
std::uint32_t CodeOf(const platform::FileResult<T>& result) {
  return result ? 0 : result.error().code.value;
}

}  // namespace vosk::contract
