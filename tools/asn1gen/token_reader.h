// A place in a row of words, and the one way to go on in it. The last word is never passed: it is the End, or the brace
// that closes the stretch.
#ifndef CERTKERN_ASN1GEN_TOKEN_READER_H
#define CERTKERN_ASN1GEN_TOKEN_READER_H

#include <string_view>

#include "syntax.h"
#include "token.h"

namespace certkern::asn1gen {

class TokenReader {
 public:
  explicit TokenReader(Tokens tokens) : tokens_(tokens) {}

  const Token& peek(size_t ahead = 0) const { return tokens_[std::min(at_ + ahead, tokens_.size() - 1)]; }
  bool atEnd() const { return at_ + 1 >= tokens_.size(); }
  size_t position() const { return at_; }
  void setPosition(size_t position) { at_ = position; }
  Tokens between(size_t first, size_t end) const { return tokens_.subspan(first, end - first); }
  const Token& take();

  bool accept(std::string_view word);
  void expect(std::string_view word);
  // "expected" ends the message: a name, a type, '}' ...
  [[noreturn]] void fail(std::string_view expected) const;

  Word expectUpper(std::string_view what);
  Word expectLower(std::string_view what);

  // From the brace or parenthesis here to the one that closes it, both included.
  Tokens takeBalanced();

 private:
  Tokens tokens_;
  size_t at_ = 0;
};

// Words in capitals that can be no type's name.
bool IsKeyword(std::string_view word);

// Types and values, wherever they stand. `depth` counts the types around.
TypeSyntax ReadType(TokenReader& in, size_t depth = 0);
ValueSyntax ReadValue(TokenReader& in);
// `{ Set }`, `{ Set }{ @selector }`: the words between the parentheses.
TableConstraint ReadTableConstraint(TokenReader& in);
void ReadConstraints(TokenReader& in, TypeSyntax& type, size_t depth);
ClassSyntax ReadClass(TokenReader& in);

// The modules of one file. What is wrong in one assignment is noted, and the next one is read.
std::vector<ModuleSyntax> ParseModules(const SourceFile& file, Tokens tokens, Diagnostics& diagnostics);

}  // namespace certkern::asn1gen

#endif
