// The answer to an LDAP search, which libcurl writes as text.
#ifndef CERTKERN_FETCHKERN_LDAP_ANSWER_H
#define CERTKERN_FETCHKERN_LDAP_ANSWER_H

#include <certkern/types.h>

#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace certkern::fetch {

// The first value of the first attribute, its Base64 decoded. Nothing when there is none.
//
//   DN: cn=ca,o=example
//   <tab>certificateRevocationList;binary:: MIIB...
std::optional<std::vector<BYTE>> FirstLdapValue(std::string_view answer);

}  // namespace certkern::fetch

#endif
