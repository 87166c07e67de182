// Public keys through the extension library: SubjectPublicKeyInfo and key blobs, all written by openssl (pkey -pubout,
// rsa -outform MSBLOB), with a key level that answers what a test laid down.
#include "platform/extkern.h"
#include "support/hex.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

constexpr char kRsaInfo[] =
    "305c300d06092a864886f70d0101010500034b003048024100aebad694720f25f9e1e3f8255015c7e1dfd6bbc8a6f43266954cca"
    "7d18"
    "1016eb3245c855382585cf7a5324a422694529917cfa103874af64dbea11a8627eddef0203010001";
constexpr char kRsaKey[] =
    "3048024100aebad694720f25f9e1e3f8255015c7e1dfd6bbc8a6f43266954cca7d181016eb3245c855382585cf7a5324a4226945"
    "2991"
    "7cfa103874af64dbea11a8627eddef0203010001";
constexpr char kRsaBlob[] =
    "0602000000a40000525341310002000001000100efdd7e62a811eadb64af743810fa7c9129456922a424537acf85253855c84532"
    "eb16"
    "10187dca4c956632f4a6c8bbd6dfe1c7155025f8e3e1f9250f7294d6baae";
constexpr char kPssInfo[] =
    "305a300b06092a864886f70d01010a034b003048024100aebad694720f25f9e1e3f8255015c7e1dfd6bbc8a6f43266954cca7d18"
    "1016"
    "eb3245c855382585cf7a5324a422694529917cfa103874af64dbea11a8627eddef0203010001";
constexpr char kPssBlob[] =
    "0602000000240000525341310002000001000100efdd7e62a811eadb64af743810fa7c9129456922a424537acf85253855c84532"
    "eb1"
    "610187dca4c956632f4a6c8bbd6dfe1c7155025f8e3e1f9250f7294d6baae";
constexpr char kWideRsaInfo[] =  // exponent 2^33 + 1
    "305e300d06092a864886f70d0101010500034d00304a024100b5360153b6f9fb9ff95d6c8401d786c16a582c732630fa4cf4ca14"
    "fc38"
    "bb5a28abcb656a4e3f5250b5d0db439ea79e150af41e4f2b7bfccbae60859e996495eb02050200000001";
constexpr char kWidePssInfo[] =  // the same key
    "305c300b06092a864886f70d01010a034d00304a024100b5360153b6f9fb9ff95d6c8401d786c16a582c732630fa4cf4ca14fc38"
    "bb5a"
    "28abcb656a4e3f5250b5d0db439ea79e150af41e4f2b7bfccbae60859e996495eb02050200000001";
constexpr char kEcInfo[] =
    "3059301306072a8648ce3d020106082a8648ce3d0301070342000474f432b4e01a34cfe64114ef10a8cdf0834a484766238d0d6f"
    "c247"
    "cb4ed7be0cb44d3e22bf3fc206bc8e70c02acca2e4a4e60d85b59b8862a6e77a4cc3861123";
constexpr char kEdInfo[] =
    "302a300506032b6570032100670ac09d9e08e5c3a883267ea850e0ace9a8918dec0bd4273c7bd2d65c1dbebc";
constexpr char k2012Info[] =
    "3066301f06082a85030701010101301306072a85030202230106082a85030701010202034300044008c8697bc7ec525b1fcebb20"
    "111f"
    "85dc718c2a46b68e25fabfe36c66ac403486dc03d4451de213e17ecb193f9d8c498b544d1c2c4a19e42bdf750026cbc6a435";
constexpr char k2001Info[] =
    "3063301c06062a8503020213301206072a85030202230106072a850302021e010343000440ac5cec8599f833c491ad335e2d8888"
    "2a31"
    "cc7ce8e1b4453b00847e580bf41cf66a67cf35d8b01b83ff9bada12473e30b3e335b3c3df3235f33c7c17ef6053ba3";

