// Parameters of signed messages before the message is made: copies, the attributes of an advanced signature and where the
// signer's certificate is found, and the repair of algorithms.
#include <certkern/attributes.h>
#include <certkern/encode.h>
#include <certkern/errors.h>
#include <gmock/gmock.h>

#include <cstring>

#include "certkern/cms_attributes.h"
#include "certkern/cms_signers.h"
#include "certkern/gost_repair.h"
#include "platform/exceptions.h"
#include "support/hex.h"

namespace certkern::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kNamesCertificate[] = szOID_SIGNING_CERTIFICATE_V2;
constexpr char kTime[] = szOID_RSA_signingTime;

CRYPT_ALGORITHM_IDENTIFIER Algorithm(const char* oid) { return {const_cast<LPSTR>(oid), {}}; }

CMSG_SIGNER_ENCODE_INFO SignerRecord(CERT_INFO* info, HCRYPTPROV provider, const char* hash) {
  CMSG_SIGNER_ENCODE_INFO record{};
  record.cbSize = sizeof record;
  record.pCertInfo = info;
  record.hCryptProv = provider;
  record.dwKeySpec = AT_SIGNATURE;
  record.HashAlgorithm = Algorithm(hash);
  return record;
}

// --- copies ---

TEST(CmsParameterCopies, FieldsCountWhole) {
  struct {
    CMSG_SIGNER_ENCODE_INFO record;
    BYTE behind[8];
  } given[2] = {};
  CERT_INFO info{};
  const DWORD sizes[] = {96, 135, 136, 175};
  for (const DWORD size : sizes) {
    SCOPED_TRACE(size);
    auto& record = given[0].record = SignerRecord(&info, 1, "1.2.3");
    record.cbSize = size;
    record.SignerId.dwIdChoice = CERT_ID_KEY_IDENTIFIER;
    record.HashEncryptionAlgorithm = Algorithm("1.2.4");
    MemoryChain chain;
    const CMSG_SIGNER_ENCODE_INFO* const copy = CopySignerEncodeInfo(record, chain);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->cbSize, sizeof *copy);
    EXPECT_STREQ(copy->HashAlgorithm.pszObjId, "1.2.3");
    EXPECT_EQ(copy->SignerId.dwIdChoice, size >= 136 ? DWORD{CERT_ID_KEY_IDENTIFIER} : 0u);
    EXPECT_EQ(copy->HashEncryptionAlgorithm.pszObjId != nullptr, size >= 168);
  }
  MemoryChain chain;
  given[0].record.cbSize = 95;
  EXPECT_THROW(CopySignerEncodeInfo(given[0].record, chain), CryptException);
}

TEST(CmsParameterCopies, SignersFollowEachOtherByTheirSize) {
  alignas(8) BYTE signers[96 + 176] = {};
  for (const auto& [offset, size, hash] : {
           std::tuple{0,  96,  "1.2.3"},
           std::tuple{96, 176, "1.2.4"}
  }) {
    CMSG_SIGNER_ENCODE_INFO record = SignerRecord(nullptr, 0, hash);
    record.cbSize = static_cast<DWORD>(size);
    std::memcpy(signers + offset, static_cast<void*>(&record),
                std::min<size_t>(sizeof record, record.cbSize));
  }
  CMSG_SIGNED_ENCODE_INFO info{};
  info.cbSize = 48;
  info.cSigners = 2;
  info.rgSigners = reinterpret_cast<CMSG_SIGNER_ENCODE_INFO*>(signers);
  info.cAttrCertEncoded = 9;
  MemoryChain chain;
  const CMSG_SIGNED_ENCODE_INFO* copy = CopySignedEncodeInfo(info, chain);
  ASSERT_TRUE(copy);
  ASSERT_NE(copy->rgSigners, info.rgSigners);
  EXPECT_STREQ(copy->rgSigners[0].HashAlgorithm.pszObjId, "1.2.3");
  EXPECT_STREQ(copy->rgSigners[1].HashAlgorithm.pszObjId, "1.2.4");
  EXPECT_EQ(copy->cAttrCertEncoded, 0u) << "behind cbSize";
  info.cbSize = 12;
  copy = CopySignedEncodeInfo(info, chain);
  EXPECT_EQ(copy->cSigners, 2u) << "a count without an array is refused later, not lost";
  EXPECT_EQ(copy->rgSigners, nullptr) << "half a pointer";
}

