// Small certificates and lists, put together byte by byte so that no code of the library stands behind them, and one
// that openssl made. The signatures of the former are nothing; nobody verifies them here.
#ifndef CERTKERN_TESTS_STORE_SAMPLE_OBJECTS_H
#define CERTKERN_TESTS_STORE_SAMPLE_OBJECTS_H

#include <certkern/store.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/owner.h"
#include "store/context_record.h"
#include "store/store_record.h"

namespace certkern::test {

using Bytes = std::vector<BYTE>;

// Content may be any concatenation of elements.
Bytes Der(BYTE tag, const Bytes& content);
Bytes Concat(std::initializer_list<Bytes> parts);

struct CertificateTraits {
  std::string subject = "a";
  DWORD serial = 1;
  std::string issuer = "ca";
  Bytes extensions = {};  // Extension elements, one after the other
};
Bytes MakeCertificate(const CertificateTraits& traits);

struct CrlTraits {
  std::string issuer = "ca";
  std::string thisUpdate = "260101000000Z";
  Bytes extensions = {};
};
Bytes MakeCrl(const CrlTraits& traits);

// id: the content octets of the identifier below 2.5.29; value: the content of the extension's OCTET STRING.
Bytes MakeExtension(BYTE id, const Bytes& value);

// A self-signed certificate by openssl: ECDSA over P-256 with SHA-256, with a subject key identifier (method 1).
const Bytes& OpensslCertificate();

using CertificateHandle = Owner<PCCERT_CONTEXT, CertFreeCertificateContext>;
using CrlHandle = Owner<PCCRL_CONTEXT, CertFreeCRLContext>;
CertificateHandle CreateCertificate(const Bytes& encoded);
CrlHandle CreateCrl(const Bytes& encoded);

// Serial numbers of the certificates, and thisUpdate or subject of none: newest first, "3 1 2".
std::string Serials(CertStore& store);
size_t CountOf(CertStore& store, ElementType type);

}  // namespace certkern::test

#endif
