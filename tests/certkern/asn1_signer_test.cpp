// Signers of messages and their attributes as records.
#include "certkern/ASN1SignerTraits.h"

#include <certkern/attributes.h>
#include <certkern/keykern.h>
#include <certkern/oids.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "api/trace_recorder.h"
#include "asn1rt/message_buffer.h"
#include "certkern/made_messages.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::asn1data;
using namespace certkern::test;

namespace {

// The record as a signer again. Algorithms are taken from the sample: who wrote NULL and who nothing no record tells.
Bytes Rewritten(const CMSG_CMS_SIGNER_INFO& record, std::span<const BYTE> sample) {
  ASN1BERDecodeBuffer in(sample.data(), sample.size());
  ASN1T_SignerInfo original, made;
  EXPECT_EQ(ASN1C_SignerInfo(in, original).Decode(), ASN1_OK);
  ASN1BEREncodeBuffer out;
  out.context().setSetOrder(SetOrder::AsGiven);
  EXPECT_TRUE(SignerInfoTraits::set(out.context(), record, made));
  EXPECT_EQ(made.digestAlgorithm.algorithm, original.digestAlgorithm.algorithm);
  EXPECT_EQ(made.signatureAlgorithm.algorithm, original.signatureAlgorithm.algorithm);
  made.digestAlgorithm = original.digestAlgorithm;
  made.signatureAlgorithm = original.signatureAlgorithm;
  EXPECT_GT(ASN1C_SignerInfo(out, made).Encode(), 0);
  return {out.GetMsgPtr(), out.GetMsgPtr() + out.GetMsgLen()};
}

void ExpectAttributesInside(const CRYPT_ATTRIBUTES& attributes, std::span<const BYTE> signer) {
  for (DWORD i = 0; i < attributes.cAttr; ++i) {
    const CRYPT_ATTRIBUTE& attribute = attributes.rgAttr[i];
    SCOPED_TRACE(attribute.pszObjId);
    const Bytes encoded = EncodeExactly(PKCS_ATTRIBUTE, &attribute);
    EXPECT_NE(std::search(signer.begin(), signer.end(), encoded.begin(), encoded.end()), signer.end());
    const Read<CRYPT_ATTRIBUTE> again(PKCS_ATTRIBUTE, encoded);
    ASSERT_TRUE(again);
    EXPECT_STREQ(again->pszObjId, attribute.pszObjId);
    ASSERT_EQ(again->cValue, attribute.cValue);
    for (DWORD n = 0; n < attribute.cValue; ++n)
      EXPECT_EQ(BytesOf(again->rgValue[n]), BytesOf(attribute.rgValue[n]));
  }
}

void ExpectOlderAlike(const CMSG_CMS_SIGNER_INFO& cms, std::span<const BYTE> encoded) {
  const Read<CMSG_SIGNER_INFO> older(PKCS7_SIGNER_INFO, encoded);
  ASSERT_TRUE(older);
  EXPECT_EQ(older->dwVersion, 1u);
  EXPECT_EQ(BytesOf(older->Issuer), BytesOf(cms.SignerId.IssuerSerialNumber.Issuer));
  EXPECT_EQ(BytesOf(older->SerialNumber), BytesOf(cms.SignerId.IssuerSerialNumber.SerialNumber));
  EXPECT_STREQ(older->HashAlgorithm.pszObjId, cms.HashAlgorithm.pszObjId);
  EXPECT_STREQ(older->HashEncryptionAlgorithm.pszObjId, cms.HashEncryptionAlgorithm.pszObjId);
  EXPECT_EQ(BytesOf(older->EncryptedHash), BytesOf(cms.EncryptedHash));
  EXPECT_EQ(older->AuthAttrs.cAttr, cms.AuthAttrs.cAttr);
  EXPECT_EQ(older->UnauthAttrs.cAttr, cms.UnauthAttrs.cAttr);
}

const Bytes& SignerOf(const std::string& name) {
  const auto& samples = MadeSigners();
  const auto found = std::ranges::find(samples, name + ".ContentInfo.der", &SignerSample::name);
  EXPECT_NE(found, samples.end()) << name;
  return found->encoded;
}

}  // namespace

