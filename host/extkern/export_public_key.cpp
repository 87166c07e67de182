// Public keys on their way out of a provider.
#include "ber/algorithm.h"
#include "extkern/public_key_blob.h"
#include "extkern/record_codec.h"
#include "keykern/call.h"
#include "platform/extkern.h"
#include "platform/limits.h"
#include "platform/owner.h"

namespace extkern {
namespace {

using KeyHandle = certkern::Owner<HCRYPTKEY, CryptDestroyKey>;

DWORD ExportBlob(HCRYPTPROV provider, DWORD keySpec, Bytes& blob) {
  KeyHandle key;
  DWORD size = 0;
  if (!CryptGetUserKey(provider, keySpec, key.out())) return GetLastError();
  if (!CryptExportKey(key.get(), 0, PUBLICKEYBLOB, 0, nullptr, &size)) return GetLastError();
  if (size > certkern::kMaxKeyBlob) return NTE_BAD_DATA;
  blob.resize(size);
  if (!CryptExportKey(key.get(), 0, PUBLICKEYBLOB, 0, blob.data(), &size)) return GetLastError();
  if (size > blob.size()) return NTE_BAD_DATA;
  blob.resize(size);
  return ERROR_SUCCESS;
}

DWORD ExportInfo(HCRYPTPROV provider, DWORD keySpec, LPCSTR objectId, Bytes& publicKeyInfo) {
  Bytes blob;
  if (const DWORD code = ExportBlob(provider, keySpec, blob)) return code;
  return PublicKeyInfoOfBlob(blob, objectId, publicKeyInfo);
}

constexpr const RecordType& kPublicKeyInfo =
    kReadOnlyType<CERT_PUBLIC_KEY_INFO, certkern::PublicKeyInfoDecode>;

}  // namespace
}  // namespace extkern

using namespace extkern;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" {

BOOL XnDllExportPublicKeyInfoEx(HCRYPTPROV hCryptProv, DWORD dwKeySpec, DWORD dwCertEncodingType,
                                LPSTR pszPublicKeyObjId, DWORD dwFlags, void* pvAuxInfo,
                                PCERT_PUBLIC_KEY_INFO pInfo, DWORD* pcbInfo) {
  return keykern::Call([&]() -> DWORD {
    if (!pcbInfo || pvAuxInfo) return ERROR_INVALID_PARAMETER;
    if (dwFlags) return NTE_BAD_FLAGS;
    if (!(dwCertEncodingType & (X509_ASN_ENCODING | PKCS_7_ASN_ENCODING))) return ERROR_FILE_NOT_FOUND;
    Bytes publicKeyInfo;
    if (const DWORD code = ExportInfo(hCryptProv, dwKeySpec, pszPublicKeyObjId, publicKeyInfo)) return code;
    return DecodeRecord(kPublicKeyInfo, publicKeyInfo, 0, pInfo, pcbInfo) ? ERROR_SUCCESS : GetLastError();
  });
}

}  // extern "C"
