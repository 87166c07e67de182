#include "names/name_parser.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <string>
#include <utility>

#include "ber/oid_text.h"
#include "ber/struct_types.h"
#include "ber/write_cursor.h"
#include "names/attribute_key.h"
#include "names/value_parser.h"
#include "platform/sizes.h"

namespace certkern {
namespace {

// Puts a header before what stands behind start.
void Wrap(BYTE tag, size_t start, std::vector<BYTE>& bytes) {
  const size_t size = bytes.size() - start;
  std::array<BYTE, 2 + sizeof(size_t)> header = {tag, static_cast<BYTE>(size)};
  size_t count = 2;
  if (size >= 0x80) {
    size_t octets = 1;
    while (octets < sizeof(size) && size >> (8 * octets)) ++octets;
    header[1] = static_cast<BYTE>(0x80 | octets);
    while (octets-- > 0) header[count++] = static_cast<BYTE>(size >> (8 * octets));
  }
  bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(start), header.begin(),
               header.begin() + static_cast<std::ptrdiff_t>(count));
}

constexpr BYTE kTagIa5String = 22;
constexpr size_t kShortOid = 32;
constexpr size_t kShortAttribute =
    127 - 4;  // identifier and text: with their headers the length is one octet

// In UTF-8, if all characters take one or two octets; else there is ASCII only.
bool MeasureShort(std::wstring_view text, DWORD valueType, size_t& size) {
  const uint32_t bound = valueType == CERT_RDN_UTF8_STRING ? 0x800 : 0x80;
  size = text.size();
  for (const wchar_t character : text) {
    const auto code = std::bit_cast<uint32_t>(character);
    if (code >= bound) return false;
    size += code >= 0x80;
  }
  return true;
}

class NameParser {
 public:
  NameParser(std::wstring_view text, DWORD stringType, size_t& position)
      : text_(text), separators_(NameSeparators(stringType)), position_(position) {
    body_.reserve(text.size() + text.size() / 2);  // what most names come to
  }

  bool run();
  std::vector<BYTE> takeEncoded(bool reversed);

 private:
  // What stands behind a value.
  enum class Next { Attribute, RelativeName, End };

  std::wstring_view rest() const { return text_.substr(position_); }
  void skipWhiteSpace() { position_ = text_.size() - SkipWhiteSpace(rest()).size(); }
  bool readAttribute();
  bool readKey();
  bool readValue();
  bool makeRecord(std::wstring_view raw, CERT_RDN_ATTR& record);
  bool appendShort(const CERT_RDN_ATTR& record);
  bool append(const CERT_RDN_ATTR& record);
  Next passSeparator();

