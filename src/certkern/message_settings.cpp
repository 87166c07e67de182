#include "certkern/message_settings.h"

#include "platform/supkern.h"

namespace certkern {
namespace {

bool IsOn(const char* path) {
  int64_t value = 0;
  return support_registry_get_long(path, &value) == 0 && value != 0;
}

}  // namespace

bool HashesWithSigner() {
  static const bool on = IsOn("\\config\\Certkern\\legacy_CMS_hashing");
  return on;
}

bool EncodesAttributesAnew() {
  static const bool on = IsOn("\\config\\Parameters\\LegacyEncodeSignedAttrsOnVerification");
  return on;
}

}  // namespace certkern
