#include "fetchkern/settings.h"

#include <sys/auxv.h>

#include "platform/limits.h"
#include "platform/supkern.h"

namespace certkern::fetch {
namespace {

std::optional<std::string> TextSetting(const char* path) {
  size_t size = 0;
  if (support_registry_get_string(path, &size, nullptr) != 0) return std::nullopt;
  std::string text(size, '\0');
  if (support_registry_get_string(path, &size, text.data()) != 0) return std::nullopt;
  text.resize(size ? size - 1 : 0);
  return text;
}

}  // namespace

int64_t SizeLimit() {
  int64_t limit = 0;
  const bool given = support_registry_get_long("\\config\\Fetch\\size_limit", &limit) == 0;
  return given && limit > 0 && limit <= kMaxDownloadSize ? limit : kDefaultDownloadSize;
}

ProxySettings ConfiguredProxy() {
  ProxySettings proxy{TextSetting("\\config\\Fetch\\proxy"), TextSetting("\\config\\Fetch\\proxy_auth"),
                      TextSetting("\\config\\Fetch\\no_proxy")};
  // whoever starts a set-id program does not choose whom it talks to
  if (!proxy.address && getauxval(AT_SECURE)) proxy.address.emplace();
  return proxy;
}

std::optional<std::string> AuthorityFile() { return TextSetting("\\config\\Fetch\\ca_file"); }

}  // namespace certkern::fetch