TEST(CmsParameterCopies, OtherRecords) {
  MemoryChain chain;
  CMSG_ENVELOPED_ENCODE_INFO enveloped{};
  enveloped.cbSize = 72;
  enveloped.cRecipients = 3;
  enveloped.cCertEncoded = 4;
  const CMSG_ENVELOPED_ENCODE_INFO* const wide = CopyEnvelopedEncodeInfo(enveloped, chain);
  EXPECT_EQ(wide->cbSize, 136u);
  EXPECT_EQ(wide->cRecipients, 3u);
  EXPECT_EQ(wide->cCertEncoded, 0u);
  CRYPT_SIGN_MESSAGE_PARA para{};
  para.cbSize = 116;
  para.dwFlags = 5;
  para.dwInnerContentType = 6;
  const CRYPT_SIGN_MESSAGE_PARA* const copy = CopySignMessagePara(para, chain);
  EXPECT_EQ(copy->dwFlags, 5u);
  EXPECT_EQ(copy->dwInnerContentType, 0u);
  EXPECT_EQ(copy->cbSize, 116u);
}

// --- attributes ---

// One signer's attributes, and the call that lets them grow.
class CmsAttributes : public testing::Test {
 protected:
  CmsAttributes()
      : signer_(GostSigner()),
        certificate_(signer_.certificate()),
        record_(
            SignerRecord(certificate_.get()->pCertInfo, signer_.provider.get(), szOID_GOST_R3411_2012_256)) {}

  void give(const char* oid) { given_.push_back({const_cast<LPSTR>(oid), 1, &anything_}); }
  void carry(const Certificate& certificate) {
    carried_ = {certificate.get()->cbCertEncoded, certificate.get()->pbCertEncoded};
    info_.cCertEncoded = 1;
    info_.rgCertEncoded = &carried_;
  }
  // 0, or the last error of a refusal.
  DWORD add(DWORD flags, HCRYPTMSG message = nullptr) {
    list_ = given_.data();
    count_ = static_cast<DWORD>(given_.size());
    SetLastError(ERROR_INVALID_DATA);
    return AddESAttributes(&list_, &count_, &record_.HashAlgorithm, &info_, message, flags, &record_, nullptr,
                           nullptr, &chain_)
        ? 0
        : GetLastError();
  }
  std::vector<std::string> oids() const {
    std::vector<std::string> names;
    for (DWORD i = 0; i < count_; ++i) names.emplace_back(list_[i].pszObjId);
    return names;
  }
  // The hash that the attribute names the certificate by.
  std::string namedHash() const {
    const CRYPT_ATTRIBUTE* const attribute = CertFindAttribute(kNamesCertificate, count_, list_);
    if (!attribute) return "none";
    Bytes record(4096);
    auto size = static_cast<DWORD>(record.size());
    EXPECT_TRUE(CryptDecodeObject(X509_ASN_ENCODING, SV_SIGNING_CERTIFICATE_V2_STRUCT,
                                  attribute->rgValue[0].pbData, attribute->rgValue[0].cbData, 0,
                                  record.data(), &size));
    const SV_CERT_HASH_ID& id = reinterpret_cast<SV_SIGNING_CERTIFICATE*>(record.data())->rgCert[0];
    return ToHex({id.CertHash.pbData, id.CertHash.cbData});
  }

  const TestSigner signer_;
  const Certificate certificate_;
  CMSG_SIGNER_ENCODE_INFO record_;
  CMSG_SIGNED_ENCODE_INFO info_{sizeof info_, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr};
  std::vector<CRYPT_ATTRIBUTE> given_;
  CRYPT_ATTRIBUTE* list_ = nullptr;
  DWORD count_ = 0;
  MemoryChain chain_;

 private:
  BYTE null_[2] = {5, 0};
  CRYPT_ATTR_BLOB anything_{sizeof null_, null_};
  CERT_BLOB carried_{};
};

