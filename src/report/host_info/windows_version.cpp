#include "report/host_info/windows_version.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include "report/host_info/windows_rules.h"
#include "text/utf.h"

namespace vosk::report {
namespace {

void WriteServicePack(const SectionContext& context, const platform::WindowsVersion& version) {
  fmt::print(context.out, "  Service Pack: {}\n",
             version.service_pack.empty() ? "None" : text::WideToUtf8(version.service_pack));
}

void WriteEdition(const SectionContext& context, const platform::WindowsVersion& version) {
  const auto code = context.machine.ProductCode(version);
  if (!code) {
    context.log.LogError("GetProductInfo failed: {}", code.error());
    fmt::print(context.out, "  Windows Edition: <GetProductInfo failed: {}>\n", code.error());
    return;
  }
  fmt::print(context.out, "  Windows Edition: {}\n", WindowsEdition(version.product_type, *code));
}

}  // namespace

void WriteWindowsVersion(const SectionContext& context) {
  fmt::print(context.out, "\nWindows SDK/Runtime:\n");
  const auto version = context.machine.OperatingSystem();
  if (!version) {
    context.log.LogError("RtlGetVersion failed: {}", version.error());
    fmt::print(context.out, "  Windows Version: <RtlGetVersion failed: {}>\n", version.error());
    return;
  }
  fmt::print(context.out, "  Windows Version: {}\n", WindowsName(*version));
  WriteEdition(context, *version);
  fmt::print(context.out, "  Product Type: {}\n", ProductTypeName(version->product_type));
  WriteServicePack(context, *version);
}

}  // namespace vosk::report
