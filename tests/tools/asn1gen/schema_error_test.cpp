// What a schema's author is told: the place, what stands there, what should.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "compile.h"

using namespace certkern::asn1gen;

namespace {

struct ErrorCase {
  const char* name;
  const char* body;
  std::vector<std::string> errors;  // the first words of each; their file is left out
};
const ErrorCase kErrors[] = {
    {"a comma is missing",
     "A ::= SEQUENCE { a INTEGER b INTEGER }",                                                                 {"2:28: error: found 'b', expected ',' or '}'"}                                                        },
    {"the next assignment is read after an error",
     "A ::= SEQUENCE { a\nB ::= [x\nC ::= [1 INTEGER\nD ::= NULL",                                             {"3:3: error: found '::=', expected ',' or '}'", "4:1: error: found 'C', expected ']'",
      "4:10: error: found 'INTEGER', expected ']'"}                                                                                                 },
    {"the end of the file in a block",
     "A ::= INTEGER /* ",                                                                                      {"2:15: error: found the end of the file, expected '*/'",
      "4:1: error: found the end of the file, expected an assignment or 'END'"}                                                                                                              },
    {"words of others",
     "A ::= REAL\nB {X} ::= NULL\nC ::= D {x}\nE_F ::= NULL\nG ::= NULL \x01",                                 {"2:7: error: found 'REAL', expected a type of the dialect", "3:3: error: found '{', expected '::='",
      "4:9: error: found '{', expected a type without parameters",
      "5:1: error: found 'E_F', expected a name with hyphens", "6:12: error: found the byte 0x01"}                                      },
    {"names that lead nowhere, or to something else",
     "C ::= CLASS { &id OBJECT IDENTIFIER UNIQUE, &Type }\n"
     "A ::= Missing\nB ::= SEQUENCE { c C, d C.&no, e [n] NULL, f C.&Type({Set}) }\nv OBJECT IDENTIFIER ::= "
     "{ w 1 }",                                                                                                {"3:7: error: found 'Missing', expected the name of a type", "4:20: error: found the class 'C'",
      "4:27: error: found '&no', expected a type or value field of C",
      "4:35: error: found 'n', expected a number",
      "4:55: error: found 'Set', expected the name of an object set",
      "5:27: error: found 'w', expected an arc"}                                                                                                                                                       },
    {"names twice",
     "A ::= NULL\nA ::= NULL\nB ::= SEQUENCE { a NULL, b INTEGER, a NULL }\nE ::= ENUMERATED { x(0), y(0) }",  {"3:1: error: found 'A' again",
      "4:37: error: found 'a' again, expected a new name: it stands at t.asn:4:18",
      "5:28: error: found 0 again"}                                                                      },
    {"what leads to itself",
     "A ::= B\nB ::= A\nS ::= SEQUENCE { s S }\nL ::= SET OF L\na OBJECT IDENTIFIER ::= { b 1 }\nb OBJECT "
     "IDENTIFIER ::= { a 1 }",                                                                                 {"2:1: error: found 'A' as another name of itself", "6:1: error: found 'a' under itself",
      "4:18: error: found 's' that always contains 'S' again"}                                                                                                                          },
    {"a list of itself alone",                         "L ::= SET OF L",                                       {"2:1: error: found 'L' as a list of itself"}                                                          },
    {"components of themselves",
     "A ::= SEQUENCE { COMPONENTS OF B }\nB ::= SEQUENCE { COMPONENTS OF A }\nC ::= SET { COMPONENTS OF D "
     "}\nD ::= SEQUENCE {}",                                                                                   {"2:1: error: found the components of 'A' inside themselves", "4:27: error: found 'D', expected a SET"}},
    {"optional members that begin alike",
     "A ::= SEQUENCE { a [0] NULL OPTIONAL, b B OPTIONAL, c INTEGER, d INTEGER }\nB ::= CHOICE { x NULL, y "
     "[0] C }\nC ::= CHOICE { z NULL }",                                                                       {"2:39: error: found 'b' that begins with [0], expected another tag: the optional 'a' at t.asn:2:18"}  },
    {"alternatives that begin alike",
     "A ::= CHOICE { a INTEGER, b B }\nB ::= CHOICE { c NULL, d INTEGER { one(1) } }\nC ::= SET { a NULL, b "
     "NULL }",                                                                                                 {"2:27: error: found 'b' that begins with [UNIVERSAL 2]",
      "4:21: error: found 'b' that begins with [UNIVERSAL 5]"}                                                                                                                                          },
    {"any tag in front of others",
     "A ::= CHOICE { a ANY, b NULL }\nB ::= SEQUENCE { a NULL OPTIONAL, b ANY }",                              {"2:23: error: found 'b' that begins with any tag", "3:35: error: found 'b' that begins with any tag"} },
    {"objects against their class",
     "C ::= CLASS { &id OBJECT IDENTIFIER UNIQUE, &Type } WITH SYNTAX { TYPE &Type ID &id }\n"
     "i OBJECT IDENTIFIER ::= { 2 5 1 }\na C ::= { TYPE NULL IS i }\nb C ::= { &id i }\nc C ::= { TYPE NULL "
     "ID i }\nd C ::= { TYPE NULL ID i }\n"
     "S C ::= { c | d | e }\nU ::= SEQUENCE { v C.&Type({S}{@n}) }",                                           {"4:21: error: found 'IS', expected 'ID'", "5:9: error: found an object without '&Type'",
      "8:15: error: found 'd' with the identifier of 'c'",
      "8:19: error: found 'e', expected the name of an object",
      "9:33: error: found '@n', expected an OBJECT IDENTIFIER beside 'v'"}                                                                        },
    {"numbers out of range",
     "A ::= [1073741824] NULL\nB ::= ENUMERATED { a(2147483648) }\na OBJECT IDENTIFIER ::= { 2 4294967296 }\n"
     "b OBJECT IDENTIFIER ::= { 1 40 }\nC ::= SEQUENCE { c BOOLEAN DEFAULT 1, d ENUMERATED { x } DEFAULT y }", {"2:8: error: found the tag 1073741824, expected 0 to 1073741823",
      "3:22: error: found 2147483648, expected a number that 32 bits hold",
      "4:29: error: found '4294967296', expected an arc that 32 bits hold",
      "5:25: error: found the arcs 1 40", "6:36: error: found '1', expected 'TRUE' or 'FALSE'",
      "6:66: error: found 'y', expected a name of C_d"}                                                 },
    {"a name that a type written in place would have",
     "A-b ::= NULL\nA ::= SEQUENCE { b SEQUENCE {} }",                                                         {"3:20: error: found a type that would be called A_b, as the one at t.asn:2:1"}                        },
};

}  // namespace