std::string HashBy(const Certificate& certificate, ALG_ID algorithm) {
  BYTE hash[64];
  DWORD size = sizeof hash;
  EXPECT_TRUE(CryptHashCertificate(0, algorithm, 0, certificate->pbCertEncoded, certificate->cbCertEncoded,
                                   hash, &size));
  return ToHex({hash, size});
}
std::string HashOf(const Certificate& certificate) { return HashBy(certificate, CALG_GR3411_2012_256); }

TEST_F(CmsAttributes, CertificateAndTimeFollowTheCallers) {
  carry(certificate_);
  give("1.2.3");
  EXPECT_EQ(add(SVCMSG_CADES_STRICT), 0u);
  EXPECT_THAT(oids(), ElementsAre("1.2.3", kNamesCertificate, kTime));
  EXPECT_EQ(namedHash(), HashOf(certificate_));
  EXPECT_STREQ(given_[0].pszObjId, "1.2.3");
  // ESSCertIDv2 with the hash's identifier without parameters, then hash and issuerSerial. RFC 5035
  const std::string value = ToHex({list_[1].rgValue[0].pbData, list_[1].rgValue[0].cbData});
  EXPECT_THAT(value,
              testing::HasSubstr("300A06082A85030701010202"
                                 "0420"
                                 + namedHash() + "30"));
  give(kTime);
  EXPECT_EQ(add(SVCMSG_CADES_STRICT), 0u);
  EXPECT_THAT(oids(), ElementsAre("1.2.3", kTime, kNamesCertificate));
  EXPECT_EQ(list_[1].rgValue[0].cbData, 2u) << "the caller's own time";
}

