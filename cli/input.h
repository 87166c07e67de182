// Files and what is in them: DER, PEM or bare Base64.
#ifndef CERTKERN_CLI_INPUT_H
#define CERTKERN_CLI_INPUT_H

#include "field.h"

#include <sys/stat.h>

#include <functional>
#include <span>
#include <string>

namespace certkern::cli {

// In bytes. Whatever is larger is no certificate and no CRL.
constexpr size_t kLargestFile = size_t{1} << 30;

// Reads a file, a FIFO or, for "-", standard input. On failure the text says why, and bytes is empty.
struct FileContent {
  Bytes bytes;
  std::string error;  // empty when all went well
};
FileContent ReadInput(const std::string& path);
// Keeps in mind that an open file is read as input; ReadInput does it itself.
void NoteRead(int file);
// Whether a regular file was, under whatever name: what is written there would destroy it.
bool WasRead(const struct stat& file);

// Encoded bytes from a file, and how to speak of a place in them.
struct Block {
  std::span<const BYTE> bytes;
  size_t fileOffset = 0;  // of the bytes themselves, or of the text that they were decoded from
  enum class Form { Der, Pem, Base64 } form = Form::Der;

  // "byte offset 12 of the file", or "offset 12 of the object that is PEM at byte offset 0 of the file"
  std::string place(size_t offset) const;
};

enum class Wanted {
  Objects,             // certificates, CRLs and requests: DER begins as a SEQUENCE, other PEM is left out
  ObjectsAndMessages,  // the same, and messages
  AnyElement,  // PEM of any kind; bytes that are neither text of it nor Base64 are taken as an encoding
};

struct BlockReader {
  std::function<void(const Block&)> onBlock;
  std::function<void(const std::string&)> onFault;  // a fault with its place; reading goes on where it can
  std::function<void(const std::string&)> onNote;   // something that is left out, but is no fault
  Wanted wanted = Wanted::Objects;
};

// Each block of a file in its order; the bytes of a block live as long as the call to onBlock.
void ReadBlocks(std::span<const BYTE> file, const BlockReader& reader);

}  // namespace certkern::cli

#endif
