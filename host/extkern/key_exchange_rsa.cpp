// Key transport for RSA keys. RFC 8017, 7; RFC 3370, 4.2.1; RFC 4055, 4.1
#include <cstring>

#include "common/der.h"
#include "extkern/key_answer.h"
#include "extkern/key_exchange.h"
#include "keykern/blob_reader.h"
#include "platform/extkern_msg.h"
#include "platform/limits.h"

namespace extkern {
namespace {

namespace der = certkern::der;
using keykern::AppendRecord;
using keykern::BlobReader;

constexpr char kRsaEncryption[] = "1.2.840.113549.1.1.1";
constexpr char kRsaesOaep[] = "1.2.840.113549.1.1.7";
constexpr char kMgf1[] = "1.2.840.113549.1.1.8";
constexpr char kPSpecified[] = "1.2.840.113549.1.1.9";
// What a SIMPLEBLOB under RSA must have inside, for RC2 too, which comes in several lengths.
constexpr DWORD kRc2BitsOfBlob = 128;
constexpr int kLengthShift = 16;

// How keys are padded.
struct Padding {
  bool oaep = false;
  ALG_ID hash = CALG_SHA1;
  Bytes label = {};

  DWORD flags() const { return oaep ? CRYPT_OAEP : 0; }
  DWORD set(HCRYPTKEY key) const {
    if (!oaep) return ERROR_SUCCESS;
    if (const DWORD code = SetNumber(key, KP_OAEP_HASH, hash)) return code;
    return SetBlob(key, KP_OAEP_LABEL, label);
  }
};

// --- RSAES-OAEP-params ---

// An AlgorithmIdentifier that explicit tag `number` holds; whole is false when there is no such element.
DWORD TakeTagged(der::Reader& in, int number, der::Algorithm& algorithm, bool& present) {
  present = in.nextTag() == der::ContextConstructed(number);
  if (!present) return ERROR_SUCCESS;
  der::Reader body;
  const bool whole = in.take(der::ContextConstructed(number), body) && der::TakeAlgorithm(body, algorithm);
  return whole && body.empty() ? ERROR_SUCCESS : DWORD{NTE_BAD_DATA};
}

DWORD HashOf(const der::Algorithm& algorithm, ALG_ID& hash) {
  const PCCRYPT_OID_INFO row = CryptFindOIDInfo(
      CRYPT_OID_INFO_OID_KEY, const_cast<char*>(algorithm.oid.c_str()), CRYPT_HASH_ALG_OID_GROUP_ID);
  if (!row) return NTE_BAD_ALGID;
  hash = row->Algid;
  return ERROR_SUCCESS;
}

DWORD HashOfMgf1(const der::Algorithm& generator, ALG_ID& hash) {
  der::Reader in(generator.parameters);
  der::Algorithm inner;
  if (generator.oid != kMgf1) return NTE_BAD_ALGID;
  if (!der::TakeAlgorithm(in, inner) || !in.empty()) return NTE_BAD_DATA;
  return HashOf(inner, hash);
}

DWORD LabelOf(const der::Algorithm& source, Bytes& label) {
  der::Reader in(source.parameters);
  std::span<const BYTE> octets;
  if (source.oid != kPSpecified) return NTE_BAD_ALGID;
  if (!in.take(der::kOctetString, octets) || !in.empty()) return NTE_BAD_DATA;
  label = certkern::ToSecret(octets);
  return ERROR_SUCCESS;
}

// RSAES-OAEP-params ::= SEQUENCE { hashFunc [0] DEFAULT sha1, maskGenFunc [1] DEFAULT mgf1SHA1, pSourceFunc [2] DEFAULT
// pSpecifiedEmpty }
DWORD ReadOaep(std::span<const BYTE> parameters, Padding& padding) {
  der::Reader in(parameters);
  der::Reader body;
  der::Algorithm algorithm;
  bool present = false;
  ALG_ID maskHash = CALG_SHA1;
  if (!in.take(der::kSequence, body) || !in.empty()) return NTE_BAD_DATA;
  DWORD code = TakeTagged(body, 0, algorithm, present);
  if (!code && present) code = HashOf(algorithm, padding.hash);
  if (!code) code = TakeTagged(body, 1, algorithm, present);
  if (!code && present) code = HashOfMgf1(algorithm, maskHash);
  if (!code) code = TakeTagged(body, 2, algorithm, present);
  if (!code && present) code = LabelOf(algorithm, padding.label);
  if (code) return code;
  if (!body.empty()) return NTE_BAD_DATA;
  // the key level has one hash for both
  return maskHash == padding.hash ? ERROR_SUCCESS : DWORD{NTE_BAD_ALGID};
}

DWORD ReadPadding(const CRYPT_ALGORITHM_IDENTIFIER& algorithm, Padding& padding) {
  if (!std::strcmp(algorithm.pszObjId, kRsaEncryption)) return ERROR_SUCCESS;
  if (std::strcmp(algorithm.pszObjId, kRsaesOaep) != 0) return NTE_BAD_ALGID;
  padding.oaep = true;
  // RFC 4055, 4.1 wants parameters; without them nothing but the defaults can be meant
  return HasParameters(algorithm) ? ReadOaep(BytesOf(algorithm.Parameters), padding) : ERROR_SUCCESS;
}

// --- export ---

DWORD Encrypt(const ExportCall& call, const Padding& padding, const CRYPT_BIT_BLOB& recipientKey,
              Bytes& encryptedKey) {
  BYTE null[] = {der::kNull, 0};
  const CRYPT_ALGORITHM_IDENTIFIER algorithm = {
      const_cast<LPSTR>(kRsaEncryption), {sizeof(null), null}
  };
  Bytes keyInfo;
  Bytes blob;
  KeyHandle key;
  if (const DWORD code = WriteKeyInfo(algorithm, recipientKey, keyInfo)) return code;
  if (const DWORD code = ImportKeyInfo(call.provider, keyInfo, key)) return code;
  if (const DWORD code = padding.set(key.get())) return code;
  if (const DWORD code = ExportBlob(call.key(), key.get(), SIMPLEBLOB, padding.flags(), blob)) return code;
  BlobReader in(blob);
  BLOBHEADER header;
  ALG_ID method;
  if (!in.take(header) || !in.take(method) || method != CALG_RSA_KEYX) return NTE_BAD_DATA;
  encryptedKey.assign(in.rest().rbegin(), in.rest().rend());  // the blob is little-endian
  return encryptedKey.empty() ? DWORD{NTE_BAD_DATA} : ERROR_SUCCESS;
}

DWORD Export(const CMSG_CONTENT_ENCRYPT_INFO& content, const CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO& recipient,
             CMSG_KEY_TRANS_ENCRYPT_INFO& out) {
  const CRYPT_ALGORITHM_IDENTIFIER& algorithm = recipient.KeyEncryptionAlgorithm;
  if (!algorithm.pszObjId || !IsReadable(algorithm.Parameters)) return ERROR_INVALID_PARAMETER;
  Padding padding;
  ExportCall call{content};
  Bytes encryptedKey;
  if (const DWORD code = ReadPadding(algorithm, padding)) return code;
  if (const DWORD code = call.begin(recipient.hCryptProv)) return code;
  if (const DWORD code = Encrypt(call, padding, recipient.RecipientPublicKey, encryptedKey)) return code;
  KeyAnswer answer(content);
  CMSG_KEY_TRANS_ENCRYPT_INFO result = out;
  result.EncryptedKey = answer.bytes(encryptedKey);
  result.KeyEncryptionAlgorithm = algorithm;
  if (padding.oaep && !HasParameters(algorithm)) {
    result.KeyEncryptionAlgorithm.Parameters = answer.bytes(der::Sequence({}));
    result.dwFlags |= CMSG_KEY_TRANS_ENCRYPT_FREE_PARA_FLAG;
  }
  out = result;
  answer.keep();
  return ERROR_SUCCESS;
}

// --- import ---

Bytes SimpleBlob(ALG_ID content, std::span<const BYTE> encryptedKey) {
  Bytes blob;
  AppendRecord(blob, BLOBHEADER{SIMPLEBLOB, CUR_BLOB_VERSION, 0, content});
  AppendRecord(blob, ALG_ID{CALG_RSA_KEYX});
  blob.insert(blob.end(), encryptedKey.rbegin(), encryptedKey.rend());
  return blob;
}

Bytes PlainBlob(ALG_ID content, std::span<const BYTE> key) {
  Bytes blob;
  AppendRecord(blob, BLOBHEADER{PLAINTEXTKEYBLOB, CUR_BLOB_VERSION, 0, content});
  AppendRecord(blob, static_cast<DWORD>(key.size()));
  certkern::Append(blob, key);
  return blob;
}

// A key of RC2 of another length than a blob may have. As the key level does: a random key stands by before anything is
// known, and with RSAES-PKCS1-v1_5 it takes the place of whatever comes out wrong.
DWORD OpenShortKey(const ImportCall& call, const Padding& padding, std::span<const BYTE> encryptedKey,
                   KeyHandle& key) {
  const DWORD bits = call.content.rc2Bits;
  KeyHandle substitute;
  if (const DWORD code = GenerateKey(call.provider, call.content.algorithm, bits << kLengthShift, substitute))
    return code;
  Bytes opened(encryptedKey.rbegin(), encryptedKey.rend());
  const DWORD code = DecryptWhole(call.own.get(), padding.flags(), opened);
  if (code && (padding.oaep || code != NTE_BAD_DATA)) return code;
  if (!code && opened.size() == bits / 8)
    return ImportBlob(call.provider, PlainBlob(call.content.algorithm, opened), 0, 0, key);
  if (padding.oaep) return NTE_BAD_DATA;
  key = std::move(substitute);
  return ERROR_SUCCESS;
}

DWORD Import(const CRYPT_ALGORITHM_IDENTIFIER* contentAlgorithm, const CMSG_CTRL_KEY_TRANS_DECRYPT_PARA& para,
             HCRYPTKEY* key) {
  const std::span<const BYTE> encryptedKey = BytesOf(para.pKeyTrans->EncryptedKey);
  Padding padding;
  ImportCall call;
  if (const DWORD code = ReadPadding(para.pKeyTrans->KeyEncryptionAlgorithm, padding)) return code;
  if (encryptedKey.empty() || encryptedKey.size() > certkern::kMaxKeyBlob) return NTE_BAD_DATA;
  if (const DWORD code = call.begin(contentAlgorithm, para.hCryptProv, para.dwKeySpec)) return code;
  if (const DWORD code = padding.set(call.own.get())) return code;
  KeyHandle made;
  const bool isShort = call.content.rc2Bits && call.content.rc2Bits != kRc2BitsOfBlob;
  const DWORD code = isShort ? OpenShortKey(call, padding, encryptedKey, made)
                             : ImportBlob(call.provider, SimpleBlob(call.content.algorithm, encryptedKey),
                                          call.own.get(), padding.flags(), made);
  if (code) return code;
  if (const DWORD preparing = PrepareContentKey(made.get(), call.content)) return preparing;
  *key = made.release();
  return ERROR_SUCCESS;
}

}  // namespace
}  // namespace extkern