TEST(SignerInfo, MadeByOpenssl) {
  EXPECT_GT(MadeSigners().size(), 15u);
  for (const auto& [name, encoded] : MadeSigners()) {
    SCOPED_TRACE(name);
    const Read<CMSG_CMS_SIGNER_INFO> signer(CMS_SIGNER_INFO, encoded);
    ASSERT_TRUE(signer);
    EXPECT_EQ(ToHex(Rewritten(*signer, encoded)), ToHex(encoded));
    ExpectAttributesInside(signer->AuthAttrs, encoded);
    ExpectAttributesInside(signer->UnauthAttrs, encoded);
    if (signer->SignerId.dwIdChoice == CERT_ID_ISSUER_SERIAL_NUMBER) ExpectOlderAlike(*signer, encoded);
  }
}

TEST(SignerInfo, FieldsAreWhereTheyBelong) {
  const Read<CMSG_SIGNER_INFO> signer(PKCS7_SIGNER_INFO, SignerOf("signed"));
  ASSERT_TRUE(signer);
  const std::string certificate =
      RunShell("openssl x509 -outform DER -in '" + MadeMessage("ca.pem").string() + "'");
  const Read<CERT_INFO> issuer(X509_CERT_TO_BE_SIGNED,
                               {reinterpret_cast<const BYTE*>(certificate.data()), certificate.size()});
  ASSERT_TRUE(issuer);
  EXPECT_EQ(BytesOf(signer->Issuer), BytesOf(issuer->Subject));
  EXPECT_EQ(ToHex(BytesOf(signer->SerialNumber)), "617372") << "little-endian: rsa";
  EXPECT_STREQ(signer->HashAlgorithm.pszObjId, "2.16.840.1.101.3.4.2.1");
  EXPECT_STREQ(signer->HashEncryptionAlgorithm.pszObjId, szOID_RSA_RSA);
  EXPECT_EQ(signer->HashEncryptionAlgorithm.Parameters.cbData, 0u) << "NULL is none";
  EXPECT_EQ(signer->EncryptedHash.cbData, 256u);
  EXPECT_GE(signer->AuthAttrs.cAttr, 3u);
  EXPECT_EQ(signer->UnauthAttrs.cAttr, 0u);

  const Read<CMSG_SIGNER_INFO> pss(PKCS7_SIGNER_INFO, SignerOf("signed-pss"));
  EXPECT_GT(pss->HashEncryptionAlgorithm.Parameters.cbData, 2u);
}

TEST(SignerInfo, NamedByKey) {
  const Bytes& encoded = SignerOf("signed-key-id");
  const Read<CMSG_CMS_SIGNER_INFO> signer(CMS_SIGNER_INFO, encoded);
  ASSERT_TRUE(signer);
  EXPECT_EQ(signer->dwVersion, 3u);
  EXPECT_EQ(signer->SignerId.dwIdChoice, DWORD{CERT_ID_KEY_IDENTIFIER});
  EXPECT_EQ(signer->SignerId.KeyId.cbData, 20u);
  TraceRecorder trace;
  EXPECT_FALSE((Read<CMSG_SIGNER_INFO>(PKCS7_SIGNER_INFO, encoded)));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_BAD_ENCODE});
}

