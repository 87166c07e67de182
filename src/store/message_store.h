// The certificates and CRLs of a signed message: into stores, and out of them.
#ifndef CERTKERN_STORE_MESSAGE_STORE_H
#define CERTKERN_STORE_MESSAGE_STORE_H

#include <certkern/msg.h>

#include <span>
#include <vector>

#include "store/serialized_image.h"
#include "store/store_kind.h"

namespace certkern {

// Puts the objects of an open message into a store, but for those that do not decode; a message that is being built has
// none. False with a code. Defined where messages are, on a floor above.
[[nodiscard]] bool AddMessageObjects(HCRYPTMSG message, HCERTSTORE store);

// The objects of an encoded message; the content points into the bytes.
struct MessageObjects {
  std::vector<BYTE> bytes;
  ImageContent content;
};
// A file that may be written again keeps what does not decode; who only reads leaves it out.
enum class Unreadable { Kept, LeftOut };
// False with the code of the message functions.
[[nodiscard]] bool ReadMessageObjects(std::span<const BYTE> encoded, Unreadable unreadable,
                                      MessageObjects& objects);

// The other way: a signed message without signers, content and properties. False with the code of the message functions.
[[nodiscard]] bool WriteMessage(CertStore& store, ImageBytes& message);

// The provider of an open message: a memory store with its objects.
StoreHandle OpenMessageStore(const OpenRequest& request);
// The load function of the kind: the parameter is a CRYPT_DATA_BLOB. What does not decode is left out.
[[nodiscard]] bool LoadMessageBlob(CertStore& store, const void* parameter);

}  // namespace certkern

#endif
