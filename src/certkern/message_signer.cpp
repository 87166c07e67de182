#include "certkern/message_signer.h"

#include <certkern/errors.h>

#include <cstdlib>

#include "certkern/chain/chain_builder.h"
#include "platform/owner.h"

namespace certkern {
namespace {

constexpr DWORD kAnyEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

bool AddStore(HCERTSTORE collection, HCERTSTORE store) {
  return CertAddStoreToCollection(collection, store, 0, 0);
}

// The message's own certificates come first, unless nobody but the caller is to vouch for them.
StoreOwner CollectStores(HCRYPTMSG message, std::span<const HCERTSTORE> stores, DWORD flags) {
  StoreOwner collection(CertOpenStore(CERT_STORE_PROV_COLLECTION, 0, 0, 0, nullptr));
  if (!collection) return {};
  if (!(flags & CMSG_TRUSTED_SIGNER_FLAG)) {
    const StoreOwner own(CertOpenStore(CERT_STORE_PROV_MSG, kAnyEncoding, 0, 0, message));
    if (!own || !AddStore(collection.get(), own.get())) return {};
  }
  for (const HCERTSTORE store : stores) {
    if (!AddStore(collection.get(), store)) return {};
  }
  return collection;
}

CertificateOwner FindSigner(HCRYPTMSG message, HCERTSTORE store, DWORD index) {
  DWORD size = 0;
  if (!CryptMsgGetParam(message, CMSG_SIGNER_CERT_INFO_PARAM, index, nullptr, &size)) return {};
  const MallocOwner<void> info(std::malloc(size));
  if (!info || !CryptMsgGetParam(message, CMSG_SIGNER_CERT_INFO_PARAM, index, info.get(), &size)) return {};
  return CertificateOwner(
      CertFindCertificateInStore(store, kAnyEncoding, 0, CERT_FIND_SUBJECT_CERT, info.get(), nullptr));
}

// A signer that can't be looked for is passed over.
CertificateOwner FindAnySigner(HCRYPTMSG message, HCERTSTORE store, DWORD& index) {
  DWORD count = 0;
  DWORD size = sizeof(count);
  if (!CryptMsgGetParam(message, CMSG_SIGNER_COUNT_PARAM, 0, &count, &size)) return {};
  for (index = 0; index < count; ++index) {
    if (CertificateOwner signer = FindSigner(message, store, index)) return signer;
  }
  return {};
}

}  // namespace

CertificateOwner FindAndVerifySigner(HCRYPTMSG message, std::span<const HCERTSTORE> stores, DWORD flags,
                                     DWORD& index) {
  const StoreOwner store = CollectStores(message, stores, flags);
  if (!store) return {};
  CertificateOwner signer = flags & CMSG_USE_SIGNER_INDEX_FLAG ? FindSigner(message, store.get(), index)
                                                               : FindAnySigner(message, store.get(), index);
  if (!signer) {
    SetLastError(CRYPT_E_NO_TRUSTED_SIGNER);
    return {};
  }
  if (flags & CMSG_SIGNER_ONLY_FLAG) return signer;
  if (!CryptMsgControl(message, 0, CMSG_CTRL_VERIFY_SIGNATURE, signer->pCertInfo)) return {};
  return signer;
}

}  // namespace certkern
