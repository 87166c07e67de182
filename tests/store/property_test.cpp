// Properties: what is computed, what may be set, how it is read back, and the flat form of the key information.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/limits.h"
#include "store/context_property.h"
#include "store/key_provider_info.h"
#include "store/sample_objects.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::test;

namespace {

// The value as hexadecimal, or the code of the failure.
std::string Property(PCCERT_CONTEXT context, DWORD id) {
  DWORD size = 0;
  if (!CertGetCertificateContextProperty(context, id, nullptr, &size)) return std::to_string(GetLastError());
  Bytes value(size);
  EXPECT_TRUE(CertGetCertificateContextProperty(context, id, value.data(), &size));
  return ToHex(value);
}
std::string Code(DWORD code) { return std::to_string(code); }

bool Set(PCCERT_CONTEXT context, DWORD id, const Bytes& value) {
  Bytes copy = value;
  const CRYPT_DATA_BLOB blob{static_cast<DWORD>(copy.size()), copy.data()};
  return CertSetCertificateContextProperty(context, id, 0, &blob);
}

std::string Ids(PCCERT_CONTEXT context) {
  std::string all;
  for (DWORD id = 0; (id = CertEnumCertificateContextProperties(context, id)) != 0;)
    all += std::to_string(id) + ' ';
  return all;
}

Bytes ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Values by "openssl x509 -fingerprint", "openssl dgst" over the signed part, and the certificate's own extension.
TEST(Property, Computed) {
  const CertificateHandle context = CreateCertificate(OpensslCertificate());
  EXPECT_EQ(Ids(context.get()), "");
  EXPECT_EQ(Property(context.get(), CERT_MD5_HASH_PROP_ID), "47268C971EC7BF0E86F9E62ADAD99BA7");
  EXPECT_EQ(Property(context.get(), CERT_SHA1_HASH_PROP_ID), "65817B3C417E94CFFAB30D80D5CE015B8E028D05");
  EXPECT_EQ(Property(context.get(), CERT_SIGNATURE_HASH_PROP_ID),
            "1750F9BDF310AE4D2F0888CFD614618B62F9D7CCF3B35DE50CE79D83138CDBF7");
  EXPECT_EQ(Property(context.get(), CERT_KEY_IDENTIFIER_PROP_ID), "305897F7CA830EB23737D6B04D0AA497A8EC6D0E");
  EXPECT_EQ(Property(context.get(), SV_CRL_ISSUER_PROP_ID), Code(CRYPT_E_NOT_FOUND));
  EXPECT_EQ(Property(context.get(), CERT_ENHKEY_USAGE_PROP_ID), Code(CRYPT_E_NOT_FOUND));
  EXPECT_EQ(Ids(context.get()), "4 3 15 20 ") << "in the order of asking";
  EXPECT_TRUE(Set(context.get(), CERT_MD5_HASH_PROP_ID, {1, 2}));
  EXPECT_EQ(Property(context.get(), CERT_MD5_HASH_PROP_ID), "0102") << "what was set goes first";
  EXPECT_EQ(Ids(context.get()), "3 15 20 4 ");
}

TEST(Property, KeyIdentifier) {
  const struct {
    const char* name;
    Bytes extension;  // content of the subject key identifier
    std::string value;
  } kCases[] = {
  // the same key as the certificate of openssl, whose extension is this hash
      {"no extension",    {},                    "305897F7CA830EB23737D6B04D0AA497A8EC6D0E"},
      {"as stated",       FromHex("04020102"),   "0102"                                    },
      {"a longer length", FromHex("0481020102"), "0102"                                    },
      {"empty",           FromHex("0400"),       Code(CRYPT_E_NOT_FOUND)                   },
      {"cut short",       FromHex("04050102"),   Code(CRYPT_E_ASN1_EOD)                    },
      {"no OCTET STRING", FromHex("02020102"),   Code(CRYPT_E_ASN1_BADTAG)                 },
  };
  for (const auto& [name, extension, value] : kCases) {
    SCOPED_TRACE(name);
    const CertificateHandle context = CreateCertificate(
        MakeCertificate({.extensions = extension.empty() ? Bytes{} : MakeExtension(14, extension)}));
    ASSERT_TRUE(context);
    EXPECT_EQ(Property(context.get(), CERT_KEY_IDENTIFIER_PROP_ID), value);
  }
}

// The signed hash has room for 256 bits. RFC 9215, D.2 and D.3.
TEST(Property, SignatureHashHas32Bytes) {
  const std::string folder = std::string(CERTKERN_SOURCE_DIR) + "/tests/data/published/rfc9215/";
  const CertificateHandle small = CreateCertificate(ReadFile(folder + "d2_certificate.der"));
  EXPECT_EQ(Property(small.get(), CERT_SIGNATURE_HASH_PROP_ID).size(), 64u);
  const CertificateHandle large = CreateCertificate(ReadFile(folder + "d3_certificate.der"));
  EXPECT_EQ(Property(large.get(), CERT_SIGNATURE_HASH_PROP_ID), Code(ERROR_MORE_DATA));
  EXPECT_EQ(Ids(large.get()), "") << "a failed computation leaves nothing";
}

TEST(Property, CrlIssuer) {
  const Bytes encoded = MakeCrl({.issuer = "x"});
  const CrlHandle context = CreateCrl(encoded);
  ASSERT_TRUE(context);
  DWORD size = 0;
  EXPECT_TRUE(CertGetCRLContextProperty(context.get(), SV_CRL_ISSUER_PROP_ID, nullptr, &size));
  Bytes value(size);
  EXPECT_TRUE(CertGetCRLContextProperty(context.get(), SV_CRL_ISSUER_PROP_ID, value.data(), &size));
  EXPECT_EQ(ToHex(value), "300C310A300806035504030C0178");
  EXPECT_FALSE(CertGetCRLContextProperty(context.get(), CERT_KEY_IDENTIFIER_PROP_ID, nullptr, &size));
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_NOT_FOUND});
}

