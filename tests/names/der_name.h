// Names put together octet by octet, so that no encoder of the library has a hand in what its readers are tested with.
#ifndef CERTKERN_TESTS_NAMES_DER_NAME_H
#define CERTKERN_TESTS_NAMES_DER_NAME_H

#include <certkern/encode.h>

#include <string>
#include <vector>

namespace certkern::test {

using Octets = std::string;

// One element; contents here are short or up to 64 KiB.
Octets Element(int tag, const Octets& content);
Octets Join(const std::vector<Octets>& parts);

inline const Octets kCn = "\x06\x03\x55\x04\x03";
inline const Octets kOrganisation = "\x06\x03\x55\x04\x0A";
inline const Octets kUnit = "\x06\x03\x55\x04\x0B";
inline const Octets kMail = "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x09\x01";
inline const Octets kNobodys = "\x06\x02\x2A\x03";  // 1.2.3

inline Octets Attribute(const Octets& oid, int tag, const Octets& value) {
  return Element(0x30, oid + Element(tag, value));
}
inline Octets Cn(const Octets& utf8) { return Attribute(kCn, 0x0C, utf8); }
inline Octets RelativeName(const std::vector<Octets>& attributes) { return Element(0x31, Join(attributes)); }
Octets Name(const std::vector<Octets>& relativeNames);
// Of relative names with one attribute each.
Octets NameOf(const std::vector<Octets>& attributes);

// The blob borrows the octets.
CERT_NAME_BLOB BlobOf(const Octets& octets);

}  // namespace certkern::test

#endif
