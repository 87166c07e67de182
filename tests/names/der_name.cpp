#include "names/der_name.h"

namespace certkern::test {

Octets Element(int tag, const Octets& content) {
  Octets out(1, static_cast<char>(tag));
  const size_t size = content.size();
  if (size >= 0x100) {
    out += {static_cast<char>(0x82), static_cast<char>(size >> 8)};
  } else if (size >= 0x80) {
    out += static_cast<char>(0x81);
  }
  return out + static_cast<char>(size) + content;
}

Octets Join(const std::vector<Octets>& parts) {
  Octets out;
  for (const Octets& part : parts) out += part;
  return out;
}

Octets Name(const std::vector<Octets>& relativeNames) { return Element(0x30, Join(relativeNames)); }

Octets NameOf(const std::vector<Octets>& attributes) {
  std::vector<Octets> relativeNames;
  for (const Octets& attribute : attributes) relativeNames.push_back(RelativeName({attribute}));
  return Name(relativeNames);
}

CERT_NAME_BLOB BlobOf(const Octets& octets) {
  // the functions take writable records and only read
  return {static_cast<DWORD>(octets.size()), reinterpret_cast<BYTE*>(const_cast<char*>(octets.data()))};
}

}  // namespace certkern::test