TEST(Property, SettingAndRefusing) {
  const CertificateHandle certificate = CreateCertificate(MakeCertificate({}));
  const CrlHandle crl = CreateCrl(MakeCrl({}));
  const Bytes value = {1};
  CRYPT_DATA_BLOB blob{1, const_cast<BYTE*>(value.data())};
  const std::vector<DWORD> certificateRefused = {0, 1, 6, 14, 27, 78, 79, 99, 100};
  const std::vector<DWORD> crlRefused = {0, 1, 6, 10, 14};
  const auto refused = [](const std::vector<DWORD>& ids, DWORD id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
  };
  for (DWORD id = 0; id < 130; ++id) {
    if (id == CERT_KEY_PROV_INFO_PROP_ID || id == CERT_KEY_CONTEXT_PROP_ID) continue;
    EXPECT_EQ(CertSetCertificateContextProperty(certificate.get(), id, 0, &blob),
              !refused(certificateRefused, id))
        << id;
    EXPECT_EQ(CertSetCRLContextProperty(crl.get(), id, 0, &blob), !refused(crlRefused, id)) << id;
  }
  blob.pbData = nullptr;
  EXPECT_FALSE(CertSetCertificateContextProperty(certificate.get(), 9, 0, &blob));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Property(certificate.get(), 9), "01") << "a refused value leaves the old one";

  blob.cbData = 0;
  EXPECT_TRUE(CertSetCertificateContextProperty(certificate.get(), CERT_ARCHIVED_PROP_ID, 0, &blob));
  EXPECT_EQ(Property(certificate.get(), CERT_ARCHIVED_PROP_ID), "") << "empty, and there";
  EXPECT_TRUE(CertSetCertificateContextProperty(certificate.get(), CERT_ARCHIVED_PROP_ID, 0, nullptr));
  EXPECT_EQ(Property(certificate.get(), CERT_ARCHIVED_PROP_ID), Code(CRYPT_E_NOT_FOUND));
  EXPECT_TRUE(CertSetCertificateContextProperty(certificate.get(), CERT_ARCHIVED_PROP_ID, 0, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_FOUND});
}

