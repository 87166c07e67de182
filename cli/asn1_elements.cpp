#include "asn1_elements.h"

#include "asn1rt/element_header.h"

#include <fmt/format.h>

#include <iterator>
#include <utility>

namespace certkern::cli {
namespace {

constexpr uint32_t kBitString = 3;
constexpr uint32_t kOctetString = 4;

enum class Form : uint8_t { None, Primitive, Constructed, Either };

struct UniversalRow {
  const char* name;
  Form form;  // None: nobody encodes such a thing today
};
// By tag number.
constexpr UniversalRow kUniversal[] = {
    {nullptr,             Form::None       },
    {"BOOLEAN",           Form::Primitive  },
    {"INTEGER",           Form::Primitive  },
    {"BIT STRING",        Form::Either     },
    {"OCTET STRING",      Form::Either     },
    {"NULL",              Form::Primitive  },
    {"OBJECT IDENTIFIER", Form::Primitive  },
    {"ObjectDescriptor",  Form::None       },
    {"EXTERNAL",          Form::None       },
    {"REAL",              Form::None       },
    {"ENUMERATED",        Form::Primitive  },
    {"EMBEDDED PDV",      Form::None       },
    {"UTF8String",        Form::Either     },
    {"RELATIVE-OID",      Form::None       },
    {nullptr,             Form::None       },
    {nullptr,             Form::None       },
    {"SEQUENCE",          Form::Constructed},
    {"SET",               Form::Constructed},
    {"NumericString",     Form::Either     },
    {"PrintableString",   Form::Either     },
    {"TeletexString",     Form::Either     },
    {"VideotexString",    Form::None       },
    {"IA5String",         Form::Either     },
    {"UTCTime",           Form::Either     },
    {"GeneralizedTime",   Form::Either     },
    {"GraphicString",     Form::None       },
    {"VisibleString",     Form::Either     },
    {"GeneralString",     Form::None       },
    {"UniversalString",   Form::Either     },
    {"CHARACTER STRING",  Form::None       },
    {"BMPString",         Form::Either     },
};

const UniversalRow* FindUniversal(Asn1Tag tag) {
  const bool known = ClassOf(tag) == TagClass::Universal && NumberOf(tag) < std::size(kUniversal);
  return known ? &kUniversal[NumberOf(tag)] : nullptr;
}

// Random octets are an element now and then; what can't be meant as its type betrays them.
bool IsPlausible(const ElementHeader& header, bool outermost) {
  if (ClassOf(header.tag) != TagClass::Universal) return !outermost;
  const UniversalRow* const row = FindUniversal(header.tag);
  if (!row || row->form == Form::None) return false;
  if (row->form != Form::Either && header.constructed != (row->form == Form::Constructed)) return false;
  if (header.constructed) return true;
  const auto length = header.end - header.content;
  switch (NumberOf(header.tag)) {
    case 1:  // BOOLEAN
      return length == 1;
    case 5:  // NULL
      return length == 0;
    case 6:  // OBJECT IDENTIFIER
      return length > 0 && header.end[-1] < 0x80;
    case 2:   // INTEGER
    case 10:  // ENUMERATED
    case kBitString:
      return length > 0;
    default:
      return true;
  }
}

class Reader {
 public:
  Reader(std::span<const BYTE> block, ElementBudget& budget, const KnownContent& known, Elements& out)
      : begin_(block.data()), budget_(budget), known_(known), out_(out) {}

  // The element at the place, and behind it.
  bool element(const BYTE*& at, const BYTE* end, unsigned depth);
  Fault& fault() { return fault_; }

 private:
  bool fail(const BYTE* at, std::string expected, std::string found) {
    fault_ = {static_cast<size_t>(at - begin_), std::move(expected), std::move(found)};
    return false;
  }
  bool failHeader(int status, const BYTE* at, const BYTE* end);
  bool spend(const BYTE* at, unsigned depth);
  bool content(const ElementHeader& header, const BYTE*& at, unsigned depth);
  bool string(const ElementHeader& header, unsigned depth);
  uint32_t offsetOf(const BYTE* at) const { return static_cast<uint32_t>(at - begin_); }

