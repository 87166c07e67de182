#include "shape.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace certkern::cli {
namespace {

using enum Content;

// Identifier octets.
constexpr BYTE kBooleanTag = 0x01;
constexpr BYTE kIntegerTag = 0x02;
constexpr BYTE kBitStringTag = 0x03;
constexpr BYTE kOctetStringTag = 0x04;
constexpr BYTE kNullTag = 0x05;
constexpr BYTE kOidTag = 0x06;
constexpr BYTE kUtf8StringTag = 0x0C;
constexpr BYTE kPrintableStringTag = 0x13;
constexpr BYTE kUtcTimeTag = 0x17;
constexpr BYTE kGeneralizedTimeTag = 0x18;
constexpr BYTE kSequenceTag = 0x30;
constexpr BYTE kSetTag = 0x31;
constexpr BYTE ContextTag(int number) { return static_cast<BYTE>(0xA0 | number); }

// --- grammars: RFC 5280, 4.1 and 5.1; RFC 2986, 4 ---

constexpr Shape Item(const char* name, BYTE tag, Content content, std::span<const Shape> inner = {}) {
  return {name, tag, content, inner, Presence::Required};
}
constexpr Shape Maybe(const char* name, BYTE tag, Content content, std::span<const Shape> inner = {}) {
  return {name, tag, content, inner, Presence::Optional};
}

constexpr Shape kAlgorithm[] = {
    Item("algorithm identifier", kOidTag, Content::Oid),
    Maybe("algorithm parameters", kAnyTag, Any),
};
constexpr Shape kAttributeTypeAndValue[] = {
    Item("attribute type", kOidTag, Content::Oid),
    Item("attribute value", kAnyTag, Any),
};
constexpr Shape kNameAttribute[] = {
    Item("AttributeTypeAndValue", kSequenceTag, Fields, kAttributeTypeAndValue),
};
constexpr Shape kRelativeName[] = {
    Item("RelativeDistinguishedName", kSetTag, ListOf, kNameAttribute),
};
constexpr Shape kPublicKeyInfo[] = {
    Item("algorithm", kSequenceTag, Fields, kAlgorithm),
    Item("subjectPublicKey", kBitStringTag, Bits),
};
constexpr Shape kValidity[] = {
    Item("notBefore", kTimeTag, Time),
    Item("notAfter", kTimeTag, Time),
};
constexpr Shape kExtensionFields[] = {
    Item("extnID", kOidTag, Content::Oid),
    Maybe("critical", kBooleanTag, Boolean),
    Item("extnValue", kOctetStringTag, Octets),
};
constexpr Shape kExtension[] = {
    Item("Extension", kSequenceTag, Fields, kExtensionFields),
};
constexpr Shape kExtensions[] = {
    Item("Extensions", kSequenceTag, ListOf, kExtension),
};
constexpr Shape kVersion[] = {
    Item("version", kIntegerTag, Integer),
};
constexpr Shape kTbsCertificate[] = {
    Maybe("version", ContextTag(0), Fields, kVersion),
    Item("serialNumber", kIntegerTag, Integer),
    Item("signature", kSequenceTag, Fields, kAlgorithm),
    Item("issuer", kSequenceTag, ListOf, kRelativeName),
    Item("validity", kSequenceTag, Fields, kValidity),
    Item("subject", kSequenceTag, ListOf, kRelativeName),
    Item("subjectPublicKeyInfo", kSequenceTag, Fields, kPublicKeyInfo),
    Maybe("issuerUniqueID", 0x81, Bits),
    Maybe("subjectUniqueID", 0x82, Bits),
    Maybe("extensions", ContextTag(3), Fields, kExtensions),
};
constexpr Shape kRevokedFields[] = {
    Item("userCertificate", kIntegerTag, Integer),
    Item("revocationDate", kTimeTag, Time),
    Maybe("crlEntryExtensions", kSequenceTag, ListOf, kExtension),
};
constexpr Shape kRevoked[] = {
    Item("entry", kSequenceTag, Fields, kRevokedFields),
};
constexpr Shape kTbsCertList[] = {
    Maybe("version", kIntegerTag, Integer),
    Item("signature", kSequenceTag, Fields, kAlgorithm),
    Item("issuer", kSequenceTag, ListOf, kRelativeName),
    Item("thisUpdate", kTimeTag, Time),
    Maybe("nextUpdate", kTimeTag, Time),
    Maybe("revokedCertificates", kSequenceTag, ListOf, kRevoked),
    Maybe("crlExtensions", ContextTag(0), Fields, kExtensions),
};
constexpr Shape kAttributeValue[] = {
    Item("attribute value", kAnyTag, Any),
};
constexpr Shape kAttributeFields[] = {
    Item("attribute type", kOidTag, Content::Oid),
    Item("values", kSetTag, ListOf, kAttributeValue),
};
constexpr Shape kAttribute[] = {
    Item("Attribute", kSequenceTag, Fields, kAttributeFields),
};
constexpr Shape kRequestInfo[] = {
    Item("version", kIntegerTag, Integer),
    Item("subject", kSequenceTag, ListOf, kRelativeName),
    Item("subjectPKInfo", kSequenceTag, Fields, kPublicKeyInfo),
    Maybe("attributes", ContextTag(0), ListOf, kAttribute),
};

// What all signed objects have in common.
constexpr std::array<Shape, 3> Signed(const char* name, std::span<const Shape> fields) {
  return {
      Item(name, kSequenceTag, Fields, fields),
      Item("signatureAlgorithm", kSequenceTag, Fields, kAlgorithm),
      Item("signature", kBitStringTag, Bits),
  };
}
constexpr auto kCertificate = Signed("tbsCertificate", kTbsCertificate);
constexpr auto kCrl = Signed("tbsCertList", kTbsCertList);
constexpr auto kRequest = Signed("certificationRequestInfo", kRequestInfo);

constexpr Shape kObjects[] = {
    Item("certificate", kSequenceTag, Fields, kCertificate),
    Item("CRL", kSequenceTag, Fields, kCrl),
    Item("certificate request", kSequenceTag, Fields, kRequest),
};
const Shape& ShapeOf(ObjectKind kind) { return kObjects[static_cast<size_t>(kind)]; }

// --- texts ---

std::string TagName(BYTE tag) {
  switch (tag) {
    case kBooleanTag:
      return "BOOLEAN";
    case kIntegerTag:
      return "INTEGER";
    case kBitStringTag:
      return "BIT STRING";
    case kOctetStringTag:
      return "OCTET STRING";
    case kNullTag:
      return "NULL";
    case kOidTag:
      return "OBJECT IDENTIFIER";
    case kUtf8StringTag:
      return "UTF8String";
    case kPrintableStringTag:
      return "PrintableString";
    case kUtcTimeTag:
      return "UTCTime";
    case kGeneralizedTimeTag:
      return "GeneralizedTime";
    case kSequenceTag:
      return "SEQUENCE";
    case kSetTag:
      return "SET";
    default:
      return (tag & 0xC0) == 0x80 ? fmt::format("[{}]", tag & 31) : fmt::format("identifier 0x{:02x}", tag);
  }
}

std::string Describe(const Shape& shape) {
  if (shape.tag == kAnyTag) return shape.name;
  const std::string tag = shape.content == Time ? "UTCTime or GeneralizedTime" : TagName(shape.tag);
  return fmt::format("{} ({})", shape.name, tag);
}

// --- headers ---

struct Header {
  BYTE tag;
  size_t size;
  size_t length;
};

enum class HeaderFault { None, End, LongIdentifier, Indefinite, LongLength };

HeaderFault ParseHeader(std::span<const BYTE> bytes, Header& header) {
  if (bytes.empty()) return HeaderFault::End;
  if ((bytes[0] & 31) == 31) return HeaderFault::LongIdentifier;
  if (bytes.size() < 2) return HeaderFault::End;
  header = {bytes[0], 2, bytes[1]};
  if (header.length < 0x80) return HeaderFault::None;
  if (header.length == 0x80) return HeaderFault::Indefinite;
  const size_t octets = header.length & 0x7F;
  if (octets > 4) return HeaderFault::LongLength;
  if (octets > bytes.size() - 2) return HeaderFault::End;
  header.length = 0;
  for (const BYTE octet : bytes.subspan(2, octets)) header.length = header.length << 8 | octet;
  header.size += octets;
  return HeaderFault::None;
}

// --- the walk ---

// The elements from position up to end. When cut, it is the data that ends there, and not what encloses the
// elements.
struct Window {
  size_t position;
  size_t end;
  bool cut;

