// A bit string value, bit by bit. Bit 0 is the top bit of the first octet.
#ifndef CERTKERN_ASN1RT_BIT_STRING_H
#define CERTKERN_ASN1RT_BIT_STRING_H

#include "asn1rt/control.h"

namespace certkern {

class ASN1CBitStr : public ASN1CType {
 public:
  ASN1CBitStr(ASN1MessageBufferIF& buffer, ASN1BitString& value) : ASN1CType(buffer, &value) {}
  ~ASN1CBitStr() override;

  ASN1BitString& value() const { return *static_cast<ASN1BitString*>(GetValue()); }
  uint32_t size() const { return value().numbits; }
  // Behind the end all bits are clear.
  bool test(uint32_t bit) const;
  uint32_t count() const;
  bool none() const { return count() == 0; }
  // Bits that are set; the string grows as it must. A status.
  int set(uint32_t bit);
  int clear(uint32_t bit);
  int resize(uint32_t bits);
  // Without zero bits at the end, as DER has named bits.
  void trim();

 private:
  // Octets that may be written, at least so many bits: those of the value may be the message's.
  uint8_t* writable(uint32_t bits);

  const uint8_t* own_ = nullptr;
  uint32_t ownBits_ = 0;
};

}  // namespace certkern

#endif
