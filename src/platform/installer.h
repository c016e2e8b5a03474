#pragma once

#include <filesystem>
#include <string>

#include "platform/types.h"

namespace vosk::platform {

using PackageDatabase = OwnedHandle<struct PackageDatabaseTag>;
using DatabaseView = OwnedHandle<struct DatabaseViewTag>;
using DatabaseRecord = OwnedHandle<struct DatabaseRecordTag>;

// The system's installer service: what an MSI package contains and what is installed. A program,
// msiexec.exe, does the installing and removing.
class Installer : public HandleCloser {
 public:
  virtual Result<PackageDatabase> OpenDatabase(const std::filesystem::path& package) = 0;
  // The query is in the installer's dialect of SQL.
  virtual Result<DatabaseView> OpenView(const PackageDatabase& database,
                                        const std::string& query) = 0;
  virtual Result<> Execute(const DatabaseView& view) = 0;
  // Returns the next record of an executed view; kNoMoreItems after the last.
  virtual Result<DatabaseRecord> Fetch(const DatabaseView& view) = 0;
  // Fields count from 1.
  virtual Result<std::string> FieldText(const DatabaseRecord& record, std::uint32_t field) = 0;
  // Returns the product code of the index-th installed product of a family; kNoMoreItems after the
  // last. Removing a product moves up those that follow it.
  virtual Result<std::string> RelatedProduct(const std::string& upgrade_code,
                                             std::uint32_t index) = 0;
};

}  // namespace vosk::platform
