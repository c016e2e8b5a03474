#pragma once

#include <filesystem>

#include "platform/types.h"

namespace vosk::platform {

// What a minidump holds besides threads and modules (the system's MINIDUMP_TYPE).
inline constexpr std::uint32_t kDumpWithFullMemory = 0x0002;
inline constexpr std::uint32_t kDumpWithThreadInfo = 0x1000;

class DumpWriter : public HandleCloser {
 public:
  // Creates or empties the file for writing and does not share it.
  virtual Result<DumpFileHandle> CreateDumpFile(const std::filesystem::path& path) = 0;
  // Writes a minidump of a live process, without exception, streams or callback. The error may be
  // a plain number or an HRESULT, as the system chooses.
  virtual Result<> WriteDump(const ProcessHandle& process, ProcessId pid,
                             const DumpFileHandle& file, std::uint32_t dump_type) = 0;
};

}  // namespace vosk::platform
