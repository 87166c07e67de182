#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "bounds.h"
#include "symbols.h"
#include "token_reader.h"

namespace certkern::asn1gen {
namespace {

// Names that X.660 gives to arcs, which may stand without their number.
struct KnownArc {
  std::string_view parent;  // the arcs in front of it
  std::string_view name;
  uint32_t number;
};
constexpr KnownArc kKnownArcs[] = {
    {"",  "itu-t",                   0},
    {"",  "ccitt",                   0},
    {"",  "iso",                     1},
    {"",  "joint-iso-itu-t",         2},
    {"",  "joint-iso-ccitt",         2},
    {"0", "recommendation",          0},
    {"0", "question",                1},
    {"0", "administration",          2},
    {"0", "network-operator",        3},
    {"0", "identified-organization", 4},
    {"1", "standard",                0},
    {"1", "registration-authority",  1},
    {"1", "member-body",             2},
    {"1", "identified-organization", 3},
    {"2", "ds",                      5},
};

const KnownArc* FindKnownArc(const std::vector<uint32_t>& arcs, std::string_view name) {
  if (arcs.size() > 1) return nullptr;
  const std::string parent = arcs.empty() ? "" : fmt::format("{}", arcs[0]);
  const auto found = std::find_if(std::begin(kKnownArcs), std::end(kKnownArcs), [&](const KnownArc& arc) {
    return arc.parent == parent && arc.name == name;
  });
  return found == std::end(kKnownArcs) ? nullptr : found;
}

uint32_t ReadArcNumber(TokenReader& in) {
  const std::string_view digits = in.peek().text;
  uint32_t number = 0;
  if (in.peek().kind != TokenKind::Number) in.fail("a number");
  if (std::from_chars(digits.data(), digits.data() + digits.size(), number).ec != std::errc())
    in.fail("an arc that 32 bits hold");
  in.take();
  return number;
}

// X.660: the first arc is below 3, and the second below 40 under 0 and 1.
void CheckFirstArcs(const std::vector<uint32_t>& arcs, const Place& place) {
  if (arcs.size() < 2) throw SchemaError(place, "found an identifier with less than two arcs, expected more");
  if (arcs[0] > 2)
    throw SchemaError(place, fmt::format("found the first arc {}, expected 0, 1 or 2", arcs[0]));
  if (arcs[0] < 2 && arcs[1] > 39)
    throw SchemaError(place,
                      fmt::format("found the arcs {} {}, expected a second arc below 40", arcs[0], arcs[1]));
}

}  // namespace

void OidResolver::run() {
  for (const Symbol& symbol : symbols_.all()) {
    if (symbol.assignment->kind == Assignment::Kind::Value && isOid(*symbol.assignment))
      Attempt(diagnostics_, [&] { resolve(symbol, 0); });
  }
}

// By its type, through other names of the type.
bool OidResolver::isOid(const Assignment& assignment) const {
  const TypeSyntax* type = &assignment.type;
  for (size_t steps = 0; steps < kMaxReferences; ++steps) {
    if (type->form == TypeForm::ObjectId) return true;
    const Symbol* const next =
        type->form == TypeForm::Reference ? symbols_.findUpper(type->name.text) : nullptr;
    if (!next || next->assignment->kind != Assignment::Kind::Type) return false;
    type = &next->assignment->type;
  }
  return false;
}

const Oid* OidResolver::find(const Word& name) {
  const Symbol* const symbol = symbols_.findLower(name.text);
  if (!symbol)
    throw SchemaError(name.place,
                      fmt::format("found '{}', expected the name of an object identifier", name.text));
  return isOid(*symbol->assignment) ? resolve(*symbol, 0) : nullptr;
}

const Oid* OidResolver::inPlace(const ValueSyntax& value, const std::string& name, Module& module) {
  std::vector<uint32_t> arcs;
  readArcs(value, arcs, 0);
  Oid& oid = schema_.oids.emplace_back(Oid{name, CppName(name), value.word.place, &module, std::move(arcs)});
  module.oids.push_back(&oid);
  return &oid;
}

const Oid* OidResolver::resolve(const Symbol& symbol, size_t depth) {
  const Assignment& assignment = *symbol.assignment;
  const auto [entry, isNew] = states_.emplace(&assignment, State());
  State& state = entry->second;
  if (state.failed) throw AlreadyNoted();
  if (state.oid) return state.oid;
  if (!isNew)
    throw SchemaError(assignment.name.place,
                      fmt::format("found '{}' under itself, expected other arcs", assignment.name.text));
  std::vector<uint32_t> arcs;
  state.failed = !Attempt(diagnostics_, [&] { readArcs(assignment.value, arcs, depth); });
  if (state.failed) throw AlreadyNoted();
  const std::string name(assignment.name.text);
  state.oid = &schema_.oids.emplace_back(
      Oid{name, CppName(name), assignment.name.place, symbol.out, std::move(arcs)});
  symbol.out->oids.push_back(state.oid);
  return state.oid;
}

void OidResolver::readArcs(const ValueSyntax& value, std::vector<uint32_t>& arcs, size_t depth) {
  if (value.kind == ValueSyntax::Kind::Name) {  // another name of the same
    const Symbol* const other = symbols_.findLower(value.word.text);
    if (!other || !isOid(*other->assignment) || depth > kMaxReferences)
      throw SchemaError(
          value.word.place,
          fmt::format("found '{}', expected the name of an object identifier", value.word.text));
    arcs = resolve(*other, depth + 1)->arcs;
    return;
  }
  if (value.braces.empty())
    throw SchemaError(value.word.place, fmt::format("found '{}', expected '{{' and arcs", value.word.text));
  TokenReader in(value.braces.subspan(1));
  while (!in.atEnd()) {
    readArc(in, arcs, depth);
    if (arcs.size() > kMaxArcs) in.fail(fmt::format("no more than {} arcs", kMaxArcs));
  }
  CheckFirstArcs(arcs, value.word.place);
}

// `5`, `ds(5)`, `iso`, and in front `id-other`
void OidResolver::readArc(TokenReader& in, std::vector<uint32_t>& arcs, size_t depth) {
  if (in.peek().kind == TokenKind::Number) return arcs.push_back(ReadArcNumber(in));
  const Word name = in.expectLower("an arc: a number, name(number) or the name of an identifier");
  if (in.accept("(")) {
    const bool named = in.peek().kind == TokenKind::LowerName;
    arcs.push_back(named ? static_cast<uint32_t>(symbols_.integer32(ReadValue(in))) : ReadArcNumber(in));
    return in.expect(")");
  }
  if (const KnownArc* const known = FindKnownArc(arcs, name.text)) return arcs.push_back(known->number);
  const Symbol* const symbol = symbols_.findLower(name.text);
  if (!symbol)
    throw SchemaError(
        name.place,
        fmt::format("found '{}', expected an arc that is known by this name, or name(number)", name.text));
  if (!arcs.empty()) {  // a number that has a name
    ValueSyntax value;
    value.kind = ValueSyntax::Kind::Name;
    value.word = name;
    return arcs.push_back(static_cast<uint32_t>(symbols_.integer32(value)));
  }
  if (!isOid(*symbol->assignment) || depth > kMaxReferences)
    throw SchemaError(name.place, fmt::format("found '{}', expected an object identifier", name.text));
  arcs = resolve(*symbol, depth + 1)->arcs;
}

}  // namespace certkern::asn1gen