TEST_F(CmsAttributes, WhoGetsNone) {
  carry(certificate_);
  record_.HashAlgorithm = Algorithm("2.16.840.1.101.3.4.2.1");
  EXPECT_EQ(add(SVCMSG_CADES_STRICT | SVCMSG_CADES_DISABLE), 0u)
      << "a foreign hash: not even the conflict shows";
  EXPECT_THAT(oids(), IsEmpty());
  record_.HashAlgorithm.pszObjId = nullptr;
  EXPECT_EQ(add(SVCMSG_CADES_STRICT), 0u);
  EXPECT_THAT(oids(), IsEmpty());
  record_.HashAlgorithm = Algorithm(szOID_GOST_R3411_2012_256);
  EXPECT_EQ(add(SVCMSG_CADES_STRICT | SVCMSG_CADES_DISABLE), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(add(SVCMSG_CADES_DISABLE), 0u);
  EXPECT_THAT(oids(), IsEmpty());
  for (const char* oid :
       {szOID_SIGNING_CERTIFICATE, szOID_OTHER_SIGNING_CERTIFICATE, szOID_SIGNING_CERTIFICATE_V2}) {
    given_.clear();
    give(oid);
    EXPECT_EQ(add(SVCMSG_CADES_STRICT), 0u);
    EXPECT_THAT(oids(), ElementsAre(oid));
  }
  record_.HashAlgorithm = Algorithm(szOID_GOST_R3411_94);
  given_.clear();
  EXPECT_EQ(add(0), 0u);
  EXPECT_EQ(namedHash(), HashBy(certificate_, CALG_GR3411));
}

TEST_F(CmsAttributes, FailureIsToldToTheStrictOnly) {
  const auto refuses = [this](DWORD code) {
    EXPECT_EQ(add(SVCMSG_CADES_STRICT), code);
    EXPECT_EQ(add(0), 0u);
    EXPECT_EQ(GetLastError(), 0u);
    EXPECT_EQ(list_, given_.data());
    EXPECT_EQ(count_, given_.size());
  };
  give("1.2.3");
  refuses(CRYPT_E_SIGNER_NOT_FOUND);
  carry(certificate_);
  record_.SignerId.dwIdChoice = CERT_ID_KEY_IDENTIFIER;
  refuses(CRYPT_E_SIGNER_NOT_FOUND);
  record_.SignerId.dwIdChoice = 0;
  // the certificate's attribute can't be encoded: no time either
  record_.HashAlgorithm.Parameters.cbData = 5;
  EXPECT_NE(add(SVCMSG_CADES_STRICT), 0u);
  EXPECT_EQ(add(0), 0u);
  EXPECT_THAT(oids(), ElementsAre("1.2.3"));
  record_.HashAlgorithm.Parameters.cbData = 0;
  CRYPT_ATTRIBUTE* missing = nullptr;
  DWORD count = 1;
  EXPECT_FALSE(AddESAttributes(&missing, &count, &record_.HashAlgorithm, nullptr, nullptr,
                               SVCMSG_CADES_STRICT, nullptr, certificate_.get(), nullptr, &chain_));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(CmsAttributes, PlacesOfTheCertificateInTheirOrder) {
  // the same issuer and serial number everywhere, but another certificate: the hash tells where it came from
  const Certificate ofMachine = signer_.certificate(2031), ofUser = signer_.certificate(2032),
                    ofKey = signer_.certificate(2033), ofMessage = signer_.certificate(2035);
  const auto found = [this](DWORD flags) {
    EXPECT_EQ(add(flags), 0u);
    return namedHash();
  };
  const auto foundNearby = [&] { return found(SVCMSG_CADES_NO_KEY_SEARCH); };

  ASSERT_TRUE(CertAddCertificateContextToStore(OpenMy(CERT_SYSTEM_STORE_LOCAL_MACHINE).get(), ofMachine.get(),
                                               CERT_STORE_ADD_ALWAYS, nullptr))
      << GetLastError();
  EXPECT_EQ(found(0), HashOf(ofMachine));
  ASSERT_TRUE(CertAddCertificateContextToStore(OpenMy(CERT_SYSTEM_STORE_CURRENT_USER).get(), ofUser.get(),
                                               CERT_STORE_ADD_ALWAYS, nullptr));
  EXPECT_EQ(found(0), HashOf(ofUser));
  Owner<HCRYPTKEY, CryptDestroyKey> key;
  ASSERT_TRUE(CryptGetUserKey(signer_.provider.get(), AT_SIGNATURE, key.out()));
  const Certificate stranger = GostSigner().certificate();
  ASSERT_TRUE(CryptSetKeyParam(key.get(), KP_CERTIFICATE, stranger->pbCertEncoded, 0)) << GetLastError();
  EXPECT_EQ(found(0), HashOf(ofUser)) << "the key's certificate is another one";
  ASSERT_TRUE(CryptSetKeyParam(key.get(), KP_CERTIFICATE, ofKey->pbCertEncoded, 0));
  EXPECT_EQ(found(0), HashOf(ofKey));
  EXPECT_EQ(foundNearby(), "none");

  CRYPT_DATA_BLOB blob{ofMessage->cbCertEncoded, ofMessage->pbCertEncoded};
  CMSG_SIGNED_ENCODE_INFO bag{sizeof bag, 0, nullptr, 1, &blob, 0, nullptr, 0, nullptr};
  const Message building(CryptMsgOpenToEncode(X509_ASN_ENCODING, 0, CMSG_SIGNED, &bag, nullptr, nullptr));
  const Message message = OpenMessage(Parameter(building.get(), CMSG_CONTENT_PARAM));
  ASSERT_TRUE(message) << GetLastError();
  EXPECT_EQ(add(SVCMSG_CADES_NO_KEY_SEARCH, message.get()), 0u);
  EXPECT_EQ(namedHash(), HashOf(ofMessage));

  carry(certificate_);
  EXPECT_EQ(add(0, message.get()), 0u);
  EXPECT_EQ(namedHash(), HashOf(certificate_));
  // a blob that is no certificate ends the search among the carried, but not the whole one
  CERT_BLOB blobs[] = {
      {1, const_cast<BYTE*>(certificate_->pbCertEncoded)},
      *info_.rgCertEncoded
  };
  info_.cCertEncoded = 2;
  info_.rgCertEncoded = blobs;
  EXPECT_EQ(found(0), HashOf(ofKey));
}

TEST_F(CmsAttributes, OfEachSigner) {
  carry(certificate_);
  const TestSigner other = GostSigner();
  const Certificate otherCertificate = other.certificate();
  CMSG_SIGNER_ENCODE_INFO signers[] = {
      record_, SignerRecord(otherCertificate->pCertInfo, other.provider.get(), szOID_GOST_R3411_2012_256)};
  info_.cSigners = 2;
  info_.rgSigners = signers;
  EXPECT_TRUE(AddESAttributesToEncodeInfo(nullptr, SVCMSG_CADES_STRICT, &chain_));
  EXPECT_FALSE(AddESAttributesToEncodeInfo(&info_, SVCMSG_CADES_STRICT, &chain_));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_SIGNER_NOT_FOUND});
  EXPECT_EQ(signers[0].cAuthAttr, 2u);
  EXPECT_EQ(signers[1].cAuthAttr, 0u);
  info_.cbSize = 15;
  signers[0].cAuthAttr = 0;
  EXPECT_TRUE(AddESAttributesToEncodeInfo(&info_, SVCMSG_CADES_STRICT, &chain_));
  EXPECT_EQ(signers[0].cAuthAttr, 0u);
}

