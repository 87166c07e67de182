#include "token_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "bounds.h"

namespace certkern::asn1gen {

const Token& TokenReader::take() {
  const Token& token = peek();
  if (!atEnd()) ++at_;
  return token;
}

bool TokenReader::accept(std::string_view word) {
  if (!peek().is(word) || peek().kind == TokenKind::FieldName || atEnd()) return false;
  ++at_;
  return true;
}

void TokenReader::expect(std::string_view word) {
  if (peek().is(word)) {
    take();
  } else {
    fail(fmt::format("'{}'", word));
  }
}

void TokenReader::fail(std::string_view expected) const {
  throw SchemaError(peek().place, fmt::format("found {}, expected {}", Quoted(peek()), expected));
}

Word TokenReader::expectUpper(std::string_view what) {
  if (peek().kind != TokenKind::UpperName || IsKeyword(peek().text)) fail(what);
  const Token& token = take();
  return {token.text, token.place};
}

Word TokenReader::expectLower(std::string_view what) {
  if (peek().kind != TokenKind::LowerName) fail(what);
  const Token& token = take();
  return {token.text, token.place};
}

Tokens TokenReader::takeBalanced() {
  const size_t first = at_;
  const Token& opening = peek();
  std::string expected;  // the closing marks, innermost last
  do {
    const Token& token = peek();
    if (token.kind == TokenKind::End || (atEnd() && expected.size() > 1))
      throw SchemaError(token.place,
                        fmt::format("found {}, expected '{}' for the '{}' at {}", Quoted(token),
                                    expected.back(), opening.text, ToText(opening.place)));
    if (token.is("{")) expected.push_back('}');
    if (token.is("(")) expected.push_back(')');
    if (token.is("}") || token.is(")")) {
      if (token.text[0] != expected.back()) fail(fmt::format("'{}'", expected.back()));
      expected.pop_back();
    }
    if (expected.size() > kMaxNesting)
      fail(fmt::format("no more than {} braces inside each other", kMaxNesting));
    if (atEnd()) {  // closes the stretch itself
      return tokens_.subspan(first);
    }
    ++at_;
  } while (!expected.empty());
  return between(first, at_);
}

bool IsKeyword(std::string_view word) {
  static constexpr std::string_view kWords[] = {
      "ABSENT",      "ANY",      "APPLICATION", "AUTOMATIC", "BEGIN",      "BIT",     "BOOLEAN",
      "BY",          "CHOICE",   "CLASS",       "COMPONENT", "COMPONENTS", "DEFAULT", "DEFINED",
      "DEFINITIONS", "END",      "ENUMERATED",  "EXPLICIT",  "EXPORTS",    "FALSE",   "FROM",
      "IDENTIFIER",  "IMPLICIT", "IMPORTS",     "INCLUDES",  "INTEGER",    "MAX",     "MIN",
      "NULL",        "OBJECT",   "OCTET",       "OF",        "OPTIONAL",   "PRESENT", "PRIVATE",
      "REAL",        "SEQUENCE", "SET",         "SIZE",      "STRING",     "SYNTAX",  "TAGS",
      "TRUE",        "UNIQUE",   "UNIVERSAL",   "WITH",
  };
  static_assert(std::is_sorted(std::begin(kWords), std::end(kWords)), "looked up by halves");
  return std::binary_search(std::begin(kWords), std::end(kWords), word);
}

}  // namespace certkern::asn1gen
