// Who signed a message: the search for a signer's certificate.
#ifndef CERTKERN_CERTKERN_MESSAGE_SIGNER_H
#define CERTKERN_CERTKERN_MESSAGE_SIGNER_H

#include <certkern/msg.h>

#include <span>

#include "certkern/chain/chain_records.h"

namespace certkern {

// CryptMsgGetAndVerifySigner. The index is looked at only with CMSG_USE_SIGNER_INDEX_FLAG, and tells the signer found. Empty
// with a code: no certificate, or one that does not verify. CryptException.
CertificateOwner FindAndVerifySigner(HCRYPTMSG message, std::span<const HCERTSTORE> stores, DWORD flags,
                                     DWORD& index);

// Whether this code of a question about a signer says that there is none; any other tells why nobody could look.
bool SaysThereIsNoSigner(DWORD code);

}  // namespace certkern

#endif
