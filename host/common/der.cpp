#include "common/der.h"

#include "ber/oid_text.h"

#include <algorithm>
#include <array>

namespace certkern::der {

bool Reader::header(size_t& headerSize, size_t& contentSize) const {
  if (rest_.size() < 2) return false;
  headerSize = 2;
  contentSize = rest_[1];
  if (contentSize >= 0x80) {
    const size_t octets = contentSize & 0x7F;
    if (octets == 0 || octets > 4 || octets > rest_.size() - 2) return false;
    contentSize = 0;
    for (size_t i = 0; i < octets; ++i) contentSize = contentSize << 8 | rest_[2 + i];
    headerSize += octets;
  }
  return contentSize <= rest_.size() - headerSize;
}

bool Reader::take(BYTE tag, std::span<const BYTE>& content) {
  size_t headerSize;
  size_t contentSize;
  if (nextTag() != tag || !header(headerSize, contentSize)) return false;
  content = rest_.subspan(headerSize, contentSize);
  rest_ = rest_.subspan(headerSize + contentSize);
  return true;
}

bool Reader::take(BYTE tag, Reader& content) {
  std::span<const BYTE> bytes;
  if (!take(tag, bytes)) return false;
  content = Reader(bytes);
  return true;
}

bool Reader::takeWhole(std::span<const BYTE>& element) {
  size_t headerSize;
  size_t contentSize;
  if (!header(headerSize, contentSize)) return false;
  element = rest_.first(headerSize + contentSize);
  rest_ = rest_.subspan(element.size());
  return true;
}

bool Reader::takeOid(std::string& dotted) {
  Reader next = *this;
  std::span<const BYTE> content;
  if (!next.take(kOid, content)) return false;
  size_t size = 0;
  if (!BerDecodeOid(content, nullptr, size)) return false;
  std::string text(size, '\0');
  if (!BerDecodeOid(content, text.data(), size)) return false;
  text.resize(text.find('\0'));
  dotted = std::move(text);
  *this = next;
  return true;
}

bool Reader::takeBits(std::span<const BYTE>& octets) {
  Reader next = *this;
  std::span<const BYTE> content;
  if (!next.take(kBitString, content) || content.empty() || content[0] != 0) return false;
  octets = content.subspan(1);
  *this = next;
  return true;
}

bool Reader::takeUnsigned(std::span<const BYTE>& magnitude) {
  Reader next = *this;
  std::span<const BYTE> content;
  if (!next.take(kInteger, content) || content.empty() || content[0] & 0x80) return false;
  while (!content.empty() && content[0] == 0) content = content.subspan(1);
  magnitude = content;
  *this = next;
  return true;
}

bool Reader::takeSmall(uint32_t& number) {
  Reader next = *this;
  std::span<const BYTE> magnitude;
  if (!next.takeUnsigned(magnitude) || magnitude.size() > sizeof(number)) return false;
  number = 0;
  for (const BYTE octet : magnitude) number = number << 8 | octet;
  *this = next;
  return true;
}

bool TakeAlgorithm(Reader& in, Algorithm& algorithm) {
  Reader next = in;
  Reader body;
  Algorithm found;
  if (!next.take(kSequence, body) || !body.takeOid(found.oid)) return false;
  if (!body.empty() && !body.takeWhole(found.parameters)) return false;
  if (!body.empty()) return false;
  algorithm = std::move(found);
  in = next;
  return true;
}

SecretBytes Element(BYTE tag, std::initializer_list<std::span<const BYTE>> parts) {
  size_t size = 0;
  for (const std::span<const BYTE> part : parts) size += part.size();
  SecretBytes out;
  out.reserve(size + 6);
  out.push_back(tag);
  if (size < 0x80) {
    out.push_back(static_cast<BYTE>(size));
  } else {
    int octets = 1;
    while (octets < 4 && size >> (8 * octets)) ++octets;
    out.push_back(static_cast<BYTE>(0x80 | octets));
    while (octets-- > 0) out.push_back(static_cast<BYTE>(size >> (8 * octets)));
  }
  for (const std::span<const BYTE> part : parts) Append(out, part);
  return out;
}

SecretBytes BitString(std::span<const BYTE> octets) {
  constexpr BYTE kNoUnusedBits[] = {0};
  return Element(kBitString, {kNoUnusedBits, octets});
}

SecretBytes Unsigned(std::span<const BYTE> magnitude) {
  constexpr BYTE kZero[] = {0};
  while (!magnitude.empty() && magnitude[0] == 0) magnitude = magnitude.subspan(1);
  if (magnitude.empty() || magnitude[0] & 0x80) return Element(kInteger, {kZero, magnitude});
  return Element(kInteger, {magnitude});
}

SecretBytes Small(uint32_t number) {
  const std::array<BYTE, 4> octets = {static_cast<BYTE>(number >> 24), static_cast<BYTE>(number >> 16),
                                      static_cast<BYTE>(number >> 8), static_cast<BYTE>(number)};
  return Unsigned(octets);
}

SecretBytes Oid(std::string_view dotted) {
  const std::string text(dotted);
  size_t size = 0;
  if (text.empty() || !BerEncodeOid(text.c_str(), nullptr, size)) return {};
  SecretBytes content(size);
  if (!BerEncodeOid(text.c_str(), content.data(), size)) return {};
  return Element(kOid, {content});
}

SecretBytes AlgorithmIdentifier(std::string_view oid, std::span<const BYTE> parameters) {
  return Sequence({Oid(oid), parameters});
}

}  // namespace certkern::der
