#include <fmt/format.h>

#include <array>

#include "token.h"

namespace certkern::asn1gen {
namespace {

// Not those of <cctype>: a schema reads the same in every locale.
bool IsUpper(char c) { return c >= 'A' && c <= 'Z'; }
bool IsLower(char c) { return c >= 'a' && c <= 'z'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsNameCharacter(char c) { return IsUpper(c) || IsLower(c) || IsDigit(c) || c == '_'; }

class Lexer {
 public:
  Lexer(const SourceFile& file, Diagnostics& diagnostics)
      : file_(file), text_(file.text), diagnostics_(diagnostics) {}

  std::vector<Token> run() {
    while (skipBlanks()) readToken();
    tokens_.push_back({TokenKind::End, text_.substr(text_.size()), place()});
    return std::move(tokens_);
  }

 private:
  char at(size_t ahead = 0) const { return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0'; }
  bool startsWith(std::string_view word) const { return text_.substr(at_, word.size()) == word; }
  Place place() const { return {&file_.name, line_, static_cast<uint32_t>(at_ - lineStart_ + 1)}; }

  void advance(size_t count) {
    for (; count && at_ < text_.size(); --count, ++at_) {
      if (text_[at_] != '\n') continue;
      ++line_;
      lineStart_ = at_ + 1;
    }
  }

  // Answers whether anything is left.
  bool skipBlanks() {
    while (at_ < text_.size()) {
      if (at() == ' ' || at() == '\t' || at() == '\r' || at() == '\n' || at() == '\f') {
        advance(1);
      } else if (startsWith("--")) {
        skipLineComment();
      } else if (startsWith("/*")) {
        skipBlockComment();
      } else {
        return true;
      }
    }
    return false;
  }

  void skipLineComment() {
    advance(2);
    while (at_ < text_.size() && at() != '\n' && !startsWith("--")) advance(1);
    if (startsWith("--")) advance(2);
  }

  // They nest.
  void skipBlockComment() {
    const Place start = place();
    size_t depth = 0;
    do {
      if (startsWith("/*")) {
        ++depth;
        advance(2);
      } else if (startsWith("*/")) {
        --depth;
        advance(2);
      } else {
        advance(1);
      }
    } while (depth && at_ < text_.size());
    if (depth)
      diagnostics_.add(start, "found the end of the file, expected '*/' for the comment that begins here");
  }

  void push(TokenKind kind, size_t size, size_t prefix = 0) {
    tokens_.push_back({kind, text_.substr(at_ + prefix, size - prefix), place()});
    advance(size);
  }

  void readToken() {
    if (IsUpper(at()) || IsLower(at())) return readName(0);
    if (at() == '&' && (IsUpper(at(1)) || IsLower(at(1)))) return readName(1);
    if (IsDigit(at())) return readNumber();
    if (at() == '"') return readString();
    if (at() == '\'') return readQuotedBits();
    readSymbol();
  }

  // A name may hold single hyphens; two of them begin a comment.
  void readName(size_t prefix) {
    size_t size = prefix + 1;
    while (IsNameCharacter(at(size)) || (at(size) == '-' && IsNameCharacter(at(size + 1)))) ++size;
    const std::string_view name = text_.substr(at_ + prefix, size - prefix);
    if (name.find('_') != name.npos)
      diagnostics_.add(place(),
                       fmt::format("found '{}', expected a name with hyphens instead of underscores", name));
    const TokenKind kind = prefix ? TokenKind::FieldName
        : IsUpper(name[0])        ? TokenKind::UpperName
                                  : TokenKind::LowerName;
    push(kind, size, prefix);
  }

  void readNumber() {
    size_t size = 1;
    while (IsDigit(at(size))) ++size;
    push(TokenKind::Number, size);
  }

  // Two quotes stand for one inside.
  void readString() {
    size_t size = 1;
    while (at_ + size < text_.size() && (at(size) != '"' || at(size + 1) == '"'))
      size += at(size) == '"' ? 2 : 1;
    if (at_ + size >= text_.size())
      diagnostics_.add(place(), "found the end of the file, expected '\"' for the text that begins here");
    push(TokenKind::String, std::min(size + 1, text_.size() - at_));
  }

  void readQuotedBits() {
    size_t size = 1;
    while (at_ + size < text_.size() && at(size) != '\'' && at(size) != '\n') ++size;
    if (at(size) != '\'' || (at(size + 1) != 'B' && at(size + 1) != 'H')) {
      diagnostics_.add(place(), "found a quote, expected a binary or hexadecimal string like '0F'H");
      return advance(size);
    }
    push(TokenKind::String, size + 2);
  }

  void readSymbol() {
    for (const std::string_view word : {"::=", "...", ".."}) {
      if (startsWith(word)) return push(TokenKind::Symbol, word.size());
    }
    if (std::string_view("{}()[]<>,;:|.@-^!*").find(at()) != std::string_view::npos && at() != '\0')
      return push(TokenKind::Symbol, 1);
    diagnostics_.add(place(),
                     fmt::format("found the byte 0x{:02X}, expected a word or a symbol",
                                 static_cast<unsigned char>(at())));
    advance(1);
  }

  const SourceFile& file_;
  const std::string_view text_;
  Diagnostics& diagnostics_;
  std::vector<Token> tokens_;
  size_t at_ = 0;
  size_t lineStart_ = 0;
  uint32_t line_ = 1;
};

}  // namespace

std::vector<Token> Tokenize(const SourceFile& file, Diagnostics& diagnostics) {
  return Lexer(file, diagnostics).run();
}

std::string Quoted(const Token& token) {
  constexpr size_t kLongestShown = 40;
  switch (token.kind) {
    case TokenKind::End:
      return "the end of the file";
    case TokenKind::FieldName:
      return fmt::format("'&{}'", token.text.substr(0, kLongestShown));
    case TokenKind::String:
      return "a string";
    default:
      return fmt::format("'{}'", token.text.substr(0, kLongestShown));
  }
}

}  // namespace certkern::asn1gen
