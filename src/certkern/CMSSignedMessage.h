// Signed messages: SignedData of RFC 5652, clause 5. The file bears the name under which its exceptions are traced.
#ifndef CERTKERN_CERTKERN_CMSSIGNEDMESSAGE_H
#define CERTKERN_CERTKERN_CMSSIGNEDMESSAGE_H

#include "certkern/CMSMessage.h"

namespace certkern {

MessageOwner MakeSignedEncodeContext();
MessageOwner MakeSignedDecodeContext();

}  // namespace certkern

#endif
