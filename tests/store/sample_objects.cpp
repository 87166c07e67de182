#include "store/sample_objects.h"

#include "support/hex.h"

namespace certkern::test {
namespace {

Bytes Text(std::string_view text) { return {text.begin(), text.end()}; }

Bytes Name(std::string_view common) {
  return Der(0x30, Der(0x31, Der(0x30, Concat({FromHex("0603550403"), Der(0x0C, Text(common))}))));
}

Bytes Time(std::string_view time) { return Der(0x17, Text(time)); }

Bytes Serial(DWORD value) {
  Bytes octets(5);
  for (size_t i = 0; i < 4; ++i) octets[4 - i] = static_cast<BYTE>(value >> (8 * i));
  return Der(0x02, octets);  // with redundant zeros, which the decoder keeps
}

Bytes Signed(const Bytes& content) {
  const Bytes algorithm = FromHex("300A06082A8648CE3D040302");
  return Der(0x30, Concat({Der(0x30, content), algorithm, FromHex("0303000000")}));
}

// the key of the certificate below
constexpr char kKey[] =
    "3059301306072A8648CE3D020106082A8648CE3D03010703420004BCBE90A0296EE92760C0066B6C5F53D84BA61A7216FD1E84E2"
    "529EBD"
    "62A8943A593A887024276C925D14630244E548EE74120C5E578C2E972C4F4973FFD81095";

constexpr char kOpenssl[] =
    "308201483081EFA00302010202147CCEC11B5A68E29372456758FE5D05F81C3D1E7C300A06082A8648CE3D040302300C310A3008"
    "06035504"
    "030C0161301E170D3236313132313039323935395A170D3336313131383039323935395A300C310A300806035504030C01613059"
    "301306"
    "072A8648CE3D020106082A8648CE3D03010703420004BCBE90A0296EE92760C0066B6C5F53D84BA61A7216FD1E84E2529EBD62A8"
    "943A59"
    "3A887024276C925D14630244E548EE74120C5E578C2E972C4F4973FFD81095A32F302D300C0603551D13040530030101FF301D06"
    "03551D"
    "0E04160414305897F7CA830EB23737D6B04D0AA497A8EC6D0E300A06082A8648CE3D040302034800304502204AA2790ACDF4D042"
    "41D22C"
    "41FE4F79E3A00DE8B302395CA0AA94A6AEB8C13ACC0221009C05C84E90A7AC2AF6EC18EC3DECE9C9EF92761575D96233C904180D"
    "E11F3F"
    "C6";

}  // namespace

Bytes Concat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes Der(BYTE tag, const Bytes& content) {
  Bytes element{tag};
  if (content.size() < 0x80) {
    element.push_back(static_cast<BYTE>(content.size()));
  } else {
    const bool large = content.size() > 0xFFFF;
    element.push_back(large ? 0x83 : 0x82);
    if (large) element.push_back(static_cast<BYTE>(content.size() >> 16));
    element.push_back(static_cast<BYTE>(content.size() >> 8));
    element.push_back(static_cast<BYTE>(content.size()));
  }
  return Concat({element, content});
}

Bytes MakeExtension(BYTE id, const Bytes& value) {
  return Der(0x30, Concat({Der(0x06, {0x55, 0x1D, id}), Der(0x04, value)}));
}

Bytes MakeCertificate(const CertificateTraits& traits) {
  const Bytes extensions = traits.extensions.empty() ? Bytes{} : Der(0xA3, Der(0x30, traits.extensions));
  return Signed(
      Concat({FromHex("A003020102"), Serial(traits.serial), FromHex("300A06082A8648CE3D040302"),
              Name(traits.issuer), Der(0x30, Concat({Time("250101000000Z"), Time("350101000000Z")})),
              Name(traits.subject), FromHex(kKey), extensions}));
}

Bytes MakeCrl(const CrlTraits& traits) {
  const Bytes number = MakeExtension(20, FromHex("020105"));  // a list without any extension is of version 1
  return Signed(Concat({FromHex("020101"), FromHex("300A06082A8648CE3D040302"), Name(traits.issuer),
                        Time(traits.thisUpdate), Time("350101000000Z"),
                        Der(0xA0, Der(0x30, Concat({number, traits.extensions})))}));
}

const Bytes& OpensslCertificate() {
  static const Bytes kBytes = FromHex(kOpenssl);
  return kBytes;
}

CertificateHandle CreateCertificate(const Bytes& encoded) {
  return CertificateHandle(
      CertCreateCertificateContext(X509_ASN_ENCODING, encoded.data(), static_cast<DWORD>(encoded.size())));
}

CrlHandle CreateCrl(const Bytes& encoded) {
  return CrlHandle(
      CertCreateCRLContext(X509_ASN_ENCODING, encoded.data(), static_cast<DWORD>(encoded.size())));
}

std::string Serials(CertStore& store) {
  std::string all;
  const std::lock_guard guard(store.lock);
  for (StoreElement* each = store.certificates.newest; each; each = each->next) {
    const ContextOwner context(AcquireContext(*each));
    DWORD serial = 0;
    const CRYPT_INTEGER_BLOB& number = context->certificate.pCertInfo->SerialNumber;
    for (size_t i = number.cbData; i--;) serial = serial << 8 | number.pbData[i];
    if (!all.empty()) all += ' ';
    all += std::to_string(serial);
  }
  return all;
}

size_t CountOf(CertStore& store, ElementType type) {
  const std::lock_guard guard(store.lock);
  size_t count = 0;
  const StoreElement* last = nullptr;
  for (StoreElement* each = store.list(type).newest; each; last = each, each = each->next) {
    if (each->prev != last) return ~size_t{0};  // the list must read the same from both ends
    ++count;
  }
  return store.list(type).oldest == last && store.list(type).size == count ? count : ~size_t{0};
}

}  // namespace certkern::test
