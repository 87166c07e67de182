// What transport and agreement with keys of GOST R 34.10 decide alike.
#ifndef CERTKERN_EXTKERN_KEY_EXCHANGE_GOST_H
#define CERTKERN_EXTKERN_KEY_EXCHANGE_GOST_H

#include "extkern/key_exchange.h"
#include "extkern/key_gost_forms.h"

namespace extkern {

// Agreement as the parameters of KExp15 name it, by the length of the keys. R 1323565.1.025
inline constexpr char kAgreementShort[] = "1.2.643.7.1.1.6.1";
inline constexpr char kAgreementLong[] = "1.2.643.7.1.1.6.2";

bool IsGostPublicKey(LPCSTR oid);
// The wrap that fits a content key; for28147: the one that goes with all but Magma and Kuznyechik.
const GostWrapRow& WrapForContent(ALG_ID content, ALG_ID for28147);
// The substitution box of a wrap: the content's, because a recipient has to know that one in any case.
DWORD BoxFor(const ExportCall& call, LPCSTR recipientOid, std::string& box);

// SEQUENCE { agreement OBJECT IDENTIFIER }
Bytes KexpParameters(LPCSTR recipientOid);
// NTE_BAD_ALGID: another agreement.
DWORD CheckKexpParameters(const CRYPT_OBJID_BLOB& parameters);

}  // namespace extkern

#endif