// --- repair ---

TEST(GostRepair, ASignersHashFollowsItsProvider) {
  struct Case {
    DWORD provider;
    const char* hash;
    const char* repaired;
  };
  const Case kCases[] = {
      {PROV_GOST_2012_256, "2.16.840.1.101.3.4.2.1", szOID_GOST_R3411_2012_256},
      {PROV_GOST_2012_512, "1.2.840.113549.2.5",     szOID_GOST_R3411_2012_512},
      {PROV_GOST_2001_DH,  "1.3.14.3.2.26",          szOID_GOST_R3411_94      },
      {PROV_GOST_2012_512, szOID_GOST_R3411_94,      szOID_GOST_R3411_94      },
      {PROV_RSA_AES,       "1.2.840.113549.2.5",     "1.2.840.113549.2.5"     },
  };
  BYTE null[] = {5, 0};
  for (const auto& [type, hash, repaired] : kCases) {
    SCOPED_TRACE(std::to_string(type) + " " + hash);
    const TestSigner signer = MakeSigner(type);
    const Certificate certificate = signer.certificate();
    CMSG_SIGNER_ENCODE_INFO record = SignerRecord(certificate->pCertInfo, signer.provider.get(), hash);
    record.HashAlgorithm.Parameters = {sizeof null, null};
    PrepareHashCompatibleSigner(&record);
    EXPECT_STREQ(record.HashAlgorithm.pszObjId, repaired);
    EXPECT_EQ(record.HashAlgorithm.Parameters.cbData, std::strcmp(hash, repaired) == 0 ? 2u : 0u);
    CRYPT_SIGN_MESSAGE_PARA para{};
    para.cbSize = sizeof para;
    para.pSigningCert = certificate.get();
    para.HashAlgorithm = Algorithm(hash);
    PrepareHashCompatibleSignMessage(&para);
    EXPECT_STREQ(para.HashAlgorithm.pszObjId, repaired);
  }
  const TestSigner signer = GostSigner();
  CMSG_SIGNER_ENCODE_INFO records[] = {SignerRecord(nullptr, 0, "1.2.3"),
                                       SignerRecord(nullptr, signer.provider.get(), "1.2.3"),
                                       SignerRecord(nullptr, signer.provider.get(), nullptr)};
  CMSG_SIGNED_ENCODE_INFO info{sizeof info, 3, records, 0, nullptr, 0, nullptr, 0, nullptr};
  TryUpdateEncodeInfoToGostCompatible(&info, CMSG_SIGNED);
  EXPECT_STREQ(records[0].HashAlgorithm.pszObjId, "1.2.3");
  EXPECT_STREQ(records[1].HashAlgorithm.pszObjId, szOID_GOST_R3411_94) << "no key to ask";
  EXPECT_EQ(records[2].HashAlgorithm.pszObjId, nullptr);
}

