#include "app/Version.h"

#include "VersionText.h"

namespace ecu::koru::gpspub {

std::string versionText() {
  return SATNAVD_VERSION_TEXT;
}

std::string versionBanner() {
  return "satnavd version: " SATNAVD_VERSION_TEXT " compiled " __DATE__ " at " __TIME__;
}

}  // namespace ecu::koru::gpspub