using namespace extkern;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" {

BOOL XnMsgDllExportKeyTransRSA(PCMSG_CONTENT_ENCRYPT_INFO pContentEncryptInfo,
                               PCMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO pKeyTransEncodeInfo,
                               PCMSG_KEY_TRANS_ENCRYPT_INFO pKeyTransEncryptInfo, DWORD dwFlags,
                               void* pvReserved) {
  return ExchangeCall(dwFlags, pvReserved, [&]() -> DWORD {
    if (!IsWhole(pContentEncryptInfo) || !IsContentInfoUsable(*pContentEncryptInfo)
        || !IsWhole(pKeyTransEncodeInfo) || !IsWhole(pKeyTransEncryptInfo))
      return ERROR_INVALID_PARAMETER;
    return Export(*pContentEncryptInfo, *pKeyTransEncodeInfo, *pKeyTransEncryptInfo);
  });
}

BOOL XnMsgDllImportKeyTransRSA(PCRYPT_ALGORITHM_IDENTIFIER pContentEncryptionAlgorithm,
                               PCMSG_CTRL_KEY_TRANS_DECRYPT_PARA pKeyTransDecryptPara, DWORD dwFlags,
                               void* pvReserved, HCRYPTKEY* phContentEncryptKey) {
  return ExchangeCall(dwFlags, pvReserved, [&]() -> DWORD {
    if (!phContentEncryptKey || !IsTransportUsable(pKeyTransDecryptPara)) return ERROR_INVALID_PARAMETER;
    return Import(pContentEncryptionAlgorithm, *pKeyTransDecryptPara, phContentEncryptKey);
  });
}

}  // extern "C"
