#include "model.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace certkern::asn1gen {

std::string ToText(const Tag& tag) {
  static constexpr std::string_view kClasses[] = {"UNIVERSAL ", "APPLICATION ", "", "PRIVATE "};
  return fmt::format("[{}{}]", kClasses[tag.tagClass & 3], tag.number);
}

std::string CppName(std::string_view name) {
  std::string result(name);
  std::replace(result.begin(), result.end(), '-', '_');
  return result;
}

std::string CppMemberName(std::string_view name) {
  static constexpr std::string_view kTaken[] = {
      "alignas",   "alignof",   "and",       "asm",      "auto",     "bitand",    "bitor",    "bool",
      "break",     "case",      "catch",     "char",     "class",    "compl",     "concept",  "const",
      "consteval", "constexpr", "constinit", "continue", "decltype", "default",   "delete",   "do",
      "double",    "else",      "enum",      "errno",    "explicit", "export",    "extern",   "false",
      "float",     "for",       "friend",    "goto",     "if",       "inline",    "int",      "linux",
      "long",      "m",         "major",     "minor",    "mutable",  "namespace", "new",      "noexcept",
      "not",       "nullptr",   "operator",  "or",       "private",  "protected", "public",   "register",
      "requires",  "return",    "short",     "signed",   "sizeof",   "static",    "struct",   "switch",
      "template",  "this",      "throw",     "true",     "try",      "typedef",   "typeid",   "typename",
      "union",     "unix",      "unsigned",  "using",    "virtual",  "void",      "volatile", "while",
      "xor",
  };
  static_assert(std::is_sorted(std::begin(kTaken), std::end(kTaken)), "looked up by halves");
  std::string result = CppName(name);
  if (std::binary_search(std::begin(kTaken), std::end(kTaken), result)) result.push_back('_');
  return result;
}

}  // namespace certkern::asn1gen
