// Store images that a script made from the description of the format, and the same stores as the library writes them.
#include <certkern/errors.h>
#include <certkern/find.h>
#include <certkern/properties.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cwchar>
#include <span>
#include <string>

#include "platform/temporary_directory.h"
#include "store/sample_objects.h"
#include "store/serialized_image.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::test;

namespace {

class ForeignImage : public testing::Test {
 protected:
  void SetUp() override {
    const std::string command =
        "python3 '" CERTKERN_SOURCE_DIR "/tests/data/make_store_image.py' '" + directory.path("") + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
  }
  StoreHandle open(const char* name, DWORD flags) const {
    return StoreHandle(
        AsStore(CertOpenStore(CERT_STORE_PROV_FILENAME_A, 0, 0, flags, directory.path(name).c_str())));
  }
  static std::string saved(const StoreHandle& store) {
    CRYPT_DATA_BLOB blob{};
    EXPECT_TRUE(CertSaveStore(store.get(), 1, CERT_STORE_SAVE_AS_STORE, CERT_STORE_SAVE_TO_MEMORY, &blob, 0));
    std::string bytes(blob.cbData, '?');
    blob.pbData = reinterpret_cast<BYTE*>(bytes.data());
    EXPECT_TRUE(CertSaveStore(store.get(), 1, CERT_STORE_SAVE_AS_STORE, CERT_STORE_SAVE_TO_MEMORY, &blob, 0));
    return bytes;
  }
  TemporaryDirectory directory;
};

std::string Hex(const BYTE* bytes, size_t size) { return ToHex({bytes, size}); }

std::string Line(std::string what, std::span<const BYTE> bytes) {
  return what.append(" ").append(ToHex(bytes)).append("\n");
}

// The properties of one object, through the functions for its type.
template <class Context, class Next, class Get>
std::string PropertyLines(Context context, Next next, Get get) {
  std::string lines;
  for (DWORD id = 0; (id = next(context, id));) {
    // the flat form has a number of its own
    const DWORD asked = id == CERT_KEY_PROV_INFO_PROP_ID ? DWORD{SV_KEY_PROV_INFO_FLAT_PROP_ID} : id;
    DWORD size = 0;
    EXPECT_TRUE(get(context, asked, nullptr, &size)) << id;
    Bytes value(size);
    EXPECT_TRUE(!size || get(context, asked, value.data(), &size)) << id;
    lines += Line(std::string(1, ' ').append(std::to_string(id)), value);
  }
  return lines;
}

std::string ListingOf(const StoreHandle& store) {
  std::string lines;
  for (PCCERT_CONTEXT each = nullptr; (each = CertEnumCertificatesInStore(store.get(), each));) {
    lines += Line("32", {each->pbCertEncoded, each->cbCertEncoded});
    lines += PropertyLines(each, CertEnumCertificateContextProperties, CertGetCertificateContextProperty);
  }
  for (PCCRL_CONTEXT each = nullptr; (each = CertEnumCRLsInStore(store.get(), each));) {
    lines += Line("33", {each->pbCrlEncoded, each->cbCrlEncoded});
    lines += PropertyLines(each, CertEnumCRLContextProperties, CertGetCRLContextProperty);
  }
  return lines;
}

TEST_F(ForeignImage, IsReadWithAllThatItHas) {
  const StoreHandle store = open("given.sto", CERT_STORE_ENUM_ARCHIVED_FLAG | CERT_STORE_OPEN_EXISTING_FLAG);
  ASSERT_TRUE(store) << GetLastError();
  EXPECT_EQ(ListingOf(store), directory.read("listing.txt"));
  EXPECT_TRUE(saved(store) == directory.read("written.sto"));

  const CertificateHandle second(
      CertEnumCertificatesInStore(store.get(), CertEnumCertificatesInStore(store.get(), nullptr)));
  DWORD size = 0;
  ASSERT_TRUE(CertGetCertificateContextProperty(second.get(), CERT_KEY_PROV_INFO_PROP_ID, nullptr, &size));
  std::vector<uint64_t> room(size / 8 + 1);
  ASSERT_TRUE(
      CertGetCertificateContextProperty(second.get(), CERT_KEY_PROV_INFO_PROP_ID, room.data(), &size));
  const auto& info = *reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(room.data());
  EXPECT_STREQ(info.pwszContainerName, L"\U0001F511 container");
  EXPECT_STREQ(info.pwszProvName, L"Provider");
  EXPECT_EQ(info.dwProvType + info.dwFlags + info.dwKeySpec, 80u + 0x20 + 1);
  ASSERT_EQ(info.cProvParam, 3u);
  EXPECT_EQ(Hex(info.rgProvParam[0].pbData, info.rgProvParam[0].cbData), "3132333435");
  EXPECT_EQ(info.rgProvParam[1].cbData, 0u);
  EXPECT_EQ(info.rgProvParam[2].dwParam, 35u);
}

TEST_F(ForeignImage, IsWrittenByteForByte) {
  const StoreHandle source = open("given.sto", CERT_STORE_OPEN_EXISTING_FLAG);
  const StoreHandle store(AsStore(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr)));
  ASSERT_TRUE(source && store);
  // by their bytes, so that no property comes along
  PCCERT_CONTEXT given[2] = {nullptr, nullptr};
  given[1] = CertEnumCertificatesInStore(source.get(), nullptr);
  given[0] = CertEnumCertificatesInStore(source.get(), CertDuplicateCertificateContext(given[1]));
  for (PCCERT_CONTEXT& each : given) {
    const CertificateHandle old(each);
    ASSERT_TRUE(CertAddEncodedCertificateToStore(store.get(), 1, old->pbCertEncoded, old->cbCertEncoded,
                                                 CERT_STORE_ADD_NEW, &each));
  }
  const CertificateHandle first(given[0]), second(given[1]);
  const auto setName = [&](const wchar_t* name) {
    CRYPT_DATA_BLOB blob{static_cast<DWORD>((std::wcslen(name) + 1) * sizeof(wchar_t)),
                         reinterpret_cast<BYTE*>(const_cast<wchar_t*>(name))};
    EXPECT_TRUE(CertSetCertificateContextProperty(first.get(), CERT_FRIENDLY_NAME_PROP_ID, 0, &blob));
  };
  setName(L"one");
  BYTE data[] = {'a', 'b', 'c'};
  CRYPT_KEY_PROV_PARAM parameter{1, data, sizeof data, 0};
  wchar_t container[] = L"container";
  const CRYPT_KEY_PROV_INFO info{container, nullptr, 75, 0, 1, &parameter, 2};
  EXPECT_TRUE(CertSetCertificateContextProperty(first.get(), CERT_KEY_PROV_INFO_PROP_ID, 0, &info));
  setName(L"two");

