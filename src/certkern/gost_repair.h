// A GOST key never signs a foreign hash, and a message for a GOST recipient never names a foreign cipher: parameters that
// say so are corrected, in copies.
#ifndef CERTKERN_CERTKERN_GOST_REPAIR_H
#define CERTKERN_CERTKERN_GOST_REPAIR_H

#include <certkern/msg.h>
#include <certkern/msg_simple.h>

namespace certkern {

// The configuration's word, read once.
bool RepairsAlgorithms();

// No identifier is no hash.
bool IsGostHash(LPCSTR oid);

// A record without a hash identifier is left as it is: that fault is the caller's to hear of.
void PrepareHashCompatibleSigner(CMSG_SIGNER_ENCODE_INFO* signer);
void PrepareHashCompatibleSignMessage(CRYPT_SIGN_MESSAGE_PARA* para);
// The encode info of a signed or enveloped message; others are left alone.
void TryUpdateEncodeInfoToGostCompatible(void* info, DWORD dwMsgType);

}  // namespace certkern

#endif
