// Whether a certificate speaks for a server: names and addresses in the alternative names, or the common name.
#ifndef CERTKERN_POLICY_SERVER_NAME_H
#define CERTKERN_POLICY_SERVER_NAME_H

#include <certkern/cert.h>

#include <optional>
#include <string>
#include <string_view>

namespace certkern {

// Label by label; "*" stands for one whole label, the first, and nothing else. Both in lower case; an empty one matches
// nothing.
bool MatchesServerName(std::wstring_view server, std::wstring_view pattern);

// What the alternative names say. Seen: at least one DNS name or address, and none of them matches.
enum class AltNameVerdict { Matches, Seen, NoneSeen };
// Throws CryptException for an extension that does not decode.
AltNameVerdict CompareAltNames(const CERT_INFO& certificate, std::wstring_view server);

// The first common name of the subject's text, in lower case, up to the first comma; empty when there is none, or it has a
// NUL inside.
std::optional<std::wstring> CommonNameOf(const CERT_NAME_BLOB& subject);

// Of a name in ASCII, whatever the locale. One with any other character stays as it is, and so matches only itself: other
// letters that fold onto these (the Kelvin sign onto k) would make one name of two.
std::wstring LowerCase(std::wstring_view text);

}  // namespace certkern

#endif
