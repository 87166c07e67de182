#include "message_file.h"

#include "asn1_typing.h"
#include "failure.h"
#include "grammar.h"
#include "shape.h"

#include "asn1rt/element_header.h"

#include <certkern/keykern.h>
#include <fmt/format.h>

#include <algorithm>

namespace certkern::cli {
namespace {

// Behind an element, be its length definite or not; null where it has no end.
const BYTE* Behind(const BYTE* at, const BYTE* end) {
  size_t open = 0;
  do {
    if (open && IsEndOfContents(at, end)) {
      at += 2;
      --open;
      continue;
    }
    ElementHeader header;
    if (ReadElementHeader(at, end, header) < 0) return nullptr;
    if (header.indefinite) ++open;
    at = header.indefinite ? header.content : header.end;
  } while (open);
  return at;
}

// The members of an element, one after the other.
class Members {
 public:
  explicit Members(std::span<const BYTE> bytes) : at_(bytes.data()), end_(bytes.data() + bytes.size()) {}
  explicit Members(const ElementHeader& of) : at_(of.content), end_(of.end), indefinite_(of.indefinite) {}

  bool ended() const { return indefinite_ ? IsEndOfContents(at_, end_) : at_ == end_; }
  const BYTE* at() const { return at_; }
  std::optional<ElementHeader> next() {
    ElementHeader header;
    const BYTE* const behind = ended() ? nullptr : Behind(at_, end_);
    if (!behind || ReadElementHeader(at_, end_, header) < 0) return std::nullopt;
    at_ = behind;
    return header;
  }
  // The members of the next one; there are none where it is missing.
  Members inside() {
    const std::optional<ElementHeader> header = next();
    return header ? Members(*header) : Members(std::span<const BYTE>());
  }

 private:
  const BYTE* at_;
  const BYTE* end_;
  bool indefinite_ = false;
};

struct Stray {
  size_t offset;
  const char* text;
};

// What a reader would overlook: the decoder stops at the end of the message, and asks nobody what else its frame holds.
// Where the frame itself can't be read, the decoder tells so.
std::optional<Stray> FindStray(std::span<const BYTE> bytes) {
  const auto offsetOf = [&](const Members& members) {
    return static_cast<size_t>(members.at() - bytes.data());
  };
  Members file(bytes);
  const std::optional<ElementHeader> message = file.next();
  if (!message) return std::nullopt;
  if (!file.ended()) {
    const bool another = LooksLikeMessage(bytes.subspan(offsetOf(file)));
    return Stray{offsetOf(file), another ? "another message" : "bytes behind the message"};
  }
  Members info(*message);
  info.next();
  Members content = info.inside();
  if (content.next() && !content.ended()) return Stray{offsetOf(content), "a second content"};
  if (!info.ended()) return Stray{offsetOf(info), "a member that ContentInfo does not have"};
  return std::nullopt;
}

// How far a header goes, be its length definite or not; 0 for none.
size_t HeaderSize(std::span<const BYTE> bytes) {
  if (bytes.size() < 2) return 0;
  return bytes[1] > 0x80 ? 2 + size_t{bytes[1] & 0x7Fu} : 2;
}

}  // namespace

bool LooksLikeMessage(std::span<const BYTE> bytes) {
  static constexpr BYTE kPkcs7[] = {kOidTag, 9, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07};
  if (bytes.empty() || bytes[0] != kSequenceTag) return false;
  const std::span<const BYTE> content = bytes.subspan(std::min(HeaderSize(bytes), bytes.size()));
  return content.size() > sizeof kPkcs7 && std::ranges::equal(content.first(sizeof kPkcs7), kPkcs7);
}

std::optional<size_t> MessageSize(std::span<const BYTE> bytes) {
  const BYTE* const behind = Behind(bytes.data(), bytes.data() + bytes.size());
  if (!behind) return std::nullopt;
  return static_cast<size_t>(behind - bytes.data());
}

void MessageFile::fail(const std::string& text) const { throw Failure(fmt::format("{}: {}", shown, text)); }

void MessageFile::refuse() const {
  const DWORD code = GetLastError();
  if (const auto refusal = FindRefusal(bytes)) fail(refusal->at(origin, 0));
  requireSigned();  // sound, and of a kind that the library does not take
  ThrowCode(shown, code);
}

void MessageFile::requireSigned() const {
  static constexpr BYTE kSignedData = 2;  // the last arc, which all types of messages differ in
  const std::optional<ElementHeader> type = Members(bytes).inside().next();
  if (!type || type->end == type->content || type->end[-1] != kSignedData)
    fail("a message, but not a signed one");
}

MessageFile ReadMessageFile(const std::string& path, const std::string& shown) {
  MessageFile file{shown, {}, {}};
  const auto fail = [&](const std::string& text) { file.fail(text); };
  const FileContent content = ReadInput(path);
  if (!content.error.empty()) fail(content.error);
  BlockReader reader{.onBlock =
                         [&](const Block& block) {
                           if (!LooksLikeMessage(block.bytes)) fail("not a message, at " + block.place(0));
                           if (!file.bytes.empty()) fail("another message, at " + block.place(0));
                           if (const std::optional<Stray> stray = FindStray(block.bytes))
                             fail(fmt::format("{}, at {}", stray->text, block.place(stray->offset)));
                           file.bytes.assign(block.bytes.begin(), block.bytes.end());
                           file.origin = {{}, block.fileOffset, block.form};
                         },
                     .onFault = fail,
                     .onNote = [](const std::string&) {},
                     .wanted = Wanted::ObjectsAndMessages};
  ReadBlocks(content.bytes, reader);
  if (file.bytes.empty()) fail("expected a message, found none");
  return file;
}

bool HasContent(std::span<const BYTE> message) {
  Members info = Members(message).inside();
  info.next();
  Members data = info.inside().inside();
  data.next();  // version
  data.next();  // digestAlgorithms
  Members content = data.inside();
  return content.next() && content.next();
}

std::optional<Refusal> FindRefusal(std::span<const BYTE> message, OpenValues values) {
  const Typed typed = ReadTyped(message, 0, TypeByName("ContentInfo"), values);
  if (!typed.fault) return std::nullopt;
  return Refusal{
      fmt::format("{}expected {}, found {}", typed.place.empty() ? "" : fmt::format("in {}: ", typed.place),
                  typed.fault->expected, typed.fault->found),
      typed.fault->offset};
}

}  // namespace certkern::cli