// A key, and where its parameters and its bits lie in the encoding.
struct KeySample {
  const char* name;
  XnConvertKey* convert;
  const char* oid;
  const char* info;
  size_t parametersAt;
  size_t parametersSize;
  size_t keyAt;
  const char* algorithm;  // of the blob, as its header has it; empty: the whole blob follows
  const char* body;       // of the blob: one of the encodings above
};
constexpr char kRsa[] = "1.2.840.113549.1.1.1";
constexpr char kPss[] = "1.2.840.113549.1.1.10";
const KeySample kKeys[] = {
    {"RSA",       XnRsaConvertPublicKeyInfo,   kRsa,                kRsaInfo,     15, 2,  20, "",         kRsaBlob    },
    {"PSS",       XnRsaConvertPublicKeyInfo,   kPss,                kPssInfo,     15, 0,  18, "",         kPssBlob    },
    {"RSA, wide", XnRsaConvertPublicKeyInfo,   kRsa,                kWideRsaInfo, 15, 2,  20, "00A40000", kWideRsaInfo},
    {"PSS, wide", XnRsaConvertPublicKeyInfo,   kPss,                kWidePssInfo, 15, 0,  18, "00240000", kWideRsaInfo},
    {"P-256",     XnEcdsaConvertPublicKeyInfo, "1.2.840.10045.2.1", kEcInfo,      13, 10, 26, "03220000", kEcInfo     },
    {"Ed25519",   XnEdDSAConvertPublicKeyInfo, "1.3.101.112",       kEdInfo,      9,  0,  12, "20220000", kEdInfo     },
    {"2012",      XnConvertPublicKeyInfo,      "1.2.643.7.1.1.1.1", k2012Info,    14, 21, 38, "492E0000", k2012Info   },
    {"2001",      XnConvertPublicKeyInfo,      "1.2.643.2.2.19",    k2001Info,    12, 20, 35, "232E0000", k2001Info   },
};
const KeySample& kRsaSample = kKeys[0];
const KeySample& kEcSample = kKeys[4];
const KeySample& kGostSample = kKeys[6];

std::vector<BYTE> BlobOf(const KeySample& sample) {
  const std::string algorithm = sample.algorithm;
  return FromHex((algorithm.empty() ? "" : "06020000" + algorithm + "434B504200000000") + sample.body);
}

// The record of a sample, over bytes of its own.
struct Info {
  explicit Info(const KeySample& sample) : bytes(FromHex(sample.info)) {
    record.Algorithm = {
        const_cast<LPSTR>(sample.oid),
        {static_cast<DWORD>(sample.parametersSize), bytes.data() + sample.parametersAt}
    };
    record.PublicKey = {static_cast<DWORD>(bytes.size() - sample.keyAt), bytes.data() + sample.keyAt, 0};
  }
  std::vector<BYTE> bytes;
  CERT_PUBLIC_KEY_INFO record = {};
};

std::vector<BYTE> Convert(XnConvertKey* convert, CERT_PUBLIC_KEY_INFO& info, ALG_ID algorithm = 0) {
  BYTE* blob = nullptr;
  DWORD size = 0;
  if (!convert(0, &info, algorithm, 0, &blob, &size)) return {};
  const std::unique_ptr<BYTE, decltype(&std::free)> owner(blob, std::free);
  return {blob, blob + size};
}

// --- the key level ---

struct {
  std::vector<BYTE> blob;
  DWORD fault = 0;
  int keys = 0;
} fakeLevel;

}  // namespace

// The program's own functions stand before those of the library.
extern "C" {
BOOL CryptGetUserKey(HCRYPTPROV provider, DWORD keySpec, HCRYPTKEY* key) {
  EXPECT_EQ(provider, 7u);
  EXPECT_EQ(keySpec, DWORD{AT_SIGNATURE});
  *key = 9;
  ++fakeLevel.keys;
  return TRUE;
}
BOOL CryptExportKey(HCRYPTKEY key, HCRYPTKEY wrapping, DWORD type, DWORD flags, BYTE* out, DWORD* size) {
  EXPECT_TRUE(key == 9 && wrapping == 0 && type == PUBLICKEYBLOB && flags == 0);
  if (fakeLevel.fault) SetLastError(fakeLevel.fault);
  if (fakeLevel.fault) return FALSE;
  if (out) std::memcpy(out, fakeLevel.blob.data(), fakeLevel.blob.size());
  *size = static_cast<DWORD>(fakeLevel.blob.size());
  return TRUE;
}
BOOL CryptDestroyKey(HCRYPTKEY) {
  --fakeLevel.keys;
  return TRUE;
}
}

