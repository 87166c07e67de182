// What the built library lets out: nothing but the exported names, all of them under its version.
#include <gtest/gtest.h>
#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>

namespace {

struct Symbol {
  unsigned long size = 0;
  char kind = 0;
  std::string version;
};

// Defined dynamic symbols of the library.
std::map<std::string, Symbol> DynamicSymbols() {
  std::map<std::string, Symbol> symbols;
  FILE* pipe = popen("nm -D -S --defined-only " CERTKERN_BINARY_DIR "/lib/libcertkern.so", "r");
  if (!pipe) return symbols;
  std::array<char, 4096> line;
  while (fgets(line.data(), line.size(), pipe)) {
    std::istringstream words(line.data());
    std::string address, size, kind, name;
    words >> address >> size >> kind >> name;
    if (name.empty()) continue;  // without a size: the version node itself
    const size_t at = name.find('@');
    symbols[name.substr(0, at)] = {std::stoul(size, nullptr, 16), kind[0],
                                   at == name.npos ? "" : name.substr(at)};
  }
  EXPECT_EQ(pclose(pipe), 0);
  return symbols;
}

TEST(ExportedSymbols, AreOnThePublicListAndVersioned) {
  std::ifstream list(CERTKERN_SOURCE_DIR "/src/exports.txt");
  const std::set<std::string> exports{std::istream_iterator<std::string>(list), {}};
  ASSERT_EQ(exports.size(), 160u);
  const auto symbols = DynamicSymbols();
  ASSERT_TRUE(symbols.contains("LocalAlloc")) << "the list of symbols was not read";
  for (const auto& [name, symbol] : symbols) {
    SCOPED_TRACE(name);
    EXPECT_TRUE(exports.contains(name));
    EXPECT_EQ(symbol.version, "@@CERTKERN_4");
    if (name == "pkivalidator_db_ctx") {
      EXPECT_EQ(symbol.size, 8u);
    } else if (name == "_strictPkupCheck") {
      EXPECT_EQ(symbol.size, 4u);
    } else {
      EXPECT_EQ(symbol.kind, 'T') << "a function";
    }
  }
}

}  // namespace