TEST(Attribute, LiesInOnePiece) {
  const Bytes sound = FromHex("3010 06032A0304 3109 0403010203 020205FF");
  const Read<CRYPT_ATTRIBUTE> attribute(PKCS_ATTRIBUTE, sound);
  ASSERT_TRUE(attribute);
  const auto* const start = reinterpret_cast<const BYTE*>(&*attribute);
  EXPECT_STREQ(attribute->pszObjId, "1.2.3.4");
  EXPECT_EQ(reinterpret_cast<BYTE*>(attribute->pszObjId) - start, 24) << "behind the record";
  EXPECT_EQ(reinterpret_cast<BYTE*>(attribute->rgValue) - start, 32);
  ASSERT_EQ(attribute->cValue, 2u);
  EXPECT_EQ(ToHex(BytesOf(attribute->rgValue[0])), "0403010203");
  EXPECT_EQ(ToHex(BytesOf(attribute->rgValue[1])), "020205FF");

  DWORD size = 0;
  const auto decode = [&](DWORD flags) {
    return CryptDecodeObject(PKCS_7_ASN_ENCODING, PKCS_ATTRIBUTE, sound.data(),
                             static_cast<DWORD>(sound.size()), flags, nullptr, &size);
  };
  EXPECT_TRUE(decode(CRYPT_DECODE_SHARE_OID_STRING_FLAG | CRYPT_DECODE_NOCOPY_FLAG))
      << "flags are not looked at";
  EXPECT_EQ(size, 24u + 8 + 2 * 16 + 8 + 8);
  void* allocated = nullptr;
  ASSERT_TRUE(CryptDecodeObjectEx(X509_ASN_ENCODING, PKCS_ATTRIBUTE, sound.data(),
                                  static_cast<DWORD>(sound.size()), CRYPT_DECODE_ALLOC_FLAG, nullptr,
                                  &allocated, &size));
  EXPECT_STREQ(static_cast<CRYPT_ATTRIBUTE*>(allocated)->pszObjId, "1.2.3.4");
  LocalFree(allocated);
}

TEST(GeneratedRoutes, TraceTheirFaults) {
  const Bytes attribute = FromHex("3007 06032A0304 3100");
  const Bytes& signer = SignerOf("signed-key-id");
  struct {
    LPCSTR type;
    const Bytes& encoded;
    bool hasSize;
    DWORD code;
    const char* line;
  } const kCases[] = {
      {PKCS_ATTRIBUTE,    attribute, false, ERROR_INVALID_PARAMETER,
       "1 XnDllPKCSAttributeDecode: Invalid arguments in CryptDecodeObject PKCS_ATTRIBUTE"             },
      {PKCS_ATTRIBUTE,    attribute, true,  ERROR_MORE_DATA,
       "1 XnDllPKCSAttributeDecode: Not enough space in buffer for PKCS_ATTRIBUTE"                     },
      {CMS_SIGNER_INFO,   signer,    false, ERROR_INVALID_PARAMETER,
       "1 XnDllPKCSSignerInfoDecode: Invalid arguments in CryptDecodeObject "
       "PKCS7_SIGNER_INFO||CMS_SIGNER_INFO"                                                            },
      {CMS_SIGNER_INFO,   signer,    true,  ERROR_MORE_DATA,
       "1 XnDllPKCSSignerInfoDecode: Not enough space in buffer for PKCS7_SIGNER_INFO||CMS_SIGNER_INFO"},
      {PKCS7_SIGNER_INFO, signer,    true,  CRYPT_E_BAD_ENCODE,
       "1 XnDllPKCSSignerInfoDecode: Invalid choice in CMS_SINGER_INFO struct. CryptDecodeObject "
       "PKCS7_SIGNER_INFO"                                                                             },
  };
  for (const auto& [type, encoded, hasSize, code, line] : kCases) {
    SCOPED_TRACE(line);
    TraceRecorder trace;
    BYTE record[8];
    DWORD size = sizeof(record);
    EXPECT_FALSE(CryptDecodeObject(X509_ASN_ENCODING, type, encoded.data(),
                                   static_cast<DWORD>(encoded.size()), 0, record, hasSize ? &size : nullptr));
    EXPECT_EQ(GetLastError(), code);
    const auto lines = Lines(trace.records);
    EXPECT_EQ(std::ranges::count(lines, line), 1);
  }
}
