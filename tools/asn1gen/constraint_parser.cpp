// Constraints: only what decides about the shape of a type is looked at; of the others it is enough that the parentheses
// match.
#include <optional>

#include "bounds.h"
#include "token_reader.h"

namespace certkern::asn1gen {
namespace {

// `(0..15)`, `(5)`, `(0 | 2 | 8..15)`: nothing when the words between the parentheses are something else, or when more
// values may come.
struct Range {
  ValueSyntax lower, upper;
};
std::optional<std::vector<Range>> ReadRanges(Tokens inside) {
  TokenReader in(inside);
  constexpr size_t kDigitsRead = 18;  // beyond them a bound is none that 32 bits hold
  std::vector<Range> ranges;
  const auto isBound = [&] {
    const Token& token = in.peek();
    if (token.kind == TokenKind::Number) return token.text.size() <= kDigitsRead;
    return token.kind == TokenKind::LowerName || token.is("-") || token.is("MIN") || token.is("MAX");
  };
  do {
    if (!isBound()) return std::nullopt;
    Range& range = ranges.emplace_back();
    range.lower = range.upper = ReadValue(in);
    in.accept("<");
    if (!in.accept("..")) continue;
    in.accept("<");
    if (!isBound()) return std::nullopt;
    range.upper = ReadValue(in);
  } while (in.accept("|"));
  if (!in.atEnd()) return std::nullopt;
  return ranges;
}

// A union of ranges is kept by its first and last bound: they are written in rising order.
void NoteRange(TypeSyntax& type, Tokens inside) {
  const auto ranges = ReadRanges(inside);
  if (!ranges) return;
  type.lower = ranges->front().lower;
  type.upper = ranges->back().upper;
}

}  // namespace

TableConstraint ReadTableConstraint(TokenReader& in) {
  TableConstraint table;
  in.expect("{");
  table.set = in.expectUpper("the name of an object set");
  in.expect("}");
  if (!in.accept("{")) return table;
  in.expect("@");
  in.accept(".");
  table.selector = in.expectLower("the name of the component that selects");
  if (in.peek().is(",")) in.fail("'}': one component selects");
  in.expect("}");
  return table;
}

void ReadConstraints(TokenReader& in, TypeSyntax& type, size_t depth) {
  for (size_t count = 0; in.peek().is("("); ++count) {
    if (count >= kMaxNesting) in.fail("fewer constraints");
    const size_t start = in.position();
    const Tokens all = in.takeBalanced();
    const size_t end = in.position();
    type.constrained = true;
    in.setPosition(start + 1);
    if (in.peek().is("{")) {
      type.table = ReadTableConstraint(in);
      if (!in.peek().is(")")) in.fail("')'");
    } else if (in.accept("CONTAINING")) {
      type.contained = std::make_unique<TypeSyntax>(ReadType(in, depth + 1));
      if (!in.peek().is(")") && !in.peek().is("ENCODED")) in.fail("')'");
    } else if (in.peek().is("SIZE")) {
      type.sized = true;
    } else if (type.form == TypeForm::Integer) {
      NoteRange(type, all.subspan(1));
    }
    in.setPosition(end);
  }
}

}  // namespace certkern::asn1gen
