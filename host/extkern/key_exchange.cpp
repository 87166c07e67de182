#include "extkern/key_exchange.h"

#include <algorithm>

#include "common/der.h"
#include "extkern/public_key_blob.h"
#include "extkern/record_codec.h"
#include "keykern/blob_reader.h"
#include "platform/limits.h"

namespace extkern {
namespace {

namespace der = certkern::der;
using keykern::AppendRecord;
using keykern::BlobReader;

// Which kind of key a sender makes for one message, by the recipient's.
struct EphemeralRow {
  ALG_ID recipient;
  ALG_ID ephemeral;
};
constexpr EphemeralRow kEphemerals[] = {
    {CALG_GR3410EL,            CALG_DH_EL_EPHEM           },
    {CALG_DH_EL_SF,            CALG_DH_EL_EPHEM           },
    {CALG_GR3410_12_256,       CALG_DH_GR3410_12_256_EPHEM},
    {CALG_DH_GR3410_12_256_SF, CALG_DH_GR3410_12_256_EPHEM},
    {CALG_GR3410_12_512,       CALG_DH_GR3410_12_512_EPHEM},
    {CALG_DH_GR3410_12_512_SF, CALG_DH_GR3410_12_512_EPHEM},
    {CALG_ECDSA,               CALG_ECDH_EPHEM            },
    {CALG_ECDH,                CALG_ECDH_EPHEM            },
};

Bytes SimpleBlob(ALG_ID content, ALG_ID method, std::span<const BYTE> wrapped) {
  Bytes blob;
  AppendRecord(blob, BLOBHEADER{SIMPLEBLOB, CUR_BLOB_VERSION, 0, content});
  AppendRecord(blob, WRAPPED_KEY_INFO{method, static_cast<DWORD>(wrapped.size())});
  certkern::Append(blob, wrapped);
  blob.push_back(0);  // the substitution box is the content's, and set later
  return blob;
}

}  // namespace

bool IsContentInfoUsable(const CMSG_CONTENT_ENCRYPT_INFO& info) {
  return info.ContentEncryptionAlgorithm.pszObjId && info.pfnAlloc && info.pfnFree;
}

bool IsTransportUsable(const CMSG_CTRL_KEY_TRANS_DECRYPT_PARA* para) {
  if (!IsWhole(para) || !para->pKeyTrans) return false;
  const CRYPT_ALGORITHM_IDENTIFIER& algorithm = para->pKeyTrans->KeyEncryptionAlgorithm;
  return algorithm.pszObjId && IsReadable(algorithm.Parameters) && IsReadable(para->pKeyTrans->EncryptedKey);
}

// --- public keys ---

const CRYPT_ALGORITHM_IDENTIFIER& RecipientAlgorithm(const CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO& info) {
  const bool ephemeral = info.dwKeyChoice != CMSG_KEY_AGREE_STATIC_KEY_CHOICE && info.pEphemeralAlgorithm;
  return ephemeral ? *info.pEphemeralAlgorithm : info.KeyEncryptionAlgorithm;
}

DWORD WriteKeyInfo(const CRYPT_ALGORITHM_IDENTIFIER& algorithm, const CRYPT_BIT_BLOB& key, Bytes& keyInfo) {
  if (!algorithm.pszObjId || !IsReadable(algorithm.Parameters) || !IsReadable(key))
    return ERROR_INVALID_PARAMETER;
  if (!key.cbData || key.cUnusedBits) return NTE_BAD_DATA;
  if (uint64_t{key.cbData} + algorithm.Parameters.cbData > certkern::kMaxKeyBlob) return NTE_BAD_DATA;
  if (algorithm.Parameters.cbData && !IsElement(BytesOf(algorithm.Parameters))) return NTE_BAD_DATA;
  keyInfo = WritePublicKeyInfo({algorithm, key});
  return keyInfo.empty() ? DWORD{NTE_BAD_DATA} : ERROR_SUCCESS;
}

DWORD SplitKeyInfo(std::span<const BYTE> keyInfo, KeyInfoParts& parts) {
  der::Reader in(keyInfo);
  der::Reader body;
  der::Algorithm algorithm;
  if (!in.take(der::kSequence, body) || !in.empty() || !der::TakeAlgorithm(body, algorithm)
      || !body.takeBits(parts.bits) || !body.empty())
    return NTE_BAD_DATA;
  parts.oid = algorithm.oid;
  parts.parameters = algorithm.parameters;
  return ERROR_SUCCESS;
}

DWORD KeyInfoOf(HCRYPTKEY key, Bytes& keyInfo) {
  Bytes blob;
  if (const DWORD code = ExportBlob(key, 0, PUBLICKEYBLOB, 0, blob)) return code;
  return PublicKeyInfoOfBlob(blob, nullptr, keyInfo);
}

DWORD ImportKeyInfo(HCRYPTPROV provider, std::span<const BYTE> keyInfo, KeyHandle& key) {
  return ImportBlob(provider, InfoKeyBlob(0, keyInfo), 0, 0, key);
}

DWORD MakeEphemeral(HCRYPTPROV provider, std::span<const BYTE> recipient, KeyHandle& ephemeral) {
  KeyHandle model;
  ALG_ID algorithm = 0;
  std::string set;
  if (const DWORD code = ImportKeyInfo(provider, recipient, model)) return code;
  if (const DWORD code = GetNumber(model.get(), KP_ALGID, algorithm)) return code;
  const auto* row = std::find_if(std::begin(kEphemerals), std::end(kEphemerals),
                                 [&](const EphemeralRow& one) { return one.recipient == algorithm; });
  if (row == std::end(kEphemerals)) return NTE_BAD_ALGID;
  if (const DWORD code = GetText(model.get(), KP_CURVEOID, set)) return code;
  KeyHandle made;
  if (const DWORD code = GenerateKey(provider, row->ephemeral, CRYPT_PREGEN | CRYPT_EXPORTABLE, made))
    return code;
  if (const DWORD code = SetText(made.get(), KP_CURVEOID, set)) return code;
  ephemeral = std::move(made);
  return ERROR_SUCCESS;
}

// --- agreed keys, and content keys under them ---

DWORD Agree(HCRYPTPROV provider, HCRYPTKEY own, std::span<const BYTE> peer, const WrapSettings& settings,
            KeyHandle& agreed) {
  KeyHandle made;
  if (const DWORD code = ImportBlob(provider, InfoKeyBlob(0, peer), own, 0, made)) return code;
  if (const DWORD code = SetNumber(made.get(), KP_ALGID, settings.method)) return code;
  if (!settings.ukm.empty()) {
    if (const DWORD code = SetIv(made.get(), settings.ukm)) return code;
  }
  if (!settings.box.empty()) {
    if (const DWORD code = SetSubstitutionBox(made.get(), settings.box)) return code;
  }
  if (settings.kdfHash) {
    if (const DWORD code = SetNumber(made.get(), KP_KDF_HASH, settings.kdfHash)) return code;
    if (const DWORD code = SetBlob(made.get(), KP_KDF_INFO, settings.kdfInfo)) return code;
  }
  agreed = std::move(made);
  return ERROR_SUCCESS;
}

DWORD WrapContentKey(HCRYPTKEY content, HCRYPTKEY agreed, Bytes& wrapped) {
  Bytes blob;
  if (const DWORD code = ExportBlob(content, agreed, SIMPLEBLOB, 0, blob)) return code;
  BlobReader in(blob);
  BLOBHEADER header;
  WRAPPED_KEY_INFO info;
  std::span<const BYTE> bytes;
  if (!in.take(header) || !in.take(info) || !in.take(info.cbWrapped, bytes)) return NTE_BAD_DATA;
  wrapped = certkern::ToSecret(bytes);
  return ERROR_SUCCESS;
}

DWORD UnwrapContentKey(HCRYPTPROV provider, HCRYPTKEY agreed, ALG_ID method, std::span<const BYTE> wrapped,
                       const ContentAlgorithm& content, KeyHandle& key) {
  if (wrapped.size() > certkern::kMaxKeyBlob) return NTE_BAD_DATA;
  KeyHandle made;
  const Bytes blob = SimpleBlob(content.algorithm, method, wrapped);
  if (const DWORD code = ImportBlob(provider, blob, agreed, 0, made)) return code;
  if (const DWORD code = PrepareContentKey(made.get(), content)) return code;
  key = std::move(made);
  return ERROR_SUCCESS;
}

// --- one call ---

DWORD ExportCall::begin(HCRYPTPROV recipientProvider) {
  if (const DWORD code = GetNumber(key(), KP_ALGID, algorithm)) return code;
  provider = recipientProvider ? recipientProvider : info.hCryptProv;
  if (provider) return ERROR_SUCCESS;
  if (const DWORD code = TakeDefaultProvider(algorithm, counted)) return code;
  provider = counted.get();
  return ERROR_SUCCESS;
}

DWORD ImportCall::begin(const CRYPT_ALGORITHM_IDENTIFIER* contentAlgorithm, HCRYPTPROV keyProvider,
                        DWORD keySpec) {
  if (!contentAlgorithm || !contentAlgorithm->pszObjId) return ERROR_INVALID_PARAMETER;
  if (const DWORD code = ReadContentAlgorithm(*contentAlgorithm, content)) return code;
  provider = keyProvider;
  return TakeOwnKey(provider, keySpec, own);
}

DWORD ImportCall::unwrap(std::span<const BYTE> originator, const WrapSettings& settings,
                         std::span<const BYTE> wrapped, HCRYPTKEY* key) const {
  KeyHandle agreed;
  KeyHandle made;
  if (const DWORD code = Agree(provider, own.get(), originator, settings, agreed)) return code;
  if (const DWORD code = UnwrapContentKey(provider, agreed.get(), settings.method, wrapped, content, made))
    return code;
  *key = made.release();
  return ERROR_SUCCESS;
}

}  // namespace extkern
