#include "certkern/signer_certificate.h"

#include <certkern/cert.h>
#include <certkern/store.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>

#include "platform/trace.h"

namespace certkern {
namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

void CloseSearched(HCERTSTORE store) {
  if (!CertCloseStore(store, 0)) TraceLazy("CertCloseStore failed: err=0x%x", GetLastError());
}
using SearchedStore = Owner<HCERTSTORE, CloseSearched>;

using KeyHandle = Owner<HCRYPTKEY, [](HCRYPTKEY key) {
  if (!CryptDestroyKey(key)) TraceLazy("CryptDestroyKey() failed: err=0x%x", GetLastError());
}>;

CertificateOwner FindById(HCERTSTORE store, const CERT_ID& id) {
  return CertificateOwner(CertFindCertificateInStore(store, kEncoding, 0, CERT_FIND_CERT_ID, &id, nullptr));
}

// Issuer and serial number; empty for a signer that is not named by them.
std::optional<CERT_ID> IdOf(const CMSG_SIGNER_ENCODE_INFO& signer) {
  constexpr size_t kIdEnd = offsetof(CMSG_SIGNER_ENCODE_INFO, SignerId) + sizeof signer.SignerId;
  const DWORD choice = Reaches(signer, kIdEnd) ? signer.SignerId.dwIdChoice : 0;
  if (choice == CERT_ID_ISSUER_SERIAL_NUMBER) return signer.SignerId;
  if (choice != 0 || !signer.pCertInfo) return std::nullopt;
  CERT_ID id{};
  id.dwIdChoice = CERT_ID_ISSUER_SERIAL_NUMBER;
  id.IssuerSerialNumber = {signer.pCertInfo->Issuer, signer.pCertInfo->SerialNumber};
  return id;
}

CertificateOwner FindSignerCertInEncodeInfo(const CMSG_SIGNED_ENCODE_INFO& info, const CERT_ID& id) {
  constexpr size_t kCertificatesEnd = offsetof(CMSG_SIGNED_ENCODE_INFO, cCrlEncoded);
  if (!Reaches(info, kCertificatesEnd) || !info.rgCertEncoded || info.cCertEncoded == 0) return {};
  const SearchedStore store(CertOpenStore(CERT_STORE_PROV_MEMORY, kEncoding, 0, 0, nullptr));
  if (!store) {
    TraceLazy("failed to open memory store: err=0x%x", GetLastError());
    return {};
  }
  for (const CERT_BLOB& blob : std::span(info.rgCertEncoded, info.cCertEncoded)) {
    if (!CertAddEncodedCertificateToStore(store.get(), kEncoding, blob.pbData, blob.cbData,
                                          CERT_STORE_ADD_ALWAYS, nullptr)) {
      TraceLazy("CertAddEncodedCertificateToStore failed: err=0x%x", GetLastError());
      return {};
    }
  }
  return FindById(store.get(), id);
}

CertificateOwner FindSignerCertInMessage(HCRYPTMSG message, const CERT_ID& id) {
  const SearchedStore store(CertOpenStore(CERT_STORE_PROV_MSG, kEncoding, 0, 0, message));
  if (!store) {
    TraceLazy("failed to open message store: err=0x%x", GetLastError());
    return {};
  }
  return FindById(store.get(), id);
}

// The bytes live in the chain. Empty with a trace.
std::span<const BYTE> ReadKeyCertificate(HCRYPTKEY key, MemoryChain* chain) {
  DWORD cbCertEncoded = 0;
  if (!CryptGetKeyParam(key, KP_CERTIFICATE, nullptr, &cbCertEncoded, 0)) {
    TraceLazy("CryptGetKeyParam(KP_CERTIFICATE) failed: err=0x%x", GetLastError());
    return {};
  }
  auto* const bytes = static_cast<BYTE*>(SvCmsAttrAlloc(chain, cbCertEncoded));
  if (!bytes) {
    TraceLazy("SvCmsAttrAlloc failed: pMemChain=0x%p, cbCertEncoded=%d", chain, cbCertEncoded);
    return {};
  }
  if (!CryptGetKeyParam(key, KP_CERTIFICATE, bytes, &cbCertEncoded, 0)) {
    TraceLazy("CryptGetKeyParam(KP_CERTIFICATE) failed: err=0x%x", GetLastError());
    return {};
  }
  return {bytes, cbCertEncoded};
}

bool IsNamed(PCCERT_CONTEXT certificate, CERT_ID id) {
  CERT_INFO wanted{};
  wanted.Issuer = id.IssuerSerialNumber.Issuer;
  wanted.SerialNumber = id.IssuerSerialNumber.SerialNumber;
  return CertCompareCertificate(kEncoding, certificate->pCertInfo, &wanted) != FALSE;
}

CertificateOwner FindSignerCertInContainer(const CMSG_SIGNER_ENCODE_INFO& signer, const CERT_ID& id,
                                           MemoryChain* chain) {
  if (!Reaches(signer, offsetof(CMSG_SIGNER_ENCODE_INFO, dwKeySpec) + sizeof signer.dwKeySpec)) return {};
  if (id.dwIdChoice != CERT_ID_ISSUER_SERIAL_NUMBER) {
    TraceLazy("CERT_ID_ISSUER_SERIAL_NUMBER != pCertId->dwIdChoice");
    return {};
  }
  KeyHandle key;
  if (!CryptGetUserKey(signer.hCryptProv, signer.dwKeySpec, key.out())) {
    TraceLazy("CryptGetUserKey failed: err=0x%x", GetLastError());
    return {};
  }
  const std::span<const BYTE> encoded = ReadKeyCertificate(key.get(), chain);
  if (encoded.empty()) return {};
  CertificateOwner certificate(
      CertCreateCertificateContext(kEncoding, encoded.data(), static_cast<DWORD>(encoded.size())));
  if (!certificate) {
    TraceLazy("CertCreateCertificateContext() failed: err=0x%x", GetLastError());
    return {};
  }
  if (IsNamed(certificate.get(), id)) return certificate;
  TraceLazy("certificate in container doesn't match cert id");
  return {};
}

// For searching only: a store that isn't there is not made.
HCERTSTORE OpenMyStore(DWORD location) {
  return CertOpenStore(CERT_STORE_PROV_SYSTEM_W, kEncoding, 0,
                       location | CERT_STORE_OPEN_EXISTING_FLAG | CERT_STORE_READONLY_FLAG, L"my");
}

CertificateOwner FindSignerCertInMyStores(const CERT_ID& id) {
  if (const SearchedStore store(OpenMyStore(CERT_SYSTEM_STORE_CURRENT_USER)); store) {
    if (CertificateOwner found = FindById(store.get(), id)) return found;
  } else {
    TraceLazy("failed to open current user 'my' store: err=0x%x", GetLastError());
  }
  if (const SearchedStore store(OpenMyStore(CERT_SYSTEM_STORE_LOCAL_MACHINE)); store) {
    return FindById(store.get(), id);
  }
  TraceLazy("failed to open local machine 'my' store: err=0x%x", GetLastError());
  return {};
}

}  // namespace

CertificateOwner FindSignerCertificate(const SignerPlaces& places) {
  if (places.given) return CertificateOwner(CertDuplicateCertificateContext(places.given));
  if (!places.signer) return {};
  const std::optional<CERT_ID> id = IdOf(*places.signer);
  if (!id) return {};
  if (places.signedInfo) {
    if (CertificateOwner found = FindSignerCertInEncodeInfo(*places.signedInfo, *id)) return found;
  }
  if (places.message) {
    if (CertificateOwner found = FindSignerCertInMessage(places.message, *id)) return found;
  }
  if (!places.searchKeyPlaces) return {};
  if (CertificateOwner found = FindSignerCertInContainer(*places.signer, *id, places.chain)) return found;
  return FindSignerCertInMyStores(*id);
}

}  // namespace certkern
