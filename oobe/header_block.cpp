#include "oobe/header_block.h"

#include "platform/folders.h"
#include "platform/locale.h"
#include "platform/os_info.h"
#include "platform/paths.h"

#include <cstdio>

namespace oobe {

namespace {

constexpr size_t kRuleWidth = 78;

bool ClientVersion(std::string& version) {
  std::string bundle;
  if (!platform::GetStandardPath(platform::StandardPathKind::kVornica, bundle)) {
    return false;
  }
  platform::AppendPathComponent(bundle, "Dex/Vornica.app");
  return platform::PathExists(bundle) && platform::GetBundleShortVersion(bundle, version);
}

} // namespace

HeaderBlock ComposeHeaderBlock() {
  std::string locale;
  platform::ResolveLocale(locale);

  platform::OSVersion version;
  platform::GetOSVersion(version);
  std::string os_name;
  std::string os_version;
  platform::FormatOSName(version, os_name);
  platform::FormatVersionTriple(version, os_version);

  uint32_t bits = 0;
  platform::GetMachineBitness(bits);
  char bitness[16];
  std::snprintf(bitness, sizeof bitness, "%d", static_cast<int>(bits));

  HeaderBlock block;
  std::string client_version;
  if (ClientVersion(client_version)) {
    block.lines["Dex Version: "] = client_version;
  }
  block.ruleBefore.assign(kRuleWidth, '*');
  block.lines["OS Name: "] = os_name;
  block.lines["OS Version: "] = os_version;
  block.lines["OS Locale: "] = locale;
  block.lines["Bit: "] = bitness;
  block.ruleAfter.assign(kRuleWidth, '*');
  return block;
}

} // namespace oobe
