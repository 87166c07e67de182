// Public keys on their way to a provider, and RSA keys between the published blob and RSAPublicKey.
#include <certkern/oids.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "extkern/public_key_blob.h"
#include "extkern/record_codec.h"
#include "keykern/call.h"
#include "keykern/results.h"
#include "platform/extkern.h"
#include "platform/limits.h"

namespace extkern {
namespace {

using Family = std::span<const LPCSTR>;

constexpr LPCSTR kGostAndDsa[] = {"1.2.643.2.2.19", "1.2.643.7.1.1.1.1", "1.2.643.7.1.1.1.2",
                                  "1.2.840.10040.4.1"};
constexpr LPCSTR kEcdsa[] = {"1.2.840.10045.2.1"};
constexpr LPCSTR kEdDsa[] = {"1.3.101.112", "1.3.101.113"};
constexpr LPCSTR kRsa[] = {szOID_RSA_RSA, "1.2.840.113549.1.1.10"};

bool IsOf(Family family, LPCSTR oid) {
  return std::any_of(family.begin(), family.end(), [oid](LPCSTR one) { return std::strcmp(one, oid) == 0; });
}

// The meaning that a certificate's key has: the first row of its identifier. 0 when there is none.
ALG_ID AlgorithmOf(LPSTR oid) {
  const PCCRYPT_OID_INFO row = CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, oid, CRYPT_PUBKEY_ALG_OID_GROUP_ID);
  return row ? row->Algid : 0;
}

DWORD CheckForm(const CERT_PUBLIC_KEY_INFO& info) {
  const CRYPT_OBJID_BLOB& parameters = info.Algorithm.Parameters;
  if (!info.Algorithm.pszObjId || !info.PublicKey.pbData || (parameters.cbData && !parameters.pbData))
    return ERROR_INVALID_PARAMETER;
  if (!info.PublicKey.cbData || info.PublicKey.cUnusedBits) return NTE_BAD_DATA;
  const uint64_t size = uint64_t{info.PublicKey.cbData} + parameters.cbData;
  if (size > certkern::kMaxKeyBlob) return NTE_BAD_DATA;
  if (parameters.cbData && !IsElement({parameters.pbData, parameters.cbData})) return NTE_BAD_DATA;
  return ERROR_SUCCESS;
}

DWORD ConvertOther(ALG_ID algorithm, const CERT_PUBLIC_KEY_INFO& info, Bytes& blob) {
  const Bytes encoded = WritePublicKeyInfo(info);
  if (encoded.empty()) return NTE_BAD_DATA;
  blob = InfoKeyBlob(algorithm, encoded);
  return ERROR_SUCCESS;
}

// What an RSASSA-PSS key may sign with is settled by whoever verifies; to the provider it is an RSA key as any other.
DWORD ConvertRsa(ALG_ID algorithm, const CERT_PUBLIC_KEY_INFO& info, Bytes& blob) {
  RsaPublicKey key;
  if (ReadRsaPublicKey({info.PublicKey.pbData, info.PublicKey.cbData}, key) != ERROR_SUCCESS)
    return NTE_BAD_DATA;
  if (!key.fitsPublishedForm()) {
    CERT_PUBLIC_KEY_INFO plain = info;
    plain.Algorithm = {const_cast<LPSTR>(szOID_RSA_RSA), {}};
    return ConvertOther(algorithm, plain, blob);
  }
  blob = RsaKeyBlob(algorithm, key);
  return ERROR_SUCCESS;
}

DWORD GiveAllocated(std::span<const BYTE> bytes, BYTE** out, DWORD* size) {
  auto* memory = static_cast<BYTE*>(std::malloc(bytes.size()));
  if (!memory) return NTE_NO_MEMORY;
  std::memcpy(memory, bytes.data(), bytes.size());
  *out = memory;
  *size = static_cast<DWORD>(bytes.size());
  return ERROR_SUCCESS;
}

DWORD Convert(Family family, const CERT_PUBLIC_KEY_INFO* info, ALG_ID algorithm, DWORD flags, BYTE** out,
              DWORD* size) {
  if (!info || !out || !size) return ERROR_INVALID_PARAMETER;
  if (flags) return NTE_BAD_FLAGS;
  if (const DWORD code = CheckForm(*info)) return code;
  const LPSTR oid = info->Algorithm.pszObjId;
  if (!IsOf(family, oid)) return NTE_BAD_ALGID;
  if (!algorithm) algorithm = AlgorithmOf(oid);
  if (!algorithm) return NTE_BAD_ALGID;
  Bytes blob;
  const DWORD code =
      IsOf(kRsa, oid) ? ConvertRsa(algorithm, *info, blob) : ConvertOther(algorithm, *info, blob);
  return code ? code : GiveAllocated(blob, out, size);
}

DWORD EncodeRsa(const BYTE* blob, BYTE* encoded, DWORD* size) {
  if (!blob || !size) return ERROR_INVALID_PARAMETER;
  const size_t blobSize = RsaBlobSize(std::span<const BYTE, kRsaBlobHead>(blob, kRsaBlobHead));
  if (!blobSize) return CRYPT_E_BAD_ENCODE;
  const Bytes der = RsaPublicKeyOfBlob({blob, blobSize});
  return der.empty() ? DWORD{CRYPT_E_BAD_ENCODE} : keykern::GiveBytes(der, encoded, size);
}

DWORD DecodeRsa(std::span<const BYTE> encoded, DWORD flags, BYTE* blob, DWORD* size) {
  if (encoded.empty() || !encoded.data() || !size || flags > kDecodeFlags) return ERROR_INVALID_PARAMETER;
  RsaPublicKey key;
  if (const DWORD code = ReadRsaPublicKey(encoded, key)) return code;
  if (!key.fitsPublishedForm()) return CRYPT_E_ASN1_LARGE;
  return keykern::GiveBytes(RsaKeyBlob(CALG_RSA_KEYX, key), blob, size);
}

}  // namespace
}  // namespace extkern