TEST(GostRepair, ACipherFollowsTheFirstGostRecipient) {
  constexpr char kTripleDes[] = "1.2.840.113549.3.7";
  KeyProvider gost, rsa;
  ASSERT_TRUE(CryptAcquireContextW(gost.out(), nullptr, nullptr, PROV_GOST_2012_256, CRYPT_VERIFYCONTEXT));
  ASSERT_TRUE(CryptAcquireContextW(rsa.out(), nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT));
  CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO rsaTransport{}, cutTransport{};
  rsaTransport.cbSize = sizeof rsaTransport;
  rsaTransport.KeyEncryptionAlgorithm = Algorithm(szOID_RSA_RSA);
  cutTransport.cbSize = 31;
  cutTransport.KeyEncryptionAlgorithm = Algorithm(szOID_GOST_R3410_2001);
  CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO gostAgreement{};
  gostAgreement.cbSize = sizeof gostAgreement;
  gostAgreement.KeyEncryptionAlgorithm = Algorithm(szOID_GOST_R3410_2012_512);
  CMSG_RECIPIENT_ENCODE_INFO recipients[4]{};
  recipients[0].dwRecipientChoice = CMSG_MAIL_LIST_RECIPIENT;
  recipients[1] = {CMSG_KEY_TRANS_RECIPIENT, {&cutTransport}};
  recipients[2] = {CMSG_KEY_TRANS_RECIPIENT, {&rsaTransport}};
  recipients[3].dwRecipientChoice = CMSG_KEY_AGREE_RECIPIENT;
  recipients[3].pKeyAgree = &gostAgreement;
  const auto repair = [&](const char* cipher, HCRYPTPROV provider, DWORD count) {
    CMSG_ENVELOPED_ENCODE_INFO info{};
    info.cbSize = sizeof info;
    info.hCryptProv = provider;
    info.ContentEncryptionAlgorithm = Algorithm(cipher);
    info.cRecipients = count;
    info.rgCmsRecipients = recipients;
    TryUpdateEncodeInfoToGostCompatible(&info, CMSG_ENVELOPED);
    return std::string(info.ContentEncryptionAlgorithm.pszObjId)
        + (info.hCryptProv == provider ? "" : " without provider");
  };
  EXPECT_EQ(repair(kTripleDes, rsa.get(), 3), kTripleDes);
  EXPECT_EQ(repair(kTripleDes, rsa.get(), 4), szOID_GOST_28147_89 + std::string(" without provider"));
  EXPECT_EQ(repair(kTripleDes, gost.get(), 4), szOID_GOST_28147_89);
  EXPECT_EQ(repair(szOID_GOST_R3412_2015_KUZNYECHIK_CTR_ACPKM_OMAC, gost.get(), 4),
            szOID_GOST_R3412_2015_KUZNYECHIK_CTR_ACPKM_OMAC);

  CERT_INFO recipient{};
  recipient.SubjectPublicKeyInfo.Algorithm = Algorithm(szOID_GOST_R3410_2001);
  CERT_INFO* list[] = {nullptr, &recipient};
  CMSG_ENVELOPED_ENCODE_INFO info{};
  info.cbSize = sizeof info;
  info.ContentEncryptionAlgorithm = Algorithm(kTripleDes);
  info.cRecipients = 2;
  info.rgpRecipients = list;
  TryUpdateEncodeInfoToGostCompatible(&info, CMSG_ENVELOPED);
  EXPECT_STREQ(info.ContentEncryptionAlgorithm.pszObjId, szOID_GOST_28147_89);
}

// --- settings ---

TEST_F(CmsAttributes, DISABLED_SwitchedOff) {
  EXPECT_EQ(add(SVCMSG_CADES_STRICT), 0u);
  EXPECT_EQ(add(SVCMSG_CADES_STRICT | SVCMSG_CADES_DISABLE), 0u);
  EXPECT_THAT(oids(), IsEmpty());
  EXPECT_FALSE(RepairsAlgorithms());
}

TEST(CmsAttributesSettings, CanBeSwitchedOff) {
  EXPECT_TRUE(RepairsAlgorithms());
  RunWithSettings("CmsAttributes.DISABLED_SwitchedOff",
                  "[config.Parameters]\nAddEsAttribute = 0\n[config.Certkern]\nrepair_bad_algs = 0\n");
}

}  // namespace
}  // namespace certkern::test
