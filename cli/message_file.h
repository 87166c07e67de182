// A message as it stands in a file: nothing around it, and where in it a fault is.
#ifndef CERTKERN_CLI_MESSAGE_FILE_H
#define CERTKERN_CLI_MESSAGE_FILE_H

#include "input.h"

#include "asn1rt/context.h"

#include <optional>
#include <span>
#include <string>

namespace certkern::cli {

// Whether bytes begin as a ContentInfo of PKCS #7 or CMS does. RFC 5652, 3
bool LooksLikeMessage(std::span<const BYTE> bytes);

// With its header; its length may be indefinite. Nothing when it has no end.
std::optional<size_t> MessageSize(std::span<const BYTE> bytes);

struct MessageFile {
  std::string shown;  // the name of the file, for errors
  Bytes bytes;        // from the first octet of the message to its last
  Block origin;       // without its bytes: tells places

  [[noreturn]] void fail(const std::string& text) const;
  // Says why the decoder has refused it, which the last error tells, to somebody who wanted a signed message.
  [[noreturn]] void refuse() const;
  void requireSigned() const;
};
// The one message of a file, in any form. A file with anything else in it is refused: a verdict on the message would be taken
// for one on the file.
MessageFile ReadMessageFile(const std::string& path, const std::string& shown);

// Whether a signed message has its content inside, be it empty.
bool HasContent(std::span<const BYTE> message);

// Where the decoder stumbles over a message, and what it expected there.
struct Refusal {
  std::string text;
  size_t offset;

  std::string at(const Block& origin, size_t start) const {
    return text + " at " + origin.place(start + offset);
  }
};
// Nothing when the decoder does not stumble. Values of attributes are theirs who wrote them, but what is made here is checked.
std::optional<Refusal> FindRefusal(std::span<const BYTE> message, OpenValues values = OpenValues::Kept);

}  // namespace certkern::cli

#endif
