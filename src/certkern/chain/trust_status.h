// The vocabulary of a chain's judgement: eight error bits, their order of badness, and their texts.
#ifndef CERTKERN_CERTKERN_CHAIN_TRUST_STATUS_H
#define CERTKERN_CERTKERN_CHAIN_TRUST_STATUS_H

#include <certkern/chain.h>

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace certkern {

// Positive: `a` is better; negative: `b` is; 0: alike. Decides which of two failing paths is kept.
int CompareTrustStatus(DWORD a, DWORD b);

// "IS_REVOKED|IS_PARTIAL_CHAIN"; unknown bits at the end as "0x%x"; 0 is "CERT_TRUST_NO_ERROR".
std::string TrustStatusNames(DWORD status);
// The same in Russian sentences, UTF-8.
std::string TrustStatusTextRussian(DWORD status);
// From a name of the table, "NOT_SUCCESS", "ANY_ERROR" or "CT_NO_ERROR" back to the word.
std::optional<DWORD> TrustStatusFromName(std::string_view name);

// The trace's name of a CRL reason (RFC 5280, 5.3.1); empty for 7 and for what is none.
std::string_view ReasonName(DWORD reason);

}  // namespace certkern

#endif