  bool empty() const { return position == end; }
};

// Contents of primitive elements that no decoder could read.

bool IsTime(std::string_view text, BYTE tag) {
  const size_t toMinute = tag == kUtcTimeTag ? 10 : 12;
  const auto isDigit = [](unsigned char c) { return std::isdigit(c) != 0; };
  if (text.empty() || text.back() != 'Z') return false;
  text.remove_suffix(1);
  const std::string_view date = text.substr(0, text.find('.'));
  if (date.size() != toMinute && date.size() != toMinute + 2) return false;
  if (!std::all_of(date.begin(), date.end(), isDigit)) return false;
  const std::string_view fraction = text.substr(date.size());
  if (fraction.empty()) return true;
  return tag == kGeneralizedTimeTag && fraction.size() >= 2 && fraction.size() <= 4
      && std::all_of(fraction.begin() + 1, fraction.end(), isDigit);
}

bool IsSound(Content content, BYTE tag, std::span<const BYTE> octets) {
  switch (content) {
    case Integer:
      return !octets.empty();
    case Boolean:
      return octets.size() == 1;
    case Bits:
      return !octets.empty() && octets[0] <= 7;
    case Content::Oid:
      return !octets.empty() && !(octets.back() & 0x80);
    case Time:
      return IsTime({reinterpret_cast<const char*>(octets.data()), octets.size()}, tag);
    default:
      return true;
  }
}

class Walk {
 public:
  explicit Walk(std::span<const BYTE> bytes) : bytes_(bytes) {}

