// Every sample of the generated routes cut at each length and changed at each byte: no crash, and a defined answer.
#include <certkern/keykern.h>
#include <certkern/msg.h>
#include <certkern/ocsp.h>

#include <gtest/gtest.h>

#include "certkern/made_messages.h"
#include "support/hex.h"

using namespace certkern::test;

namespace {

struct Sample {
  LPCSTR type;
  Bytes encoded;
};

std::vector<Sample> Samples() {
  std::vector<Sample> samples;
  const auto add = [&](LPCSTR type, Bytes encoded) {
    samples.push_back({type, std::move(encoded)});
    return samples.back().encoded;
  };
  const Bytes request = add(OCSP_SIGNED_REQUEST, ReadFile(MadeMessage("one.OCSPRequest.der")));
  add(OCSP_REQUEST, BytesOf(Read<OCSP_SIGNED_REQUEST_INFO>(OCSP_SIGNED_REQUEST, request)->ToBeSigned));
  const Bytes response = add(OCSP_RESPONSE, ReadFile(MadeMessage("three.OCSPResponse.der")));
  const Bytes basic =
      add(OCSP_BASIC_SIGNED_RESPONSE, BytesOf(Read<OCSP_RESPONSE_INFO>(OCSP_RESPONSE, response)->Value));
  add(OCSP_BASIC_RESPONSE,
      BytesOf(Read<OCSP_BASIC_SIGNED_RESPONSE_INFO>(OCSP_BASIC_SIGNED_RESPONSE, basic)->ToBeSigned));
  const Bytes signer = add(PKCS7_SIGNER_INFO, MadeSigners().front().encoded);
  add(CMS_SIGNER_INFO, signer);
  const Read<CMSG_CMS_SIGNER_INFO> record(CMS_SIGNER_INFO, signer);
  if (record->AuthAttrs.cAttr) add(PKCS_ATTRIBUTE, EncodeExactly(PKCS_ATTRIBUTE, record->AuthAttrs.rgAttr));
  return samples;
}

// What is read has an encoding, or is refused with a code; either way within its buffers.
bool TryAs(LPCSTR type, std::span<const BYTE> input) {
  const Bytes exact(input.begin(), input.end());
  const auto record = DecodeExactly(type, exact);
  if (!record) return false;
  static_cast<void>(EncodeExactly(type, record.get()));
  return true;
}

}  // namespace

TEST(GeneratedRoutes, BadInput) {
  for (const auto& [type, encoded] : Samples()) {
    SCOPED_TRACE(reinterpret_cast<uintptr_t>(type));
    EXPECT_TRUE(TryAs(type, encoded));
    for (size_t size = 0; size < encoded.size(); ++size) {
      ASSERT_FALSE(TryAs(type, {encoded.data(), size})) << "cut to " << size;
    }
    for (size_t at = 0; at < encoded.size() && !testing::Test::HasFailure(); ++at) {
      SCOPED_TRACE(at);
      for (const int flip : {0x01, 0x20, 0x7F, 0x80}) {
        Bytes changed = encoded;
        changed[at] = static_cast<BYTE>(changed[at] ^ flip);
        static_cast<void>(TryAs(type, changed));
      }
    }
  }
}

TEST(GeneratedRoutes, Codes) {
  const Bytes deep = [] {
    Bytes nested;
    for (int i = 0; i < 4000; ++i) nested.insert(nested.end(), {0x30, 0x80});
    return nested;
  }();
  for (const LPCSTR type : {PKCS_ATTRIBUTE, PKCS7_SIGNER_INFO, CMS_SIGNER_INFO, OCSP_SIGNED_REQUEST,
                            OCSP_REQUEST, OCSP_RESPONSE, OCSP_BASIC_SIGNED_RESPONSE, OCSP_BASIC_RESPONSE}) {
    SCOPED_TRACE(reinterpret_cast<uintptr_t>(type));
    for (const Bytes& bad : {FromHex("0500"), FromHex("30"), FromHex("3084FFFFFFFF"), deep}) {
      EXPECT_FALSE(TryAs(type, bad));
      EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_BAD_ENCODE});
    }
    EXPECT_FALSE(TryAs(type, {}));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER}) << "nothing is never decoded";
  }
}