  CrlHandle crl(CertEnumCRLsInStore(source.get(), CertEnumCRLsInStore(source.get(), nullptr)));
  PCCRL_CONTEXT added = nullptr;
  ASSERT_TRUE(CertAddEncodedCRLToStore(store.get(), 1, crl->pbCrlEncoded, crl->cbCrlEncoded,
                                       CERT_STORE_ADD_NEW, &added));
  crl.reset(added);
  BYTE raw[] = {'r', 'a', 'w'};
  const CRYPT_DATA_BLOB blob{sizeof raw, raw};
  EXPECT_TRUE(CertSetCRLContextProperty(added, 200, 0, &blob));
  const std::string written = saved(store), expected = directory.read("made.sto");
  EXPECT_EQ(ToHex({reinterpret_cast<const BYTE*>(written.data()), written.size()}),
            ToHex({reinterpret_cast<const BYTE*>(expected.data()), expected.size()}));
}

// Every byte of a real store flipped in turn: refused, or a whole store that writes what it reads again.
TEST_F(ForeignImage, DamagedEverywhere) {
  const std::string image = directory.read("made.sto");
  const auto load = [](const std::string& bytes) {
    const Bytes exact(bytes.begin(), bytes.end());
    const CRYPT_DATA_BLOB blob{static_cast<DWORD>(exact.size()), const_cast<BYTE*>(exact.data())};
    SetLastError(0);
    return StoreHandle(
        AsStore(CertOpenStore(CERT_STORE_PROV_SERIALIZED, 0, 0, CERT_STORE_ENUM_ARCHIVED_FLAG, &blob)));
  };
  for (size_t size = 0; size < image.size(); ++size) {
    EXPECT_FALSE(load(image.substr(0, size))) << size;
    EXPECT_TRUE(GetLastError() == ERROR_END_OF_MEDIA || GetLastError() == CRYPT_E_FILE_ERROR) << size;
  }
  for (size_t at = 0; at < image.size(); ++at) {
    std::string damaged = image;
    damaged[at] = static_cast<char>(~damaged[at]);
    const StoreHandle store = load(damaged);
    if (!store) {
      EXPECT_NE(GetLastError(), 0u) << at;
      continue;
    }
    const std::string written = saved(store);
    const StoreHandle again = load(written);
    ASSERT_TRUE(again) << at;
    EXPECT_TRUE(saved(again) == written) << at;
    for (PCCERT_CONTEXT each = nullptr; (each = CertEnumCertificatesInStore(store.get(), each));) {
      DWORD size = 0;
      CertGetCertificateContextProperty(each, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &size);
      CertGetCertificateContextProperty(each, CERT_KEY_IDENTIFIER_PROP_ID, nullptr, &size);
    }
  }
}

}  // namespace
