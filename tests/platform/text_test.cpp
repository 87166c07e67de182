// Text that crosses code pages, and text that comes from the catalogue.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nl_types.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "fake_support.h"
#include "platform/catalogue.h"
#include "platform/text_conversion.h"
#include "temporary_directory.h"

using namespace certkern;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

TEST(TextConversion, ThereAndBack) {
  const char utf8[] =
      "\xD0\x98\xD0\xB2\xD0\xB0\xD0\xBD \xF0\x9F\x94\x91";  // U+0418 U+0432 U+0430 U+043D, U+1F511
  const WideText wide = WideFromBytes(utf8, CP_UTF8);
  ASSERT_TRUE(wide);
  EXPECT_EQ(std::wstring(wide.get()), L"\x418\x432\x430\x43D \x1F511");
  const ByteText back = BytesFromWide(wide.get(), CP_UTF8);
  ASSERT_TRUE(back);
  EXPECT_STREQ(back.get(), utf8);
  EXPECT_STREQ(RecodeBytes(utf8, CP_UTF8, CP_UTF8).get(), utf8);
  EXPECT_STREQ(RecodeBytes("", CP_UTF8, CP_UTF8).get(), "");
}

TEST(TextConversion, NothingGivesNothing) {
  SetLastError(ERROR_NO_DATA);
  EXPECT_FALSE(WideFromBytes(nullptr, CP_UTF8));
  EXPECT_FALSE(BytesFromWide(nullptr, CP_UTF8));
  EXPECT_FALSE(RecodeBytes(nullptr, CP_ACP, CP_UTF8));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_DATA}) << "no failure";
  EXPECT_FALSE(WideFromBytes("text", 12345)) << "no such code page";
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

class Catalogue : public testing::Test {
 protected:
  Catalogue() { use("/nonexistent/%N"); }
  ~Catalogue() override { test::fakeCatalogueDirectory = nullptr; }
  static void use(const char* searchPath) { setenv("NLSPATH", searchPath, 1); }
  static support_resource fresh() { return {InitMessageCatalogue, reinterpret_cast<void*>(-1)}; }
  static std::string built(const char* language) {
    return std::string(CERTKERN_BINARY_DIR "/catalogue/") + language + "/libcertkern.cat";
  }
  // The language of what was found, told by the text.
  static std::string found() {
    support_resource resource = fresh();
    if (InitMessageCatalogue(&resource) != 0) return "none";
    const std::string text = catgets(resource.catalogue, NL_SETD, kMessageConfirmRootAdd, "no text");
    catclose(resource.catalogue);
    return text.find("Add this") == 0 ? "en" : text.find("Добавить") == 0 ? "ru" : text;
  }
};

TEST_F(Catalogue, BothLanguagesHaveTheText) {
  for (const char* language : {"en", "ru"}) {
    SCOPED_TRACE(language);
    use(built(language).c_str());
    EXPECT_EQ(found(), language);
    const nl_catd catalogue = catopen(built(language).c_str(), 0);
    ASSERT_NE(catalogue, reinterpret_cast<nl_catd>(-1));
    const std::string text = catgets(catalogue, NL_SETD, kMessageConfirmRootAdd, "");
    catclose(catalogue);
    // the reader formats it with exactly these two, into 1023 bytes that must have room for the name
    size_t conversions = 0;
    for (size_t at = text.find('%'); at != text.npos; at = text.find('%', at + 1), ++conversions) {
      EXPECT_EQ(text.substr(at, 2), "%s");
    }
    EXPECT_EQ(conversions, 2u);
    EXPECT_LT(text.size() + 64 + 40, 1023u);
  }
}

TEST_F(Catalogue, PlacesBesideTheDirectoryInOrder) {
  const test::TemporaryDirectory root;
  const std::string locale = std::setlocale(LC_MESSAGES, nullptr);
  const std::string directory = root.path("share/en/LC_MESSAGES");
  const std::string byName = root.path("share/" + locale), inMessages = byName + "/LC_MESSAGES";
  std::filesystem::create_directories(directory);
  std::filesystem::create_directories(inMessages);
  test::fakeCatalogueDirectory = directory.c_str();
  const auto install = [](const char* language, const std::string& folder) {
    std::filesystem::copy_file(built(language), folder + "/libcertkern.cat");
  };
  EXPECT_EQ(found(), "none");
  install("en", directory);
  EXPECT_EQ(found(), "en") << "the directory itself, last";
  install("ru", inMessages);
  EXPECT_EQ(found(), "ru") << "before it the locale's messages";
  install("en", byName);
  EXPECT_EQ(found(), "en") << "before them the locale's folder";
  use(built("ru").c_str());
  EXPECT_EQ(found(), "ru") << "and first of all NLSPATH";
}

TEST_F(Catalogue, ReadThroughADescriptor) {
  support_resource none = fresh();
  SetLastError(0);
  EXPECT_FALSE(ReadMessage(none, kMessageConfirmRootAdd));
  EXPECT_NE(GetLastError(), 0u);

  use(built("en").c_str());
  support_resource english = fresh();
  const ByteText text = ReadMessage(english, kMessageConfirmRootAdd);
  ASSERT_TRUE(text);
  EXPECT_THAT(text.get(), StartsWith("Add this certificate"));
  EXPECT_THAT(text.get(), HasSubstr("from the owner."));
  EXPECT_FALSE(ReadMessage(english, 1));
  EXPECT_NE(GetLastError(), 0u);
  catclose(english.catalogue);
}

}  // namespace