TEST(SchemaErrors, NamePlaceFoundAndExpected) {
  for (const auto& [name, body, expected] : kErrors) {
    SCOPED_TRACE(name);
    std::vector<std::string> found = CompileBody(body)->diagnostics().report();
    for (std::string& line : found) line = line.substr(line.find(':') + 1);
    std::vector<testing::Matcher<std::string>> matchers;
    for (const std::string& start : expected) matchers.push_back(testing::StartsWith(start));
    EXPECT_THAT(found, testing::UnorderedElementsAreArray(matchers));
  }
}

TEST(SchemaErrors, ModulesAndFiles) {
  const auto report = [](const std::string& text) { return Compile(text)->diagnostics().report(); };
  EXPECT_THAT(
      report(""),
      testing::ElementsAre("t.asn:1:1: error: found the end of the file, expected the name of a module"));
  EXPECT_THAT(
      report(
          "A DEFINITIONS ::= BEGIN IMPORTS X, Y FROM B Z FROM N; END B DEFINITIONS ::= BEGIN X ::= NULL END"),
      testing::ElementsAre("t.asn:1:36: error: found 'Y', expected a name that B defines",
                           "t.asn:1:52: error: found 'N', expected a module among the given files"));
  EXPECT_THAT(report("A DEFINITIONS ::= BEGIN END A DEFINITIONS ::= BEGIN END"),
              testing::ElementsAre("t.asn:1:29: error: found a second module A, expected another name"));
}

// A text again and again: # is the number of the time, + the one behind it.
static std::string Repeat(size_t count, std::string_view text) {
  std::string all;
  for (size_t i = 0; i < count; ++i) {
    for (const char c : text) {
      if (c == '#' || c == '+')
        all.append(std::to_string(c == '#' ? i : i + 1));
      else
        all.push_back(c);
    }
  }
  return all;
}

// Depth, chains and counts that would cost a stack or a memory if nothing bounded them.
TEST(SchemaErrors, HostileSchemasEndInAnError) {
  constexpr size_t kMany = 20'000;
  const std::pair<std::string, const char*> hostile[] = {
      {"A ::= " + Repeat(kMany,           "SEQUENCE OF ") + "NULL",                                                                    "types inside each other"     },
      {"A ::= " + Repeat(kMany,           "[1] ") + "NULL",                                                                            "no more than 64 tags"        },
      {"A ::= NULL " + Repeat(kMany,      "("),                                                                                        "braces inside each other"    },
      {Repeat(kMany,                      "A# ::= A+\n") + "A20000 ::= NULL",                                                          "too many names of one type"  },
      {Repeat(kMany,                      "A# ::= SEQUENCE { a SEQUENCE { COMPONENTS OF A+ } }\n") + "A20000 ::= SEQUENCE {}",
       "too many types inside each other"                                                                                                                            },
      {Repeat(kMany,                      "a# OBJECT IDENTIFIER ::= { a+ 1 }\n") + "a20000 OBJECT IDENTIFIER ::= { 1 2 }",
       "expected an object identifier"                                                                                                                               },
      {"A ::= SEQUENCE {" + Repeat(kMany, "a# NULL OPTIONAL, ") + "z NULL }",                                                          "no more than 1024 components"},
      {Repeat(40,                         "A# ::= SEQUENCE { COMPONENTS OF A+, COMPONENTS OF A+ }\n") + "A40 ::= SEQUENCE { a NULL }",
       "found 'a' again"                                                                                                                                             },
  };
  for (const auto& [body, expected] : hostile) {
    const auto report = CompileBody(body)->diagnostics().report();
    ASSERT_FALSE(report.empty()) << expected;
    EXPECT_THAT(report, testing::Contains(testing::HasSubstr(expected)));
  }
}
