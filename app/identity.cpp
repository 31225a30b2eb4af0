// Owns the identity texts, put together once. A version text without a first character tells that this is still to be
// done. The build gives the version (VERSION_MAJOR and VERSION_MINOR, those of the project).

#include "app/identity.h"

#include "util/fmt.h"

namespace {

constexpr char PRODUCT_NAME[] = "Tamsel";
constexpr char BANNER_SUFFIX[] = "";  // Marks special editions; this one is none.

char acVersion[16];
char acBanner[64];
char acShortTitle[64];
char acRegistryKey[64];

void RequireTexts() {
  if (acVersion[0] != '\0') {
    return;
  }
  FMT_snprintf(acVersion, sizeof(acVersion), "V%d.%.2d", VERSION_MAJOR, VERSION_MINOR);
  FMT_snprintf(acBanner, sizeof(acBanner), "NORDAX %s %s%s", PRODUCT_NAME, acVersion, BANNER_SUFFIX);
  FMT_snprintf(acShortTitle, sizeof(acShortTitle), "%s %s", PRODUCT_NAME, acVersion);
  FMT_snprintf(acRegistryKey, sizeof(acRegistryKey), "Software\\NORDAX\\%s", PRODUCT_NAME);
}

}  // namespace

const char* IDENTITY_GetProductName(void) {
  return PRODUCT_NAME;
}

const char* IDENTITY_GetBanner(void) {
  RequireTexts();
  return acBanner;
}

const char* IDENTITY_GetShortTitle(void) {
  RequireTexts();
  return acShortTitle;
}

const char* IDENTITY_GetRegistryKey(void) {
  RequireTexts();
  return acRegistryKey;
}