  // One element of a shape, which must be there. False once a fault is known.
  bool element(Window& window, const Shape& shape);
  bool nothingMore(const Window& window) {
    return window.empty() || fail(window.position, "nothing more", TagName(bytes_[window.position]));
  }

  std::optional<Fault> fault;

 private:
  bool fail(size_t offset, std::string expected, std::string found) {
    fault = Fault{offset, std::move(expected), std::move(found)};
    return false;
  }
  bool nextFits(const Window& window, const Shape& shape) const {
    if (window.empty()) return false;
    const BYTE tag = bytes_[window.position];
    return shape.tag == kAnyTag || tag == shape.tag || (shape.content == Time && tag == kGeneralizedTimeTag);
  }
  std::span<const BYTE> octetsOf(const Window& window) const {
    return bytes_.subspan(window.position, window.end - window.position);
  }
  bool header(const Window& window, const Shape& shape, Header& header);
  bool inside(Window& content, const Shape& shape, BYTE tag);
  bool fields(Window& window, std::span<const Shape> shapes);
  bool listOf(Window& window, const Shape& shape);
  bool anything(Window& window);

  std::span<const BYTE> bytes_;
  int depth_ = 0;  // of elements that the grammar does not name
};

bool Walk::header(const Window& window, const Shape& shape, Header& header) {
  if (!window.empty() && !nextFits(window, shape)) {
    return fail(window.position, Describe(shape), TagName(bytes_[window.position]));
  }
  switch (ParseHeader(octetsOf(window), header)) {
    case HeaderFault::None:
      return true;
    case HeaderFault::End:
      return fail(window.end, Describe(shape),
                  window.cut ? "the end of the data" : "the end of what encloses it");
    case HeaderFault::LongIdentifier:
      return fail(window.position, Describe(shape), "an identifier of more than one octet");
    case HeaderFault::Indefinite:
      return fail(window.position + 1, Describe(shape) + " of definite length", "indefinite length");
    case HeaderFault::LongLength:
      return fail(window.position + 1, Describe(shape), "a length in more than four octets");
  }
  return false;
}

bool Walk::element(Window& window, const Shape& shape) {
  Header head;
  if (!header(window, shape, head)) return false;
  const size_t start = window.position + head.size;
  const size_t left = window.end - start;
  Window content{start, start + std::min(head.length, left), false};
  if (head.length <= left) {
    window.position = content.end;
    return inside(content, shape, head.tag);
  }
  if (!window.cut) {
    return fail(window.position, fmt::format("{} within the {} bytes that are left", Describe(shape), left),
                fmt::format("a length of {}", head.length));
  }
  // of all elements that reach over the cut, the innermost one tells most
  content.cut = true;
  return inside(content, shape, head.tag)
      && fail(window.end, fmt::format("{} bytes of {}", head.length, Describe(shape)),
              fmt::format("the end of the data after {}", left));
}

bool Walk::inside(Window& content, const Shape& shape, BYTE tag) {
  constexpr BYTE kConstructed = 0x20;
  switch (shape.content) {
    case Any:
      return !(tag & kConstructed) || anything(content);
    case Fields:
      return fields(content, shape.inner) && (content.cut || nothingMore(content));
    case ListOf:
      return listOf(content, shape.inner[0]);
    default:
      return content.cut || IsSound(shape.content, tag, octetsOf(content))
          || fail(content.position, Describe(shape), "content that is none");
  }
}

bool Walk::fields(Window& window, std::span<const Shape> shapes) {
  for (const Shape& shape : shapes) {
    if (shape.presence == Presence::Optional && !nextFits(window, shape)) continue;
    if (!element(window, shape)) return false;
  }
  return true;
}

bool Walk::listOf(Window& window, const Shape& shape) {
  while (!window.empty()) {
    if (!element(window, shape)) return false;
  }
  return true;
}

bool Walk::anything(Window& window) {
  static constexpr Shape kElement = Item("an element", kAnyTag, Any);
  constexpr int kDeepest = 64;
  if (depth_ == kDeepest) {
    return fail(window.position, fmt::format("no more than {} levels of nesting", kDeepest), "a further one");
  }
  ++depth_;
  const bool sound = listOf(window, kElement);
  --depth_;
  return sound;
}

std::optional<Fault> WalkObject(const Shape& shape, std::span<const BYTE> bytes) {
  Walk walk(bytes);
  Window window{0, bytes.size(), true};
  if (walk.element(window, shape)) static_cast<void>(walk.nothingMore(window));
  return walk.fault;
}

constexpr char kEnd = '\0';

// Identifiers of the first fields of the signed part, as far as the bytes have them; kEnd where the part
// itself ends.
std::string FirstTags(std::span<const BYTE> bytes) {
  constexpr size_t kEnough = 4;
  Header header;
  for (int level = 0; level < 2; ++level) {  // the object, then its signed part
    if (ParseHeader(bytes, header) != HeaderFault::None || header.tag != kSequenceTag) return {};
    bytes = bytes.subspan(header.size);
  }
  const bool whole = header.length <= bytes.size();
  if (whole) bytes = bytes.first(header.length);
  std::string tags;
  while (!bytes.empty() && tags.size() < kEnough) {
    tags += static_cast<char>(bytes[0]);
    const std::optional<size_t> size = ElementSize(bytes);
    if (!size) return tags;
    bytes = bytes.subspan(*size);
  }
  if (whole && bytes.empty()) tags += kEnd;
  return tags;
}

}  // namespace

