// What a site configures about transfers.
#ifndef CERTKERN_FETCHKERN_SETTINGS_H
#define CERTKERN_FETCHKERN_SETTINGS_H

#include <cstdint>
#include <optional>
#include <string>

namespace certkern::fetch {

// Bytes of one object, within (0, kMaxDownloadSize].
int64_t SizeLimit();

// Nothing: the environment has its say, unless the program is set-id; an empty text: none.
struct ProxySettings {
  std::optional<std::string> address;
  std::optional<std::string> credentials;
  std::optional<std::string> exceptions;
};
ProxySettings ConfiguredProxy();

// A file of certificates to verify servers with; nothing: the system's.
std::optional<std::string> AuthorityFile();

}  // namespace certkern::fetch

#endif
