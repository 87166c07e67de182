// The certificate of a signer that is yet to sign, wherever it may be found.
#ifndef CERTKERN_CERTKERN_SIGNER_CERTIFICATE_H
#define CERTKERN_CERTKERN_SIGNER_CERTIFICATE_H

#include "certkern/chain/chain_records.h"
#include "certkern/cms_attributes.h"

namespace certkern {

// What is known of a signer; all but the chain may be null.
struct SignerPlaces {
  PCCERT_CONTEXT given = nullptr;
  const CMSG_SIGNER_ENCODE_INFO* signer = nullptr;
  const CMSG_SIGNED_ENCODE_INFO* signedInfo = nullptr;
  HCRYPTMSG message = nullptr;
  bool searchKeyPlaces = true;  // the key's container and the user's stores
  MemoryChain* chain = nullptr;
};

// The given one; else by issuer and serial number: among those that go into the message, in the message, with the key, in
// the stores "my" of the user and of the machine. A signer that is named by its key is not looked for. Failures are
// traced, and the search goes on with the next place.
CertificateOwner FindSignerCertificate(const SignerPlaces& places);

// Whether a record's cbSize covers its first `end` bytes.
template <class Record>
bool Reaches(const Record& record, size_t end) {
  return record.cbSize >= end;
}

}  // namespace certkern

#endif
