#include "certkern/message_signer.h"

#include <certkern/errors.h>

#include <cstdlib>

#include "certkern/CMSMessage.h"
#include "certkern/chain/chain_builder.h"
#include "platform/exceptions.h"
#include "platform/owner.h"

namespace certkern {
namespace {

constexpr DWORD kAnyEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

bool AddStore(HCERTSTORE collection, HCERTSTORE store) {
  return CertAddStoreToCollection(collection, store, 0, 0);
}

// The message's own certificates come first, unless nobody but the caller is to vouch for them. A message that is being built
// has none.
StoreOwner CollectStores(HCRYPTMSG message, std::span<const HCERTSTORE> stores, DWORD flags) {
  StoreOwner collection(CertOpenStore(CERT_STORE_PROV_COLLECTION, 0, 0, 0, nullptr));
  if (!collection) return {};
  MessageDecodeContext* const decoder = static_cast<MessageContext*>(message)->asDecodeContext();
  if (decoder && !(flags & CMSG_TRUSTED_SIGNER_FLAG)
      && !AddStore(collection.get(), decoder->certificateStore()))
    return {};
  for (const HCERTSTORE store : stores) {
    if (!AddStore(collection.get(), store)) return {};
  }
  return collection;
}

enum class Search { Found, NotThere, Failed };

// Failed with a code.
Search FindSigner(HCRYPTMSG message, HCERTSTORE store, DWORD index, CertificateOwner& signer) {
  const auto refused = [] { return SaysThereIsNoSigner(GetLastError()) ? Search::NotThere : Search::Failed; };
  DWORD size = 0;
  if (!CryptMsgGetParam(message, CMSG_SIGNER_CERT_INFO_PARAM, index, nullptr, &size)) return refused();
  const MallocOwner<void> info(std::malloc(size));
  if (!info) throw CryptException(ERROR_NOT_ENOUGH_MEMORY);
  if (!CryptMsgGetParam(message, CMSG_SIGNER_CERT_INFO_PARAM, index, info.get(), &size)) return refused();
  signer.reset(
      CertFindCertificateInStore(store, kAnyEncoding, 0, CERT_FIND_SUBJECT_CERT, info.get(), nullptr));
  if (signer) return Search::Found;
  return GetLastError() == ERROR_NOT_ENOUGH_MEMORY ? Search::Failed : Search::NotThere;
}

Search FindAnySigner(HCRYPTMSG message, HCERTSTORE store, DWORD& index, CertificateOwner& signer) {
  DWORD count = 0;
  DWORD size = sizeof(count);
  if (!CryptMsgGetParam(message, CMSG_SIGNER_COUNT_PARAM, 0, &count, &size)) return Search::NotThere;
  for (index = 0; index < count; ++index) {
    const Search outcome = FindSigner(message, store, index, signer);
    if (outcome != Search::NotThere) return outcome;
  }
  return Search::NotThere;
}

}  // namespace

bool SaysThereIsNoSigner(DWORD code) {
  return code == CRYPT_E_NO_SIGNER || code == CRYPT_E_INVALID_MSG_TYPE
      || code == CRYPT_E_STREAM_MSG_NOT_READY;
}

CertificateOwner FindAndVerifySigner(HCRYPTMSG message, std::span<const HCERTSTORE> stores, DWORD flags,
                                     DWORD& index) {
  const StoreOwner store = CollectStores(message, stores, flags);
  if (!store) return {};
  CertificateOwner signer;
  const Search outcome = flags & CMSG_USE_SIGNER_INDEX_FLAG
      ? FindSigner(message, store.get(), index, signer)
      : FindAnySigner(message, store.get(), index, signer);
  if (outcome == Search::NotThere) SetLastError(CRYPT_E_NO_TRUSTED_SIGNER);
  if (outcome != Search::Found) return {};
  if (flags & CMSG_SIGNER_ONLY_FLAG) return signer;
  if (!CryptMsgControl(message, 0, CMSG_CTRL_VERIFY_SIGNATURE, signer->pCertInfo)) return {};
  return signer;
}

}  // namespace certkern