using namespace extkern;  // NOLINT(google-build-using-namespace): only exported C functions follow
using keykern::Call;

extern "C" {

BOOL XnConvertPublicKeyInfo(DWORD, PCERT_PUBLIC_KEY_INFO pInfo, ALG_ID aiKeyAlg, DWORD dwFlags,
                            BYTE** ppbBlob, DWORD* pcbBlob) {
  return Call([&] { return Convert(kGostAndDsa, pInfo, aiKeyAlg, dwFlags, ppbBlob, pcbBlob); });
}
BOOL XnEcdsaConvertPublicKeyInfo(DWORD, PCERT_PUBLIC_KEY_INFO pInfo, ALG_ID aiKeyAlg, DWORD dwFlags,
                                 BYTE** ppbBlob, DWORD* pcbBlob) {
  return Call([&] { return Convert(kEcdsa, pInfo, aiKeyAlg, dwFlags, ppbBlob, pcbBlob); });
}
BOOL XnEdDSAConvertPublicKeyInfo(DWORD, PCERT_PUBLIC_KEY_INFO pInfo, ALG_ID aiKeyAlg, DWORD dwFlags,
                                 BYTE** ppbBlob, DWORD* pcbBlob) {
  return Call([&] { return Convert(kEdDsa, pInfo, aiKeyAlg, dwFlags, ppbBlob, pcbBlob); });
}
BOOL XnRsaConvertPublicKeyInfo(DWORD, PCERT_PUBLIC_KEY_INFO pInfo, ALG_ID aiKeyAlg, DWORD dwFlags,
                               BYTE** ppbBlob, DWORD* pcbBlob) {
  return Call([&] { return Convert(kRsa, pInfo, aiKeyAlg, dwFlags, ppbBlob, pcbBlob); });
}

BOOL XnRsaPublicKeyEncode(DWORD, LPCSTR, const void* pvStructInfo, BYTE* pbEncoded, DWORD* pcbEncoded) {
  if (!Call([&] { return EncodeRsa(static_cast<const BYTE*>(pvStructInfo), pbEncoded, pcbEncoded); }))
    return FALSE;
  SetLastError(ERROR_SUCCESS);
  return TRUE;
}
BOOL XnRsaPublicKeyDecode(DWORD, LPCSTR, const BYTE* pbEncoded, DWORD cbEncoded, DWORD dwFlags,
                          void* pvStructInfo, DWORD* pcbStructInfo) {
  return Call([&] {
    return DecodeRsa({pbEncoded, cbEncoded}, dwFlags, static_cast<BYTE*>(pvStructInfo), pcbStructInfo);
  });
}

}  // extern "C"