  const BYTE* begin_;
  ElementBudget& budget_;
  const KnownContent& known_;
  Elements& out_;
  Fault fault_{};
  // Within a string whose content is not known to be an element: what is inside must be plausible, too.
  bool onTrial_ = false;
  bool spent_ = false;
};

bool Reader::failHeader(int status, const BYTE* at, const BYTE* end) {
  if (status == ASN1_E_END_OF_INPUT) {
    return fail(at, fmt::format("an element within the {} bytes that are left", end - at),
                "one that runs past their end");
  }
  if (status == ASN1_E_BAD_LENGTH) {
    return fail(at, "a length", "octets that are none, or the indefinite form of a primitive element");
  }
  if (*at == 0) return fail(at, "an identifier", "byte 0x00");
  return fail(at, "an identifier", "one that is malformed or has more than 30 bits");
}

bool Reader::spend(const BYTE* at, unsigned depth) {
  if (depth > kMaxAsn1Depth)
    return fail(at, fmt::format("no more than {} levels of elements", kMaxAsn1Depth), "another");
  if (budget_.shown == 0 || budget_.levels < depth || budget_.tried == 0) {
    spent_ = true;
    return fail(at, fmt::format("no more than {} elements, or less at this depth", kMaxAsn1ShownElements),
                "another");
  }
  --budget_.shown;
  --budget_.tried;
  budget_.levels -= depth;
  return true;
}

bool Reader::element(const BYTE*& at, const BYTE* end, unsigned depth) {
  ElementHeader header;
  if (const int status = ReadElementHeader(at, end, header); status < 0) return failHeader(status, at, end);
  if (onTrial_ && !IsPlausible(header, false)) return fail(at, "a plausible element", "another");
  if (!spend(at, depth)) return false;
  const size_t index = out_.size();
  out_.push_back({offsetOf(header.start), offsetOf(header.content), 0, 0, header.tag,
                  static_cast<uint16_t>(depth), header.constructed, header.indefinite});
  const BYTE* contentEnd = header.content;
  const bool sound = content(header, contentEnd, depth);
  if (!header.indefinite) contentEnd = header.end;
  out_[index].contentLength = static_cast<uint32_t>(contentEnd - header.content);
  out_[index].behind = static_cast<uint32_t>(out_.size());
  // an element with a fault is as long as it says, or as far as it could be read, and so are those around it
  at = sound && header.indefinite ? contentEnd + 2 : contentEnd;
  return sound;
}

// Moves at to the end of the content, or to where it can't be read.
bool Reader::content(const ElementHeader& header, const BYTE*& at, unsigned depth) {
  if (!header.constructed) {
    at = header.end;
    return string(header, depth);
  }
  while (header.indefinite ? !IsEndOfContents(at, header.end) : at != header.end) {
    if (header.indefinite && at == header.end)
      return fail(at, "end-of-contents octets", "the end of the data");
    if (!element(at, header.end, depth + 1)) return false;
  }
  return true;
}

// False only when everything has to end: what can't be read inside of a string is its business.
bool Reader::string(const ElementHeader& header, unsigned depth) {
  const bool bits = header.tag == kBitString;
  const BYTE* at = header.content;
  if (bits && at != header.end && *at == 0) ++at;
  const bool isKnown = known_ && known_(offsetOf(at));
  if (!isKnown && header.tag != kOctetString && !(bits && at != header.content)) return true;
  ElementHeader inner;
  if (ReadElementHeader(at, header.end, inner) < 0) return true;
  if (!inner.indefinite && inner.end != header.end) return true;
  if (!isKnown && !IsPlausible(inner, true)) return true;

  const ElementBudget before = budget_;
  const size_t count = out_.size();
  const Fault fault = fault_;
  const bool onTrial = std::exchange(onTrial_, !isKnown);
  const bool sound = element(at, header.end, depth + 1) && at == header.end;
  onTrial_ = onTrial;
  if (sound) return true;
  if (spent_) return false;
  out_.resize(count);
  fault_ = fault;
  budget_.shown = before.shown;
  budget_.levels = before.levels;
  return true;
}

}  // namespace

ElementsRead ReadElements(std::span<const BYTE> block, size_t offset, ElementBudget& budget,
                          const KnownContent& known) {
  ElementsRead result;
  Reader reader(block, budget, known, result.elements);
  const BYTE* at = block.data() + offset;
  if (reader.element(at, block.data() + block.size(), 0)) {
    result.size = static_cast<size_t>(at - block.data()) - offset;
  } else {
    result.fault = reader.fault();
  }
  return result;
}

const char* UniversalName(Asn1Tag tag) {
  const UniversalRow* const row = FindUniversal(tag);
  return row ? row->name : nullptr;
}

std::string TagText(Asn1Tag tag) {
  if (const char* const name = UniversalName(tag)) return name;
  static constexpr const char* kClasses[] = {"UNIVERSAL ", "APPLICATION ", "", "PRIVATE "};
  return fmt::format("[{}{}]", kClasses[static_cast<uint32_t>(ClassOf(tag))], NumberOf(tag));
}

std::string FoundAt(std::span<const BYTE> block, size_t offset) {
  if (offset >= block.size()) return "the end of the data";
  ElementHeader header;
  const BYTE* const at = block.data() + offset;
  if (IsEndOfContents(at, block.data() + block.size())) return "end-of-contents octets";
  if (ReadElementHeader(at, block.data() + block.size(), header) < 0)
    return fmt::format("byte 0x{:02x}", *at);
  return TagText(header.tag);
}

}  // namespace certkern::cli
