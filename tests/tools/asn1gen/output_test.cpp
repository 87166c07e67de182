// What the compiler writes.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "compile.h"
#include "emitter.h"

using namespace certkern::asn1gen;

namespace {

std::string ReadText(const std::string& name) {
  std::ifstream file(CERTKERN_SOURCE_DIR "/tests/tools/asn1gen/data/golden/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

TEST(SchemaOutput, IsWhatStandsInTheFiles) {
  std::deque<SourceFile> files;
  files.push_back({"golden/note.asn", ReadText("note.asn")});
  Compiler compiler(std::move(files));
  ASSERT_TRUE(compiler.run());
  const auto output = Emit(compiler.schema());
  for (const char* name : {"note.h", "note.cpp", "catalogue.cpp"})
    EXPECT_EQ(output.at(name), ReadText(std::string(name) + ".golden")) << name;
}

struct TagCase {
  const char* name;
  const char* defaults;
  const char* type;
  const char* tags;
};
const TagCase kTags[] = {
    {"no tag",                           "IMPLICIT",  "INTEGER",                   "[UNIVERSAL 2]"   },
    {"implicit by default",              "IMPLICIT",  "[0] INTEGER",               "[0]"             },
    {"explicit by default",              "EXPLICIT",  "[0] INTEGER",               "[0][UNIVERSAL 2]"},
    {"implicit by word",                 "EXPLICIT",  "[0] IMPLICIT INTEGER",      "[0]"             },
    {"explicit by word",                 "AUTOMATIC", "[0] EXPLICIT INTEGER",      "[0][UNIVERSAL 2]"},
    {"a choice stays explicit",          "IMPLICIT",  "[0] CHOICE { a NULL }",     "[0]"             },
    {"so does an open type",             "IMPLICIT",  "[0] IMPLICIT ANY",          "[0]"             },
    {"tags in tags",                     "IMPLICIT",  "[0] EXPLICIT [1] [2] NULL", "[0][1]"          },
    {"a type that has tags",             "IMPLICIT",  "[5] Tagged",                "[5][UNIVERSAL 4]"},
    {"a type that has them, explicitly", "EXPLICIT",  "[PRIVATE 5] Tagged",
     "[PRIVATE 5][APPLICATION 9][UNIVERSAL 4]"                                                       },
};

TEST(SchemaOutput, TagsAreReplacedOrPrepended) {
  for (const auto& [name, defaults, type, expected] : kTags) {
    SCOPED_TRACE(name);
    const auto compiler =
        Compile(std::string("T DEFINITIONS ") + defaults + " TAGS ::= BEGIN S ::= SEQUENCE { x " + type
                + ", y [7] NULL } Tagged ::= [APPLICATION 9] EXPLICIT OCTET STRING END");
    ASSERT_TRUE(compiler->diagnostics().empty()) << compiler->diagnostics().report().front();
    std::string tags;
    for (const Type& one : compiler->schema().types) {
      if (one.name != "S") continue;
      for (const Tag& tag : one.members[0].tags) tags += ToText(tag);
    }
    EXPECT_EQ(tags, expected);
  }
}
