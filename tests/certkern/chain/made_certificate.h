// Certificates for tests of search and validation, by the thousand: DER written here, with a key and a signature that
// are none. What needs to be self-signed is told so by its facts.
#ifndef CERTKERN_TESTS_CERTKERN_CHAIN_MADE_CERTIFICATE_H
#define CERTKERN_TESTS_CERTKERN_CHAIN_MADE_CERTIFICATE_H

#include <certkern/types.h>

#include <string>
#include <vector>

#include "certkern/chain/chain_builder.h"

namespace certkern::test {

// Octets in a std::string.
std::string Der(BYTE tag, const std::string& content);
std::string DerSequence(const std::vector<std::string>& elements);
// Dotted decimal, arcs below 2^28.
std::string DerOid(const std::string& text);
// An attribute of a type, and names of one common name (PrintableString).
std::string DerAttribute(const std::string& oid, BYTE stringTag, const std::string& value);
std::string DerName(const std::string& commonName);

// Values of extensions.
std::string DerOids(const std::vector<std::string>& oids);      // key purposes
std::string DerPolicies(const std::vector<std::string>& oids);  // certificate and application policies
std::string DerAuthority(int pathLength = -1);                  // basic constraints of a CA

struct MadeExtension {
  std::string oid;
  std::string value;
};

struct MadeCertificate {
  std::string subject;  // common names
  std::string issuer;
  std::string keyId = {};  // none: no extension
  std::string authorityKeyId = {};
  std::string serial = "\x01";
  std::string authoritySerial = {};
  std::string notBefore = "20200101000000Z";
  std::string notAfter = "20991231235959Z";
  std::vector<MadeExtension> extensions = {};

  std::string der() const;
  CertificateOwner context() const;
};

// Makes the library believe that the certificate is signed by itself, or by nobody of its key.
void SetSelfSigned(PCCERT_CONTEXT context, bool selfSigned);

StoreOwner MakeMemoryStore();
// The context of the store, which goes with the store.
PCCERT_CONTEXT AddTo(const StoreOwner& store, const MadeCertificate& certificate, bool selfSigned = false);

// "2024-01-02T03:04:05Z" is 20240102030405.
FILETIME FileTimeOf(const std::string& digits);

// Subjects from the end certificate to the root with the error of each, and that of the whole: "EE A:0x40 R = 0x40".
std::string Told(const Chain& chain, DWORD status);
std::string ToldBest(const ChainBuilder& builder);

}  // namespace certkern::test

#endif
