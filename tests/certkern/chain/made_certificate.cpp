#include "certkern/chain/made_certificate.h"

#include <certkern/name.h>
#include <certkern/oids.h>
#include <certkern/store.h>
#include <gtest/gtest.h>

#include <ctime>
#include <sstream>

#include "certkern/chain/cert_facts.h"

namespace certkern::test {

std::string Der(BYTE tag, const std::string& content) {
  std::string der(1, static_cast<char>(tag));
  const size_t size = content.size();
  if (size > 0xFFFF) {
    der += {'\x83', static_cast<char>(size >> 16), static_cast<char>(size >> 8), static_cast<char>(size)};
  } else if (size > 0x7F) {
    der += {'\x82', static_cast<char>(size >> 8), static_cast<char>(size)};
  } else {
    der += static_cast<char>(size);
  }
  return der + content;
}

std::string DerSequence(const std::vector<std::string>& elements) {
  std::string content;
  for (const std::string& each : elements) content += each;
  return Der(0x30, content);
}

std::string DerOid(const std::string& text) {
  std::vector<unsigned> arcs;
  for (size_t at = 0; at <= text.size(); at = text.find('.', at) + 1) {
    arcs.push_back(static_cast<unsigned>(std::stoul(text.substr(at))));
    if (text.find('.', at) == text.npos) break;
  }
  std::string content(1, static_cast<char>(arcs[0] * 40 + arcs[1]));
  for (size_t i = 2; i < arcs.size(); ++i) {
    for (unsigned shift = 28; shift; shift -= 7) {
      if (arcs[i] >> shift) content += static_cast<char>(arcs[i] >> shift | 0x80);
    }
    content += static_cast<char>(arcs[i] & 0x7F);
  }
  return Der(0x06, content);
}

std::string DerAttribute(const std::string& oid, BYTE stringTag, const std::string& value) {
  return DerSequence({DerOid(oid), Der(stringTag, value)});
}

std::string DerName(const std::string& commonName) {
  return DerSequence({Der(0x31, DerAttribute("2.5.4.3", 0x13, commonName))});
}

std::string DerOids(const std::vector<std::string>& oids) {
  std::vector<std::string> elements;
  for (const std::string& each : oids) elements.push_back(DerOid(each));
  return DerSequence(elements);
}

std::string DerPolicies(const std::vector<std::string>& oids) {
  std::vector<std::string> elements;
  for (const std::string& each : oids) elements.push_back(DerSequence({DerOid(each)}));
  return DerSequence(elements);
}

std::string DerAuthority(int pathLength) {
  const std::string isCa = Der(0x01, "\xFF");
  if (pathLength < 0) return DerSequence({isCa});
  return DerSequence({isCa, Der(0x02, std::string(1, static_cast<char>(pathLength)))});
}

std::string MadeCertificate::der() const {
  const std::string algorithm = DerSequence({DerOid("1.2.840.10045.4.3.2")});
  const std::string point(65, '\x04');
  const std::string key = DerSequence(
      {DerSequence({DerOid("1.2.840.10045.2.1"), DerOid("1.2.840.10045.3.1.7")}), Der(0x03, '\0' + point)});
  std::vector<std::string> encoded;
  const auto add = [&encoded](const std::string& oid, const std::string& value) {
    encoded.push_back(DerSequence({DerOid(oid), Der(0x04, value)}));
  };
  if (!keyId.empty()) add(szOID_SUBJECT_KEY_IDENTIFIER, Der(0x04, keyId));
  if (!authorityKeyId.empty() || !authoritySerial.empty()) {
    std::string fields = authorityKeyId.empty() ? "" : Der(0x80, authorityKeyId);
    if (!authoritySerial.empty())
      fields += Der(0xA1, Der(0xA4, DerName(issuer))) + Der(0x82, authoritySerial);
    add(szOID_AUTHORITY_KEY_IDENTIFIER2, Der(0x30, fields));
  }
  for (const MadeExtension& each : extensions) add(each.oid, each.value);
  std::vector<std::string> fields = {Der(0xA0, Der(0x02, "\x02")),
                                     Der(0x02, serial),
                                     algorithm,
                                     DerName(issuer),
                                     DerSequence({Der(0x18, notBefore), Der(0x18, notAfter)}),
                                     DerName(subject),
                                     key};
  if (!encoded.empty()) fields.push_back(Der(0xA3, DerSequence(encoded)));
  return DerSequence({DerSequence(fields), algorithm, Der(0x03, std::string(9, '\0'))});
}

CertificateOwner MadeCertificate::context() const {
  const std::string bytes = der();
  CertificateOwner context(CertCreateCertificateContext(
      X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(bytes.data()), static_cast<DWORD>(bytes.size())));
  EXPECT_TRUE(context) << subject << ' ' << GetLastError();
  return context;
}

void SetSelfSigned(PCCERT_CONTEXT context, bool selfSigned) {
  CertFactsOf(context)->selfSigned = selfSigned ? TriState::Yes : TriState::No;
}

StoreOwner MakeMemoryStore() {
  StoreOwner store(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
  EXPECT_TRUE(store);
  return store;
}

PCCERT_CONTEXT AddTo(const StoreOwner& store, const MadeCertificate& certificate, bool selfSigned) {
  CertificateOwner added;
  EXPECT_TRUE(CertAddCertificateContextToStore(store.get(), certificate.context().get(),
                                               CERT_STORE_ADD_ALWAYS, added.out()));
  SetSelfSigned(added.get(), selfSigned);
  return added.get();
}

FILETIME FileTimeOf(const std::string& digits) {
  tm parts{};
  EXPECT_TRUE(strptime(digits.c_str(), "%Y%m%d%H%M%S", &parts)) << digits;
  const uint64_t ticks = (static_cast<uint64_t>(timegm(&parts)) + 11644473600u) * 10000000u;
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

std::string Told(const Chain& chain, DWORD status) {
  std::ostringstream told;
  told << std::hex << std::uppercase;
  for (auto node = chain.rbegin(); node != chain.rend(); ++node) {
    char name[64];
    CertNameToStrA(X509_ASN_ENCODING, &node->record->context->pCertInfo->Subject, CERT_SIMPLE_NAME_STR, name,
                   sizeof name);
    told << (node == chain.rbegin() ? "" : " ") << name;
    if (node->errorStatus) told << ":0x" << node->errorStatus;
  }
  if (status) told << " = 0x" << status;
  return told.str();
}

std::string ToldBest(const ChainBuilder& builder) {
  return builder.bestError ? Told(builder.bestError->chain, builder.bestError->chainError) : "nothing";
}

}  // namespace certkern::test