const char* KindName(ObjectKind kind) { return ShapeOf(kind).name; }

std::optional<size_t> ElementSize(std::span<const BYTE> bytes) {
  Header header;
  if (ParseHeader(bytes, header) != HeaderFault::None || header.length > bytes.size() - header.size) {
    return std::nullopt;
  }
  return header.size + header.length;
}

std::optional<ObjectKind> RecognizeObject(std::span<const BYTE> bytes) {
  using namespace std::string_view_literals;
  static constexpr struct {
    std::string_view tags;
    ObjectKind kind;
  } kOpenings[] = {
      {"\xA0"sv,             ObjectKind::Certificate}, // a version in a wrapper
      {"\x02\x30\x30\x30"sv,
       ObjectKind::Certificate                      }, // version 1: serialNumber, signature, issuer, validity
      {"\x02\x30\x30\x17"sv, ObjectKind::Crl        }, // version, signature, issuer, thisUpdate
      {"\x02\x30\x30\x18"sv, ObjectKind::Crl        },
      {"\x30\x30\x17"sv,     ObjectKind::Crl        }, // version 1
      {"\x30\x30\x18"sv,     ObjectKind::Crl        },
      {"\x02\x30\x30\xA0"sv, ObjectKind::Request    }, // version, subject, subjectPKInfo, attributes
      {"\x02\x30\x30\x00"sv, ObjectKind::Request    }, // the same without attributes
  };
  const std::string tags = FirstTags(bytes);
  for (const auto& [opening, kind] : kOpenings) {
    if (tags.starts_with(opening)) return kind;
  }
  return std::nullopt;
}

std::optional<Fault> FindFault(ObjectKind kind, std::span<const BYTE> bytes) {
  return WalkObject(ShapeOf(kind), bytes);
}

Fault FindFaultOfUnknown(std::span<const BYTE> bytes) {
  static constexpr Shape kSigned[] = {
      Item("signed part", kSequenceTag, Any),
      Item("signatureAlgorithm", kSequenceTag, Fields, kAlgorithm),
      Item("signature", kBitStringTag, Bits),
  };
  static constexpr Shape kObject = Item("certificate, CRL or certificate request", 0x30, Fields, kSigned);
  if (std::optional<Fault> fault = WalkObject(kObject, bytes)) return *fault;
  Header header{};
  static_cast<void>(ParseHeader(bytes, header));  // sound, as has just been seen
  return {header.size, "the fields of one of these", "others"};
}

}  // namespace certkern::cli