namespace {

// The record in a buffer of exactly the size that was asked for; empty on failure.
std::vector<BYTE> Export(const char* oid, DWORD encoding = X509_ASN_ENCODING) {
  DWORD size = 0;
  const auto call = [&](void* record) {
    return XnDllExportPublicKeyInfoEx(7, AT_SIGNATURE, encoding, const_cast<LPSTR>(oid), 0, nullptr,
                                      static_cast<PCERT_PUBLIC_KEY_INFO>(record), &size);
  };
  if (!call(nullptr)) return {};
  std::vector<BYTE> record(--size);
  EXPECT_FALSE(call(record.data()));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  record.resize(size);
  EXPECT_TRUE(call(record.data()));
  EXPECT_EQ(fakeLevel.keys, 0) << "each key was given back";
  return record;
}

TEST(ConvertPublicKey, BlobsOfEachFamily) {
  for (const KeySample& sample : kKeys) {
    SCOPED_TRACE(sample.name);
    Info info(sample);
    EXPECT_EQ(ToHex(Convert(sample.convert, info.record)), ToHex(BlobOf(sample)))
        << std::hex << GetLastError();
    for (const KeySample& other : kKeys) {
      if (other.convert == sample.convert) continue;
      EXPECT_TRUE(Convert(other.convert, info.record).empty());
      EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_ALGID}) << other.name;
    }
  }
  Info info(kGostSample);
  EXPECT_EQ(ToHex(Convert(XnConvertPublicKeyInfo, info.record, CALG_DH_GR3410_12_256_SF)).substr(8, 8),
            "46AA0000");
}

