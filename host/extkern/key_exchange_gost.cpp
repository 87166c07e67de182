// Key exchange for keys of GOST R 34.10.
#include <algorithm>
#include <cstring>

#include "common/der.h"
#include "extkern/key_answer.h"
#include "extkern/key_exchange.h"
#include "extkern/key_gost_forms.h"
#include "platform/extkern_msg.h"

namespace extkern {
namespace {

namespace der = certkern::der;

// Agreement as the parameters of KExp15 name it, by the length of the keys. R 1323565.1.025
constexpr char kAgreementShort[] = "1.2.643.7.1.1.6.1";
constexpr char kAgreementLong[] = "1.2.643.7.1.1.6.2";

constexpr const char* kPublicKeys[] = {kOidGost2001, kOidGost2012Short, kOidGost2012Long};
// What key agreement under GOST 28147-89 goes by: the key's own identifier, as most write it, or the agreement's.
constexpr const char* kAgreements[] = {kOidGost2001,    kOidGost2012Short, kOidGost2012Long,
                                       kAgreementShort, kAgreementLong,    "1.2.643.2.2.96"};  // RFC 4490, 4.1.1

bool IsOneOf(std::span<const char* const> oids, LPCSTR oid) {
  return std::any_of(oids.begin(), oids.end(), [&](const char* one) { return !std::strcmp(one, oid); });
}
bool IsNamed(const CRYPT_ALGORITHM_IDENTIFIER& algorithm) { return algorithm.pszObjId && *algorithm.pszObjId; }

// --- export ---

// A recipient's key and the one that was made to meet it.
struct Meeting {
  KeyHandle ephemeral;
  Bytes ephemeralInfo;

  DWORD begin(HCRYPTPROV provider, std::span<const BYTE> recipient) {
    if (const DWORD code = MakeEphemeral(provider, recipient, ephemeral)) return code;
    return KeyInfoOf(ephemeral.get(), ephemeralInfo);
  }
};

const GostWrapRow& WrapForContent(ALG_ID content, ALG_ID for28147) {
  switch (content) {
    case CALG_GR3412_2015_M:
      return *FindGostWrap(ALG_ID{CALG_EXPORT_KEXP15_M});
    case CALG_GR3412_2015_K:
      return *FindGostWrap(ALG_ID{CALG_EXPORT_KEXP15_K});
    default:
      return *FindGostWrap(for28147);
  }
}

// The box of the content, because a recipient has to know that one in any case.
DWORD BoxFor(const ExportCall& call, LPCSTR recipientOid, std::string& box) {
  if (call.algorithm == CALG_G28147) return GetText(call.key(), KP_CIPHEROID, box);
  box = std::strcmp(recipientOid, kOidGost2001) ? kBoxOf2012 : kBoxOf2001;
  return ERROR_SUCCESS;
}

const char* AgreementFor(LPCSTR recipientOid) {
  return std::strcmp(recipientOid, kOidGost2012Long) ? kAgreementShort : kAgreementLong;
}

Bytes KexpParameters(LPCSTR recipientOid) { return der::Sequence({der::Oid(AgreementFor(recipientOid))}); }

DWORD ExportByTransport(const ExportCall& call, const CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO& recipient,
                        CMSG_KEY_TRANS_ENCRYPT_INFO& out) {
  const CRYPT_ALGORITHM_IDENTIFIER& algorithm = recipient.KeyEncryptionAlgorithm;
  Bytes recipientInfo;
  DWORD code = WriteKeyInfo(algorithm, recipient.RecipientPublicKey, recipientInfo);
  if (code) return code;
  if (!IsOneOf(kPublicKeys, algorithm.pszObjId)) return NTE_BAD_ALGID;
  Meeting meeting;
  if ((code = meeting.begin(call.provider, recipientInfo))) return code;
  const GostWrapRow& wrap = WrapForContent(call.algorithm, CALG_EXPORT_DIVERSIFIED);
  Bytes ukm(wrap.ukmSize);
  if ((code = FillRandom(call.provider, ukm))) return code;
  WrapSettings settings{.method = wrap.method, .ukm = ukm};
  const bool kexp = IsKexp(wrap.method);
  if (!kexp && (code = BoxFor(call, algorithm.pszObjId, settings.box))) return code;
  KeyHandle agreed;
  Bytes wrapped;
  if ((code = Agree(call.provider, meeting.ephemeral.get(), recipientInfo, settings, agreed))) return code;
  if ((code = WrapContentKey(call.key(), agreed.get(), wrapped))) return code;

  Bytes encryptedKey;
  if (kexp) {
    encryptedKey = TransportKexp{wrapped, meeting.ephemeralInfo, ukm}.write();
  } else {
    Transport28147 transport{{}, settings.box, meeting.ephemeralInfo};
    if (!transport.wrapped.split(wrapped)) return NTE_FAIL;
    encryptedKey = transport.write();
  }
  KeyAnswer answer(call.info);
  CMSG_KEY_TRANS_ENCRYPT_INFO result = out;
  result.EncryptedKey = answer.bytes(encryptedKey);
  result.KeyEncryptionAlgorithm = algorithm;
  if (kexp) {
    result.KeyEncryptionAlgorithm = {const_cast<LPSTR>(wrap.oid),
                                     answer.bytes(KexpParameters(algorithm.pszObjId))};
    result.dwFlags |= CMSG_KEY_TRANS_ENCRYPT_FREE_PARA_FLAG;
  }
  out = result;
  answer.keep();
  return ERROR_SUCCESS;
}

