// DER for the platform libraries: small structures around keys, read with every length checked and written from the
// inside out. The reader owns nothing, sets no last error, and either moves on or stays where it was.
//
// Definite lengths only. Lengths in a longer form than needed are taken, because other programs write them.
#ifndef CERTKERN_COMMON_DER_H
#define CERTKERN_COMMON_DER_H

#include "common/secret_bytes.h"

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

namespace certkern::der {

inline constexpr BYTE kBoolean = 1;
inline constexpr BYTE kInteger = 2;
inline constexpr BYTE kBitString = 3;
inline constexpr BYTE kOctetString = 4;
inline constexpr BYTE kNull = 5;
inline constexpr BYTE kOid = 6;
inline constexpr BYTE kUtf8String = 12;
inline constexpr BYTE kSequence = 0x30;
inline constexpr BYTE kSet = 0x31;

// Context-specific identifiers.
constexpr BYTE Context(int number) { return static_cast<BYTE>(0x80 | number); }
constexpr BYTE ContextConstructed(int number) { return static_cast<BYTE>(0xA0 | number); }

class Reader {
 public:
  Reader() = default;
  explicit Reader(std::span<const BYTE> bytes) : rest_(bytes) {}

  bool empty() const { return rest_.empty(); }
  std::span<const BYTE> rest() const { return rest_; }
  // The next identifier; 0, which is never asked for, at the end.
  BYTE nextTag() const { return rest_.empty() ? BYTE{0} : rest_[0]; }

  // The content of an element with exactly this identifier.
  [[nodiscard]] bool take(BYTE tag, Reader& content);
  [[nodiscard]] bool take(BYTE tag, std::span<const BYTE>& content);
  // One whole element of any kind, header included.
  [[nodiscard]] bool takeWhole(std::span<const BYTE>& element);
  [[nodiscard]] bool takeOid(std::string& dotted);
  // BIT STRING of whole octets.
  [[nodiscard]] bool takeBits(std::span<const BYTE>& octets);
  // INTEGER that is not negative: big-endian, without leading zeros; 0 is no octet at all.
  [[nodiscard]] bool takeUnsigned(std::span<const BYTE>& magnitude);
  [[nodiscard]] bool takeSmall(uint32_t& number);

 private:
  bool header(size_t& headerSize, size_t& contentSize) const;
  std::span<const BYTE> rest_;
};

// AlgorithmIdentifier ::= SEQUENCE { algorithm OBJECT IDENTIFIER, parameters ANY OPTIONAL }
struct Algorithm {
  std::string oid;
  std::span<const BYTE> parameters;  // one whole element, or nothing; borrowed
};
[[nodiscard]] bool TakeAlgorithm(Reader& in, Algorithm& algorithm);

// One element around the concatenation of the parts.
SecretBytes Element(BYTE tag, std::initializer_list<std::span<const BYTE>> parts);
inline SecretBytes Sequence(std::initializer_list<std::span<const BYTE>> parts) {
  return Element(kSequence, parts);
}
inline SecretBytes OctetString(std::span<const BYTE> octets) { return Element(kOctetString, {octets}); }
inline SecretBytes Null() { return Element(kNull, {}); }
SecretBytes BitString(std::span<const BYTE> octets);
// From a big-endian magnitude; leading zeros are dropped.
SecretBytes Unsigned(std::span<const BYTE> magnitude);
SecretBytes Small(uint32_t number);
// Empty for what is no dotted OID.
SecretBytes Oid(std::string_view dotted);
// parameters: one whole element, or nothing.
SecretBytes AlgorithmIdentifier(std::string_view oid, std::span<const BYTE> parameters);

}  // namespace certkern::der

#endif