TEST(ConvertPublicKey, Faults) {
  const auto fault = [](auto change) {
    Info info(kRsaSample);
    change(info.record);
    EXPECT_TRUE(Convert(XnRsaConvertPublicKeyInfo, info.record).empty());
    return GetLastError();
  };
  EXPECT_EQ(fault([](auto& i) { i.Algorithm.pszObjId = nullptr; }), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(fault([](auto& i) { i.PublicKey.pbData = nullptr; }), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(fault([](auto& i) { i.Algorithm.Parameters.pbData = nullptr; }), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(fault([](auto& i) { i.PublicKey.cUnusedBits = 1; }), DWORD{NTE_BAD_DATA});
  EXPECT_EQ(fault([](auto& i) { i.PublicKey.cbData = 0; }), DWORD{NTE_BAD_DATA});
  EXPECT_EQ(fault([](auto& i) { --i.PublicKey.cbData; }), DWORD{NTE_BAD_DATA});
  EXPECT_EQ(fault([](auto& i) { ++i.Algorithm.Parameters.cbData; }), DWORD{NTE_BAD_DATA});
  EXPECT_EQ(fault([](auto& i) { i.Algorithm.Parameters.cbData = 1u << 20; }), DWORD{NTE_BAD_DATA});
  BYTE* blob;
  DWORD size;
  Info info(kRsaSample);
  EXPECT_FALSE(XnRsaConvertPublicKeyInfo(0, &info.record, 0, 1, &blob, &size));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_FLAGS});
  EXPECT_FALSE(XnRsaConvertPublicKeyInfo(0, nullptr, 0, 0, &blob, &size));
  EXPECT_FALSE(XnRsaConvertPublicKeyInfo(0, &info.record, 0, 0, nullptr, &size));
  EXPECT_FALSE(XnRsaConvertPublicKeyInfo(0, &info.record, 0, 0, &blob, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(ExportPublicKey, BlobsBecomeTheirKeys) {
  for (const KeySample& sample : kKeys) {
    SCOPED_TRACE(sample.name);
    Info info(sample);
    fakeLevel = {BlobOf(sample), 0, 0};
    const std::vector<BYTE> bytes = Export(sample.oid == kPss ? kPss : nullptr);
    ASSERT_FALSE(bytes.empty()) << std::hex << GetLastError();
    const auto& record = *reinterpret_cast<const CERT_PUBLIC_KEY_INFO*>(bytes.data());
    EXPECT_STREQ(record.Algorithm.pszObjId, sample.oid);
    const auto hex = [](const BYTE* data, DWORD size) { return ToHex({data, size}); };
    EXPECT_EQ(hex(record.Algorithm.Parameters.pbData, record.Algorithm.Parameters.cbData),
              hex(info.record.Algorithm.Parameters.pbData, info.record.Algorithm.Parameters.cbData));
    EXPECT_EQ(hex(record.PublicKey.pbData, record.PublicKey.cbData),
              hex(info.record.PublicKey.pbData, info.record.PublicKey.cbData));
    EXPECT_EQ(record.PublicKey.cUnusedBits, 0u);
  }
}

TEST(ExportPublicKey, Faults) {
  fakeLevel = {FromHex(kRsaBlob), 0, 0};
  EXPECT_TRUE(Export("no identifier").empty());
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_OID_FORMAT});
  EXPECT_TRUE(Export(nullptr, 0).empty());
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  fakeLevel.fault = NTE_PERM;
  EXPECT_TRUE(Export(nullptr).empty());
  EXPECT_EQ(GetLastError(), DWORD{NTE_PERM});
  EXPECT_EQ(fakeLevel.keys, 0);
  for (const KeySample* sample : {&kRsaSample, &kEcSample}) {  // any piece of a blob is none
    const std::vector<BYTE> whole = BlobOf(*sample);
    for (size_t size = 0; size < whole.size(); ++size) {
      fakeLevel = {
          {whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)},
          0, 0
      };
      EXPECT_TRUE(Export(nullptr).empty());
      EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_DATA});
    }
  }
  DWORD size = 0;
  EXPECT_FALSE(XnDllExportPublicKeyInfoEx(7, AT_SIGNATURE, 1, nullptr, 1, nullptr, nullptr, &size));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_FLAGS});
  EXPECT_FALSE(XnDllExportPublicKeyInfoEx(7, AT_SIGNATURE, 1, nullptr, 0, nullptr, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(RsaPublicKeyBlob, BothWays) {
  const std::vector<BYTE> blob = FromHex(kRsaBlob), key = FromHex(kRsaKey);
  std::vector<BYTE> out(key.size());
  auto size = static_cast<DWORD>(out.size());
  ASSERT_TRUE(XnRsaPublicKeyEncode(1, nullptr, blob.data(), out.data(), &size));
  EXPECT_EQ(ToHex(out), ToHex(key));
  EXPECT_EQ(size, key.size());
  out.resize(--size);
  EXPECT_FALSE(XnRsaPublicKeyEncode(1, nullptr, blob.data(), out.data(), &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(size, key.size());

  size = 0;
  const auto keySize = static_cast<DWORD>(key.size());
  ASSERT_TRUE(XnRsaPublicKeyDecode(1, nullptr, key.data(), keySize, 0, nullptr, &size));
  out.resize(size);
  ASSERT_TRUE(XnRsaPublicKeyDecode(1, nullptr, key.data(), keySize, 0, out.data(), &size));
  EXPECT_EQ(ToHex(out), ToHex(blob));
  --size;
  EXPECT_FALSE(XnRsaPublicKeyDecode(1, nullptr, key.data(), keySize, 0, out.data(), &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
}

TEST(RsaPublicKeyBlob, WhatIsNoKey) {
  // type, version, algorithm, magic, bit lengths of 0 and above every bound: the head alone must tell
  const std::vector<BYTE> good = FromHex(kRsaBlob);
  const auto encodeFault = [](std::vector<BYTE> blob) {
    DWORD size = 0;
    EXPECT_FALSE(XnRsaPublicKeyEncode(1, nullptr, blob.data(), nullptr, &size));
    return GetLastError();
  };
  for (const size_t place : {0, 1, 5, 8, 15}) {
    std::vector<BYTE> blob(good.begin(), good.begin() + 20);
    blob[place] ^= 0x10;
    EXPECT_EQ(encodeFault(blob), DWORD{CRYPT_E_BAD_ENCODE}) << place;
  }
  std::vector<BYTE> zero(good.begin(), good.begin() + 20);
  zero[13] = 0;
  EXPECT_EQ(encodeFault(zero), DWORD{CRYPT_E_BAD_ENCODE}) << "no bits";
  zero[12] = 8;
  zero.push_back(0);
  EXPECT_EQ(encodeFault(zero), DWORD{CRYPT_E_BAD_ENCODE}) << "modulus 0";

  const auto decodeFault = [](const std::vector<BYTE>& key) {
    DWORD size = 0;
    EXPECT_FALSE(
        XnRsaPublicKeyDecode(1, nullptr, key.data(), static_cast<DWORD>(key.size()), 0, nullptr, &size));
    return GetLastError();
  };
  EXPECT_EQ(decodeFault(FromHex("30 06 02 01 00 02 01 03")), DWORD{CRYPT_E_ASN1_CORRUPT});
  EXPECT_EQ(decodeFault(FromHex("30 06 02 01 81 02 01 03")), DWORD{CRYPT_E_ASN1_CORRUPT}) << "negative";
  EXPECT_EQ(decodeFault(FromHex(std::string(kWideRsaInfo).substr(40))), DWORD{CRYPT_E_ASN1_LARGE});
  std::vector<BYTE> key = FromHex("30 82 08 08 02 82 08 01 01");  // one bit more than any key has
  key.resize(key.size() + 2048, 0x55);
  for (const BYTE octet : {2, 1, 3}) key.push_back(octet);
  EXPECT_EQ(decodeFault(key), DWORD{CRYPT_E_ASN1_LARGE});
  const std::vector<BYTE> whole = FromHex(kRsaKey);
  for (size_t cut = 1; cut < whole.size(); ++cut)
    decodeFault({whole.begin(), whole.begin() + static_cast<ptrdiff_t>(cut)});
}

}  // namespace