  const std::wstring_view text_;
  const Separators separators_;
  size_t& position_;
  std::vector<BYTE> body_;      // the finished relative names, and the attributes of the one under way
  std::vector<size_t> starts_;  // of the finished ones
  AttributeKey key_;
  std::wstring value_;
  std::vector<BYTE> octets_;
};

bool NameParser::run() {
  Next next;
  do {
    const size_t start = body_.size();
    do {
      if (!readAttribute()) return false;
      next = passSeparator();
    } while (next == Next::Attribute);
    Wrap(kTagSet, start, body_);
    starts_.push_back(start);
  } while (next == Next::RelativeName);
  return true;
}

bool NameParser::readAttribute() {
  skipWhiteSpace();
  return readKey() && readValue();
}

bool NameParser::readKey() {
  const size_t equals = rest().find(L'=');
  if (equals == 0 || equals == std::wstring_view::npos) return Fault(CRYPT_E_INVALID_X500_STRING);
  if (!ResolveKey(TrimWhiteSpaceBehind(rest().substr(0, equals)), key_))
    return Fault(CRYPT_E_INVALID_X500_STRING);
  position_ += equals + 1;
  skipWhiteSpace();
  return true;
}

// The position stays at the value until it is known to be good.
bool NameParser::readValue() {
  const size_t length = ValueLength(rest(), separators_);
  if (length == std::wstring_view::npos) return Fault(CRYPT_E_INVALID_X500_STRING);
  CERT_RDN_ATTR record{};
  if (!makeRecord(TrimWhiteSpaceBehind(rest().substr(0, length)), record)) return false;
  if (!appendShort(record) && !append(record)) return false;
  position_ += length;
  return true;
}

bool NameParser::makeRecord(std::wstring_view raw, CERT_RDN_ATTR& record) {
  if (raw.empty()) return Fault(CRYPT_E_INVALID_X500_STRING);
  record.pszObjId = key_.oid.data();
  if (raw.front() == L'#') {
    if (!ReadHexadecimal(raw.substr(1), octets_)) return Fault(CRYPT_E_INVALID_X500_STRING);
    record.dwValueType = CERT_RDN_OCTET_STRING;
    record.Value = {CheckedDword(octets_.size()), octets_.data()};
    return true;
  }
  UnquoteValue(raw, value_);
  record.dwValueType = key_.valueType;
  record.Value = {CheckedDword(value_.size() * sizeof(wchar_t)), reinterpret_cast<BYTE*>(value_.data())};
  return true;
}

// Most attributes are short texts, and in UTF-8 of one or two octets a character: their lengths are known before they
// are written. False without a code for all others.
bool NameParser::appendShort(const CERT_RDN_ATTR& record) {
  if (record.dwValueType != CERT_RDN_UTF8_STRING && record.dwValueType != CERT_RDN_IA5_STRING) return false;
  std::array<BYTE, kShortOid> oid;
  size_t oidSize = oid.size(), textSize;
  if (!BerEncodeOid(key_.oid.c_str(), oid.data(), oidSize)) return false;
  if (!MeasureShort(value_, record.dwValueType, textSize) || oidSize + textSize > kShortAttribute)
    return false;
  const size_t start = body_.size();
  body_.resize(start + 6 + oidSize + textSize);
  BYTE* place = body_.data() + start;
  *place++ = kTagSequence;
  *place++ = static_cast<BYTE>(4 + oidSize + textSize);
  *place++ = kTagOid;
  *place++ = static_cast<BYTE>(oidSize);
  place = std::copy_n(oid.data(), oidSize, place);
  *place++ = record.dwValueType == CERT_RDN_IA5_STRING ? kTagIa5String : kTagUtf8String;
  *place++ = static_cast<BYTE>(textSize);
  for (const wchar_t character : value_) {
    if (character >= 0x80) *place++ = static_cast<BYTE>(0xC0 | character >> 6);
    *place++ = static_cast<BYTE>(character < 0x80 ? character : 0x80 | (character & 0x3F));
  }
  return true;
}

// Written at once where it stands: the room is more than any attribute takes, and what is left of it goes.
bool NameParser::append(const CERT_RDN_ATTR& record) {
  constexpr size_t kHeaders = 3 * (2 + sizeof(DWORD));
  const size_t start = body_.size();
  const size_t room = kHeaders + key_.oid.size() + record.Value.cbData;
  DWORD size = CheckedDword(room);
  body_.resize(start + room);
  SetLastError(ERROR_SUCCESS);
  // an identifier that is none has no code of its own
  if (!BerEncodeByType(kTypeWideAttribute, &record, body_.data() + start, &size))
    return GetLastError() ? false : Fault(CRYPT_E_INVALID_X500_STRING);
  body_.resize(start + size);
  return true;
}

NameParser::Next NameParser::passSeparator() {
  if (position_ == text_.size()) return Next::End;
  const bool plus = text_[position_] == L'+';
  ++position_;
  return plus ? Next::Attribute : Next::RelativeName;
}

std::vector<BYTE> NameParser::takeEncoded(bool reversed) {
  if (reversed) {
    std::vector<BYTE> turned;
    turned.reserve(body_.size());
    auto end = body_.end();
    for (size_t i = starts_.size(); i-- > 0;) {
      const auto start = body_.begin() + static_cast<std::ptrdiff_t>(starts_[i]);
      turned.insert(turned.end(), start, end);
      end = start;
    }
    body_ = std::move(turned);
  }
  Wrap(kTagSequence, 0, body_);
  return std::move(body_);
}

}  // namespace

bool ParseName(std::wstring_view text, DWORD stringType, ParsedName& name) {
  NameParser parser(text, stringType, name.position);
  if (!parser.run()) return false;
  name.encoded = parser.takeEncoded(stringType & CERT_NAME_STR_REVERSE_FLAG);
  return true;
}

bool IsTextFault(DWORD code) {
  return code == CRYPT_E_INVALID_NUMERIC_STRING || code == CRYPT_E_INVALID_PRINTABLE_STRING
      || code == CRYPT_E_INVALID_IA5_STRING || code == CRYPT_E_INVALID_X500_STRING;
}

}  // namespace certkern
