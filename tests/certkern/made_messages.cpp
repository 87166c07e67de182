#include "certkern/made_messages.h"

#include <certkern/keykern.h>

#include <gtest/gtest.h>

#include "asn1data/cms.h"
#include "asn1data/cms_contents.h"
#include "asn1rt/message_buffer.h"

namespace fs = std::filesystem;
using namespace certkern::asn1data;

namespace certkern::test {
namespace {

const fs::path& Directory() {
  static const fs::path directory = [] {
    fs::path made = WorkDirectory() / "messages";
    RunShell("sh '" CERTKERN_SOURCE_DIR "/tests/data/make_messages.sh' '" + made.string() + "'");
    return made;
  }();
  return directory;
}

void AddSigners(const fs::path& file, std::vector<SignerSample>& samples) {
  const Bytes message = ReadFile(file);
  ASN1BERDecodeBuffer buffer(message.data(), message.size());
  ASN1T_ContentInfo content;
  ASSERT_EQ(ASN1C_ContentInfo(buffer, content).Decode(), ASN1_OK);
  if (content.content.type != &kInfo_SignedData) return;
  for (ASN1T_SignerInfo& signer : static_cast<ASN1T_SignedData*>(content.content.decoded)->signerInfos) {
    ASN1BEREncodeBuffer out;
    out.context().setSetOrder(SetOrder::AsGiven);
    ASSERT_GT(ASN1C_SignerInfo(out, signer).Encode(), 0);
    samples.push_back({
        file.filename(), {out.GetMsgPtr(), out.GetMsgPtr() + out.GetMsgLen()}
    });
  }
}

}  // namespace

fs::path MadeMessage(const std::string& name) { return Directory() / name; }

const std::vector<SignerSample>& MadeSigners() {
  static const std::vector<SignerSample> samples = [] {
    std::vector<SignerSample> made;
    for (const auto& entry : fs::directory_iterator(Directory())) {
      if (entry.path().string().ends_with(".ContentInfo.der")) AddSigners(entry.path(), made);
    }
    return made;
  }();
  return samples;
}

std::unique_ptr<BYTE[]> DecodeExactly(LPCSTR type, std::span<const BYTE> encoded) {
  const auto decode = [&](void* record, DWORD& size) {
    SetLastError(0);
    return CryptDecodeObject(X509_ASN_ENCODING, type, encoded.data(), static_cast<DWORD>(encoded.size()), 0,
                             record, &size);
  };
  DWORD needed = 0;
  if (!decode(nullptr, needed)) {
    EXPECT_NE(GetLastError(), 0u);
    return nullptr;
  }
  DWORD size = needed - 1;
  const auto small = std::make_unique<BYTE[]>(size);
  EXPECT_FALSE(decode(small.get(), size));
  // the hand-written codec has no code for it
  EXPECT_TRUE(type == X509_CERT_TO_BE_SIGNED || GetLastError() == ERROR_MORE_DATA);
  EXPECT_EQ(size, needed);
  auto record = std::make_unique<BYTE[]>(needed);
  EXPECT_TRUE(decode(record.get(), size));
  EXPECT_EQ(size, needed);
  return record;
}

Bytes EncodeExactly(LPCSTR type, const void* record) {
  DWORD needed = 0;
  SetLastError(0);
  if (!CryptEncodeObject(X509_ASN_ENCODING, type, record, nullptr, &needed)) {
    EXPECT_NE(GetLastError(), 0u);
    return {};
  }
  DWORD size = needed - 1;
  Bytes small(size);
  EXPECT_FALSE(CryptEncodeObject(X509_ASN_ENCODING, type, record, small.data(), &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(size, needed);
  Bytes encoded(needed);
  EXPECT_TRUE(CryptEncodeObject(X509_ASN_ENCODING, type, record, encoded.data(), &size));
  return encoded;
}

}  // namespace certkern::test
