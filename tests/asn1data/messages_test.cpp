// What the openssl program makes and what was published: messages of every kind, key files, OCSP, time stamps, certificate
// management. Each is decoded by its type down to the last octet string, and written again it is the same DER.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

#include "asn1data/contained.h"
#include "asn1data/round_trip.h"
#include "interop/openssl_tool.h"
#include "support/hex.h"

namespace fs = std::filesystem;
using namespace certkern;
using namespace certkern::test;

namespace {

// NAME.TYPE.der
std::string TypeOf(const fs::path& file) { return file.stem().extension().string().substr(1); }

// Of a message with indefinite lengths, as the openssl program writes it.
Bytes DefiniteForm(const fs::path& message) {
  const fs::path definite = WorkDirectory() / "definite";
  RunShell("openssl cms -cmsout -noindef -inform DER -outform DER -in '" + message.string() + "' -out '"
           + definite.string() + "'");
  return ReadFile(definite);
}

void ExpectDefinite(const fs::path& message, Names& seen) {
  Decoded decoded("ContentInfo", ReadFile(message));
  ASSERT_TRUE(decoded);
  const Bytes der = decoded.encoded();
  EXPECT_EQ(ToHex(der), ToHex(DefiniteForm(message)));
  ExpectAllComesBack(TypeNamed("ContentInfo"), der, SetOrder::Der, seen);
}

// The older program leaves certificates and lists in the order that they were given in.
bool IsUnsorted(const fs::path& file) {
  static const Names kUnsorted = {"lists", "pkcs7", "token", "policy"};
  return kUnsorted.count(file.stem().stem().string())
      && file.string().find(".TimeStampReq.") == std::string::npos;
}

void ExpectDer(const fs::path& file, const TypeInfo& type, Names& seen) {
  const Bytes bytes = ReadFile(file);
  const bool unsorted = IsUnsorted(file);
  ExpectAllComesBack(type, bytes, unsorted ? SetOrder::AsGiven : SetOrder::Der, seen);
  if (unsorted) {
    EXPECT_NE(ToHex(Decoded(type, bytes).encoded()), ToHex(bytes)) << "is sorted by now";
  }
}

// What each type was met in, at least once.
constexpr const char* kExpected[] = {
    // kinds of messages
    "_simpleData_Type",
    "SignedData",
    "EnvelopedData",
    "DigestedData",
    "EncryptedData",
    "SignerInfo",
    // ways to the key
    "KeyTransRecipientInfo",
    "KeyAgreeRecipientInfo",
    "KEKRecipientInfo",
    "PasswordRecipientInfo",
    "RecipientKeyIdentifier",
    "OriginatorPublicKey",

    // parameters
    "RSAES-OAEP-params",
    "RSASSA-PSS-params",
    "PBKDF2-params",
    "PBES2-params",
    "PbeParams",
    "KeyWrapAlgorithm",
    "CBCParameter",
    "AES-IV",
    "PBMParameter",
    "GostR3410-2012-PublicKeyParameters",
    "Gost28147-89-Parameters",
    // attributes
    "_messageDigest_Type",
    "SigningCertificate",
    "SigningCertificateV2",
    "SMIMECapabilities",
    "Time",
    // key files
    "PFX",
    "MacData",
    "PrivateKeyInfo",
    "EncryptedPrivateKeyInfo",
    "SafeBag",
    "KeyBag",
    "PKCS8ShroudedKeyBag",
    "CertBag",
    "_friendlyName_Type",
    "_localKeyId_Type",
    "_providerName_Type",

    // OCSP
    "OCSPRequest",
    "OCSPSignature",
    "BasicOCSPResponse",
    "RevokedInfo",
    "UnknownInfo",
    "KeyHash",
    // time stamps
    "TimeStampReq",
    "TimeStampResp",
    "TSTInfo",
    "Accuracy",
    "PKIFailureInfo",
    // certificate management
    "PKIMessage",
    "POPOSigningKey",
    "CertRepMessage",
    "CertificationRequest",
    "CertConfirmStatus",
    "RevDetails",
    "RevRepContent",
    "PollReqContent_element",
    "PollRepContent_element",
    "InfoTypeAndValue",
    "OldCertId",
};

}  // namespace

TEST(Messages, ObjectsOfOpensslComeBack) {
  const fs::path directory = WorkDirectory() / "messages";
  RunShell("sh '" CERTKERN_SOURCE_DIR "/tests/data/make_messages.sh' '" + directory.string() + "'");
  Names seen;
  int count = 0;
  for (const auto& entry : fs::directory_iterator(directory)) {
    SCOPED_TRACE(entry.path().filename().string());
    if (entry.path().extension() == ".der")
      ExpectDer(entry.path(), TypeNamed(TypeOf(entry.path()).c_str()), seen);
    else if (entry.path().extension() == ".ber")
      ExpectDefinite(entry.path(), seen);
    else
      continue;
    ++count;
  }
  EXPECT_GT(count, 100);
  for (const char* name : kExpected) EXPECT_TRUE(seen.count(name)) << name << " never came";
}

TEST(Messages, PublishedObjectsComeBack) {
  const std::map<std::string, const char*> types = {
      {".bin", "ContentInfo"    },
      {".der", "ContentInfo"    },
      {".p8",  "PrivateKeyInfo" },
      {".pri", "PrivateKeyInfo" },
      {".crl", "CertificateList"},
  };
  const fs::path published = CERTKERN_SOURCE_DIR "/tests/data/published";
  Names seen;
  for (const auto& entry : fs::recursive_directory_iterator(published)) {
    const auto type = types.find(entry.path().extension().string());
    const std::string name = entry.path().filename().string();
    if (type == types.end() || name == "ExContent.bin" || name.find("cert") != std::string::npos) continue;
    SCOPED_TRACE(entry.path().string());
    const Bytes bytes = ReadFile(entry.path());
    if (bytes.size() > 1 && bytes[1] == 0x80)
      ExpectDefinite(entry.path(), seen);
    else if (entry.path().parent_path().filename() != "rfc9215")
      ExpectAllComesBack(TypeNamed(type->second), bytes, SetOrder::Der, seen);
    else
      ExpectAllComesBack(
          TypeNamed(name.find("crl") != std::string::npos ? "CertificateList" : "CertificationRequest"),
          bytes, SetOrder::Der, seen);
  }
  for (const char* name :
       {"SignerInfo", "KeyAgreeRecipientInfo", "DigestedData", "EncryptedData", "DVCSRequest", "DVCSCertInfo",
        "Countersignature", "Gost3412-15-Encryption-Parameters"})
    EXPECT_TRUE(seen.count(name)) << name << " never came";
}
