// Structures, and names for types that have none.
#include <algorithm>

#include "emitter.h"

namespace certkern::asn1gen {
namespace {

std::string_view PlainType(Kind kind) {
  switch (kind) {
    case Kind::Boolean:
      return "bool";
    case Kind::Int32:
    case Kind::Enumerated:
      return "int32_t";
    case Kind::BigInteger:
      return "ASN1BigInteger";
    case Kind::BitString:
      return "ASN1BitString";
    case Kind::OctetString:
      return "ASN1OctetString";
    case Kind::Null:
      return "uint8_t";
    case Kind::ObjectId:
      return "ASN1ObjectId";
    case Kind::Text:
      return "ASN1Text";
    case Kind::Open:
      return "ASN1OpenValue";
    default:
      return {};
  }
}

std::string MemberType(const Member& member) { return ValueType(*member.type) + (member.pointer ? "*" : ""); }

// The schema's own words. A backslash at the end of a line would make a comment of the next one, too.
void QuoteSchema(Writer& out, std::string_view text) {
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    while (!line.empty() && std::string_view(" \t\r\\").find(line.back()) != std::string_view::npos)
      line.remove_suffix(1);
    out.line("//{}{}", line.empty() ? "" : " ", line);
  }
}

void DefineNames(Writer& out, const Type& type) {
  out.line("struct ASN1N_{} {{", type.cppName);
  out.line("  enum : int32_t {{");
  for (const NamedNumber& named : type.names)
    out.line("    {} = {},", CppMemberName(named.name), named.value);
  out.line("  }};");
  out.line("}};");
}

void DefinePresence(Writer& out, const Type& type) {
  const auto hasBit = [](const Member& member) { return member.presentBit >= 0; };
  if (std::none_of(type.members.begin(), type.members.end(), hasBit)) return;
  out.line("  struct {{");
  for (const Member& member : type.members) {
    if (hasBit(member)) out.line("    uint32_t {}Present : 1;", CppName(member.name));
  }
  out.line("  }} m = {{}};");
}

void DefineStructure(Writer& out, const Type& type) {
  out.line("struct ASN1T_{} {{", type.cppName);
  DefinePresence(out, type);
  for (const Member& member : type.members) out.line("  {} {} = {{}};", MemberType(member), member.cppName);
  out.line("}};");
}

void DefineChoice(Writer& out, const Type& type) {
  out.line("struct ASN1T_{} {{", type.cppName);
  out.line("  enum : int32_t {{");
  size_t number = 0;
  for (const Member& member : type.members) out.line("    t_{} = {},", CppName(member.name), ++number);
  out.line("  }};");
  out.line("  union Alternatives {{");
  for (const Member& member : type.members) out.line("    {} {};", MemberType(member), member.cppName);
  out.line("  }};");
  out.line("  int32_t t = 0;");
  out.line("  Alternatives u = Alternatives();  // all of it zero, not the first alternative alone");
  out.line("}};");
}

}  // namespace

std::string ValueType(const Type& type) {
  if (type.isSharedList) return fmt::format("ASN1ListOf<{}>", ValueType(*type.members.front().type));
  const bool builtIn = type.module->baseName == kBuiltInFile;
  return builtIn ? std::string(PlainType(type.kind)) : "ASN1T_" + type.cppName;
}

void DefineType(Writer& out, const Type& type) {
  QuoteSchema(out, type.text);
  if (!type.alias && !type.names.empty()) DefineNames(out, type);
  if (type.alias) {
    out.line("using ASN1T_{} = ASN1T_{};", type.cppName, type.alias->cppName);
    if (!type.root().names.empty()) out.line("using ASN1N_{} = ASN1N_{};", type.cppName, type.root().cppName);
  } else if (IsStructure(type.kind)) {
    DefineStructure(out, type);
  } else if (type.kind == Kind::Choice) {
    DefineChoice(out, type);
  } else if (IsList(type.kind)) {
    out.line("using ASN1T_{} = ASN1ListOf<{}>;", type.cppName, ValueType(*type.members.front().type));
  } else {
    out.line("using ASN1T_{} = {};", type.cppName, PlainType(type.kind));
  }
}

}  // namespace certkern::asn1gen