TEST(Property, Sizes) {
  const CertificateHandle context = CreateCertificate(MakeCertificate({}));
  BYTE value[21];
  DWORD size = 19;
  EXPECT_FALSE(CertGetCertificateContextProperty(context.get(), CERT_SHA1_HASH_PROP_ID, value, &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(size, 20u);
  size = 21;
  EXPECT_TRUE(CertGetCertificateContextProperty(context.get(), CERT_SHA1_HASH_PROP_ID, value, &size));
  EXPECT_EQ(size, 20u);
  EXPECT_FALSE(CertGetCertificateContextProperty(context.get(), CERT_SHA1_HASH_PROP_ID, value, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(CertGetCertificateContextProperty(context.get(), 0, nullptr, &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

bool IsOpen(HCRYPTPROV provider) {
  BYTE random;
  return CryptGenRandom(provider, 1, &random);
}

// As many properties as may be read, onto an element that has them already, in an order that makes each look-up long.
TEST(Property, ManyAreTakenAtOnce) {
  constexpr DWORD kMany = kMaxElementProperties;
  const PropertyBlockOwner source = NewPropertyBlock(), target = NewPropertyBlock();
  constexpr BYTE kOld = 1, kNew = 2;
  for (DWORD i = 0; i < kMany; ++i) {
    source->items.append(NewPropertyItem(1001 + i, std::span(&kNew, 1)));
    target->items.append(NewPropertyItem(999 + kMany - i, std::span(&kOld, 1)));
  }
  const clock_t begin = std::clock();
  ASSERT_TRUE(CopyProperties(*source.get(), *target.get()));
  EXPECT_LT(std::clock() - begin, CLOCKS_PER_SEC / 2);
  const PropertyItem* item = target->items.first();
  EXPECT_TRUE(item->id == 1000 && item->bytes()[0] == kOld) << "what the source does not have stays in front";
  DWORD expected = 1001;
  while ((item = item->next) && item->id == expected && item->bytes()[0] == kNew) ++expected;
  EXPECT_EQ(item, nullptr);
  EXPECT_EQ(expected, 1001 + kMany);
}

TEST(Property, KeyContextOwnsItsProvider) {
  const HCRYPTPROV first = SVAPI_I_GetDefaultProvider(PROV_GOST_2012_256);
  const HCRYPTPROV second = SVAPI_I_GetDefaultProvider(PROV_GOST_2012_256);
  const HCRYPTPROV third = SVAPI_I_GetDefaultProvider(PROV_GOST_2012_256);
  CertificateHandle context = CreateCertificate(MakeCertificate({}));
  const auto set = [&](HCRYPTPROV provider, DWORD size = sizeof(CERT_KEY_CONTEXT)) {
    CERT_KEY_CONTEXT value{};
    value.cbSize = size;
    value.hCryptProv = provider;
    value.dwKeySpec = AT_SIGNATURE;
    return CertSetCertificateContextProperty(context.get(), CERT_KEY_CONTEXT_PROP_ID, 0, &value) != FALSE;
  };
  EXPECT_EQ(Property(context.get(), CERT_KEY_CONTEXT_PROP_ID), Code(CRYPT_E_NOT_FOUND));
  EXPECT_FALSE(set(first, 23));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_TRUE(set(first));
  EXPECT_TRUE(set(first)) << "the same one again";
  EXPECT_TRUE(IsOpen(first));
  EXPECT_EQ(Ids(context.get()), "");
  CERT_KEY_CONTEXT read{};
  DWORD size = sizeof read;
  EXPECT_TRUE(CertGetCertificateContextProperty(context.get(), CERT_KEY_CONTEXT_PROP_ID, &read, &size));
  EXPECT_EQ(read.hCryptProv, first);
  EXPECT_TRUE(set(second));
  EXPECT_FALSE(IsOpen(first)) << "replaced, released";
  EXPECT_TRUE(CertSetCertificateContextProperty(context.get(), CERT_KEY_CONTEXT_PROP_ID, 0, nullptr));
  EXPECT_FALSE(IsOpen(second));
  EXPECT_TRUE(set(third));
  context.reset();
  EXPECT_FALSE(IsOpen(third)) << "released with the last context";
}

// --- the flat form ---

struct InfoTraits {
  DWORD flags = 0;
  std::vector<std::string> parameters = {};
};
// What is read back from a certificate that these were set on: flat form, then the expanded size.
std::pair<std::string, DWORD> Flatten(const InfoTraits& traits, LPCWSTR container, LPCWSTR provider) {
  std::vector<CRYPT_KEY_PROV_PARAM> parameters;
  for (const std::string& data : traits.parameters) {
    auto* const bytes = reinterpret_cast<BYTE*>(const_cast<char*>(data.data()));
    parameters.push_back({33, bytes, static_cast<DWORD>(data.size()), 0});
  }
  CRYPT_KEY_PROV_INFO info{};
  info.pwszContainerName = const_cast<LPWSTR>(container);
  info.pwszProvName = const_cast<LPWSTR>(provider);
  info.dwProvType = PROV_GOST_2012_256;
  info.dwFlags = traits.flags;
  info.cProvParam = static_cast<DWORD>(parameters.size());
  info.rgProvParam = parameters.data();
  info.dwKeySpec = AT_KEYEXCHANGE;
  const CertificateHandle context = CreateCertificate(MakeCertificate({}));
  EXPECT_TRUE(CertSetCertificateContextProperty(context.get(), CERT_KEY_PROV_INFO_PROP_ID, 0, &info));
  DWORD size = 0;
  EXPECT_TRUE(CertGetCertificateContextProperty(context.get(), CERT_KEY_PROV_INFO_PROP_ID, nullptr, &size));
  Bytes expanded(size);
  EXPECT_TRUE(
      CertGetCertificateContextProperty(context.get(), CERT_KEY_PROV_INFO_PROP_ID, expanded.data(), &size));
  const auto& read = *reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(expanded.data());
  EXPECT_EQ(read.pwszContainerName ? read.pwszContainerName : L"-",
            std::wstring(container ? container : L"-"));
  EXPECT_EQ(read.pwszProvName ? read.pwszProvName : L"-", std::wstring(provider ? provider : L"-"));
  EXPECT_EQ(read.dwProvType, info.dwProvType);
  EXPECT_EQ(read.dwFlags, traits.flags);
  EXPECT_EQ(read.dwKeySpec, info.dwKeySpec);
  for (size_t i = 0; i < read.cProvParam; ++i) {
    const CRYPT_KEY_PROV_PARAM& each = read.rgProvParam[i];
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(each.pbData), each.cbData), traits.parameters.at(i));
    EXPECT_EQ(each.dwParam, 33u);
  }
  EXPECT_EQ(read.cProvParam, traits.parameters.size());
  return {Property(context.get(), SV_KEY_PROV_INFO_FLAT_PROP_ID), size};
}

constexpr char kPlainFlat[] =
    "1C00000024000000500000002000000000000000000000000100000061006200630000005000000000000000";

TEST(KeyProviderInfo, FlatFormAndSizes) {
  EXPECT_EQ(Flatten({.flags = 0x20}, L"abc", L"P"), std::make_pair(std::string(kPlainFlat), DWORD{72}));
  EXPECT_EQ(Flatten({.parameters = {"12345"}}, L"abc", L"P"),
            std::make_pair(std::string("340000003C0000005000000000000000010000001C00000001000000"
                                       "210000002C000000050000000000000031323334350000006100620063000000"
                                       "5000000000000000"),
                           DWORD{104}));
  EXPECT_EQ(Flatten({.parameters = {"12345678"}}, L"abc", L"P").second, 108u);
  EXPECT_EQ(Flatten({}, nullptr, nullptr).first, "00000000000000005000000000000000000000000000000001000000");
  EXPECT_EQ(Flatten(
                {
                    .parameters = {"", "x"}
  },
                nullptr, L"")
                .second,
            48u + 48 + 4 + 4 + 4);
  // beyond the first plane a character is two units
  EXPECT_EQ(Flatten({}, L"\x1F511", nullptr).first.substr(56), "3DD811DD00000000");
}

TEST(KeyProviderInfo, RecordsWithHolesAreRefused) {
  CRYPT_KEY_PROV_PARAM parameter{33, nullptr, 5, 0};
  CRYPT_KEY_PROV_INFO info{};
  info.cProvParam = 1;
  EXPECT_FALSE(FlattenKeyProviderInfo(info));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  info.rgProvParam = &parameter;
  EXPECT_FALSE(FlattenKeyProviderInfo(info));
  info.cProvParam = 0;
  EXPECT_TRUE(FlattenKeyProviderInfo(info)) << "a count of none reads no array";
}

TEST(KeyProviderInfo, DamagedForms) {
  const struct {
    const char* name;
    const char* hex;
    bool good;
  } kCases[] = {
      {"as written",                    kPlainFlat,                                                   true },
      {"27 bytes",                      "000000000000000050000000000000000000000000000000010000",     false},
      {"a count without its offset",
       "00000000000000005000000000000000010000000000000001000000"
       "21000000000000000000000000000000",                                                            false},
      {"an offset without a count",     "0000000000000000500000000000000000000000 1C000000 01000000", false},
      {"more parameters than bytes",    "0000000000000000500000000000000000000010 1C000000 01000000", false},
      {"a parameter of 4 GiB",
       "00000000000000005000000000000000010000001C00000001000000"
       "210000002C000000FFFFFFFF00000000 0000000000000000",                                           false},
      {"data in the wrong place",
       "00000000000000005000000000000000010000001C00000001000000"
       "210000003000000005000000000000003132333435000000",                                            false},
      {"empty data with an offset",
       "00000000000000005000000000000000010000001C00000001000000"
       "210000002C0000000000000000000000",                                                            false},
      {"a name in the wrong place",
       "20000000000000005000000000000000000000000000000001000000"
       "6100000000000000",                                                                            false},
      {"a name without terminator",
       "1C000000000000005000000000000000000000000000000001000000"
       "6100620063006400",                                                                            true },
      {"its padding is missing",
       "1C000000000000005000000000000000000000000000000001000000"
       "61000000",                                                                                    false},
      {"half a character",
       "1C000000000000005000000000000000000000000000000001000000"
       "610062006300 64",                                                                             false},
      {"bytes behind the last section",
       "1C000000000000005000000000000000000000000000000001000000"
       "6100000000000000 0000000000000000",                                                           false},
      {"a name behind the end",         "1C000000000000005000000000000000000000000000000001000000",   false},
  };
  for (const auto& [name, hex, good] : kCases) {
    SCOPED_TRACE(name);
    DWORD size = 77;
    SetLastError(0);
    const bool expanded = ExpandKeyProviderInfo(FromHex(hex), nullptr, &size);
    EXPECT_EQ(expanded, good);
    EXPECT_EQ(GetLastError(), DWORD{good ? 0u : ERROR_INVALID_DATA});
    EXPECT_EQ(size == 77, !good);
  }
}

TEST(KeyProviderInfo, EveryTruncationAndChangeHasAnAnswer) {
  const Bytes good = FromHex(
      "340000003C0000005000000000000000010000001C00000001000000210000002C000000050000000000000031323334350000"
      "006100"
      "6200630000005000000000000000");
  const auto expand = [](const Bytes& flat) {
    const Bytes exact(flat);  // on the heap: a byte too many is seen
    DWORD size = 0;
    if (!ExpandKeyProviderInfo(exact, nullptr, &size)) return false;
    Bytes record(size);
    EXPECT_TRUE(ExpandKeyProviderInfo(exact, record.data(), &size));
    return true;
  };
  EXPECT_TRUE(expand(good));
  for (size_t size = 0; size < good.size(); ++size) {
    EXPECT_FALSE(expand({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)})) << size;
  }
  for (size_t at = 0; at < good.size(); ++at) {
    for (unsigned value = 0; value < 256; ++value) {
      Bytes bent = good;
      bent[at] = static_cast<BYTE>(value);
      static_cast<void>(expand(bent));
    }
  }
}

// As a file may bring it: the flat form stands in the store as it was read.
TEST(KeyProviderInfo, DamagedFormOnACertificate) {
  const CertificateHandle context = CreateCertificate(MakeCertificate({}));
  ContextRecord& record = *FindLiveContext(context.get());
  record.element().properties->items.append(NewPropertyItem(CERT_KEY_PROV_INFO_PROP_ID, FromHex("0102")));
  EXPECT_EQ(Property(context.get(), CERT_KEY_PROV_INFO_PROP_ID), Code(ERROR_INVALID_DATA));
  EXPECT_EQ(Property(context.get(), SV_KEY_PROV_INFO_FLAT_PROP_ID), "0102");
}

}  // namespace
