// The library hides the class, so its source is compiled in.
#include "supkern/configuration.cpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/supkern/sandbox.h"

namespace {

using certkern::kMaxConfigurationDepth;
using certkern::support::Configuration;
using certkern::support::Presence;

Configuration FromText(std::string_view text) {
  Configuration configuration;
  configuration.addText(text, "text");
  return configuration;
}

// The value as a text, for comparison; "-" when there is none.
std::string Show(const Configuration& configuration, std::string_view path) {
  const auto* value = configuration.find(path);
  if (!value) return "-";
  if (const auto* truth = std::get_if<bool>(value)) return *truth ? "true" : "false";
  if (const auto* number = std::get_if<int64_t>(value)) return std::to_string(*number);
  const auto* text = std::get_if<std::string>(value);
  return text ? '"' + *text + '"' : "other";
}

TEST(Configuration, PathsFindValuesInAnyCase) {
  const Configuration configuration = FromText(R"toml(
top = 1
[config.Certkern.cache_settings]
max_elements = 7
[config.Parameters]
forceTC26PFX = 2
[config.parameters]
DisableXnCertComparePublicKeyInfo = 3
[cryptography.OID."EncodingType 1".CertDllVerifyRevocation.DEFAULT]
DLL = "librev.so"
[config.policy.OIDs]
"1.2.3" = "libpolicy.so Check"
)toml");
  ASSERT_TRUE(configuration.faults().empty());
  const struct {
    const char *path, *value;
  } kCases[] = {
      {"\\top",                                                                      "1"                     },
      {"\\config\\Certkern\\cache_settings\\max_elements",                           "7"                     },
      {"\\CONFIG\\CERTKERN\\CACHE_SETTINGS\\MAX_ELEMENTS",                           "7"                     },
      {"\\config\\Parameters\\forcetc26pfx",                                         "2"                     },
      {"\\config\\Parameters\\DisableXnCertComparePublicKeyInfo",                    "3"                     },
      {"\\cryptography\\OID\\EncodingType 1\\CertDllVerifyRevocation\\DEFAULT\\DLL", "\"librev.so\""         },
      {"\\config\\policy\\OIDs\\1.2.3",                                              "\"libpolicy.so Check\""},
      {"\\config\\policy\\OIDs\\1.2",                                                "-"                     },
      {"\\config\\Certkern\\cache_settings",                                         "-"                     },
      {"\\config\\Certkern\\cache_settings\\max_elements\\",                         "-"                     },
      {"\\config\\\\Certkern",                                                       "-"                     },
      {"config\\Certkern\\cache_settings\\max_elements",                             "-"                     },
      {"",                                                                           "-"                     },
  };
  for (const auto& [path, value] : kCases) EXPECT_EQ(Show(configuration, path), value) << path;
}

TEST(Configuration, FaultsHavePlaceAndCountAsAbsent) {
  std::string many = "a";
  while (many.size() < 400000) many += ".a";
  const std::string key = many + " = 1";
  const std::string afterLines = "x = {a = '''\n''', " + key + "}";
  const std::string afterQuotes = R"(x = {a = """'\"""""", )" + key + "}";
  const std::string afterBackslash = R"(x = {a = '\', )" + key + "}";
  const std::string some = many.substr(0, 51);
  const std::string sum = "[" + some + "]\n" + some + " = 1";
  const std::string brackets = "a = " + std::string(100000, '[');
  const struct {
    const char* name;
    std::string text;
    unsigned line;  // 0: whichever of the two
    const char* says;
  } kCases[] = {
      {"no value",                                   "good = 1\nbad =\n",       2, ""              },
      {"a value twice, in other case",               "[t]\nKey = 1\nkey = 2\n", 3, "other case"    },
      {"a value and a table, in other case",         "Key = 1\n[key]\na = 1\n", 0, "other case"    },
      {"a header of very many names",                "[" + many + "]\n",        1, "too many names"},
      {"a key of very many names",                   "\n" + key,                2, "too many names"},
      {"the same behind a string of two lines",      afterLines,                2, "too many names"},
      {"the same behind quotes in such a string",    afterQuotes,               1, "too many names"},
      {"the same behind a literal with a backslash", afterBackslash,            1, "too many names"},
      {"brackets in brackets",                       brackets,                  1, ""              },
      {"header and key together too deep",           sum,                       0, "too deep"      },
      {"a header that begins with no key",           "[:]\n",                   1, ""              },
      {"a letter that no bare key has",              "\xEF\xBB\xB7 = 1\n",      1, ""              },
      {"bytes that are no UTF-8",                    "a = \"\xFF\"\n",          1, ""              },
  };
  for (const auto& [name, text, line, says] : kCases) {
    SCOPED_TRACE(name);
    const Configuration configuration = FromText(text);
    ASSERT_EQ(configuration.faults().size(), 1u);
    const auto& fault = configuration.faults()[0];
    if (line) {
      EXPECT_EQ(fault.line, line);
    }
    EXPECT_GT(fault.column, 0u);
    EXPECT_NE(fault.text.find(says), std::string::npos) << fault.text;
    EXPECT_EQ(Show(configuration, "\\good"), "-");
  }
}

TEST(Configuration, DotsThatAreNoKeysDoNotCount) {
  const std::string dots(200, '.');
  const std::string text = "# " + dots + "\na = \"" + dots + "\"\nb = '''\n" + dots + "\n'" + dots
      + "'''\nc = \"\\\"" + dots + "\" # " + dots + "\n\"" + dots + "\" = 1\n";
  const Configuration configuration = FromText(text);
  EXPECT_TRUE(configuration.faults().empty()) << configuration.faults()[0].describe();
  EXPECT_EQ(Show(configuration, "\\a"), '"' + dots + '"');
}

TEST(Configuration, StrongerLayerHidesOneValueNotTheTable) {
  const Sandbox sandbox;
  Configuration configuration;
  configuration.addFile(sandbox.write("user.toml", "[A]\nboth = 'user'\nsection = 5\n"), Presence::Optional);
  configuration.addFile(sandbox.write("broken.toml", "[a]\nboth = \n"), Presence::Optional);
  configuration.addFile(sandbox.path("missing.toml"), Presence::Optional);
  configuration.addFile(
      sandbox.write("system.toml", "[a]\nboth = 'system'\nonly = true\n[a.section]\nx = 1.5\n"),
      Presence::Optional);
  EXPECT_EQ(Show(configuration, "\\a\\both"), "\"user\"");
  EXPECT_EQ(Show(configuration, "\\a\\only"), "true");
  EXPECT_EQ(Show(configuration, "\\a\\section"), "5");
  EXPECT_EQ(Show(configuration, "\\a\\section\\x"), "other");
  ASSERT_EQ(configuration.faults().size(), 1u);
  EXPECT_EQ(configuration.faults()[0].file, sandbox.path("broken.toml"));
}

TEST(Configuration, FilesThatCannotBeTaken) {
  const Sandbox sandbox;
  const size_t limit = certkern::kMaxConfigurationFile;
  const std::string fits = "a = 1\n#" + std::string(limit - 7, 'x');
  Configuration configuration;
  configuration.addFile(sandbox.write("fits.toml", fits), Presence::Required);
  EXPECT_TRUE(configuration.faults().empty());
  configuration.addFile(sandbox.write("large.toml", fits + 'x'), Presence::Optional);
  configuration.addFile("/dev/zero", Presence::Optional);
  configuration.addFile(sandbox.path(), Presence::Optional);  // a directory
  configuration.addFile(sandbox.path("missing.toml"), Presence::Required);
  ASSERT_EQ(mkfifo(sandbox.path("fifo").c_str(), 0600), 0);
  configuration.addFile(sandbox.path("fifo"), Presence::Optional);  // must not wait for a writer
  ASSERT_EQ(configuration.faults().size(), 4u);
  EXPECT_EQ(configuration.faults()[0].describe(),
            sandbox.path("large.toml") + ": is larger than " + std::to_string(limit) + " bytes");
  EXPECT_EQ(configuration.faults()[3].describe(),
            sandbox.path("missing.toml") + ": cannot be read: No such file or directory");
}

}  // namespace
