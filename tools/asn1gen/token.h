// The words of a schema file.
#ifndef CERTKERN_ASN1GEN_TOKEN_H
#define CERTKERN_ASN1GEN_TOKEN_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "diagnostics.h"

namespace certkern::asn1gen {

// A file that stays where it is while anything refers to its text.
struct SourceFile {
  std::string name;
  std::string text;
};

enum class TokenKind {
  End,
  UpperName,  // type, module, class and set names, and keywords
  LowerName,  // values, objects, components
  FieldName,  // &id, &Type: the text is without the ampersand
  Number,
  String,  // "..." and '...'B, '...'H
  Symbol,  // one of { } ( ) [ ] < > , ; : | . @ - ^ ! *, or ::= .. ...
};

struct Token {
  TokenKind kind = TokenKind::End;
  std::string_view text;  // lies in the file
  Place place;

  bool is(std::string_view word) const { return kind != TokenKind::String && text == word; }
};

using Tokens = std::span<const Token>;

// Ends with an End token. Bytes that begin no word are noted and passed over.
std::vector<Token> Tokenize(const SourceFile& file, Diagnostics& diagnostics);

// For messages: the word in quotes, or what it is.
std::string Quoted(const Token& token);

}  // namespace certkern::asn1gen

#endif
