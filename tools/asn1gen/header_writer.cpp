#include <algorithm>
#include <cctype>

#include "emitter.h"

namespace certkern::asn1gen {
namespace {

std::string Guard(const std::string& baseName) {
  std::string guard = "CERTKERN_ASN1DATA_" + baseName + "_H";
  for (char& c : guard)
    c = std::isalnum(static_cast<unsigned char>(c))
        ? static_cast<char>(std::toupper(static_cast<unsigned char>(c)))
        : '_';
  return guard;
}

void WriteIncludes(Writer& out, const Header& header) {
  out.line("#include \"asn1rt/control.h\"");
  std::set<std::string> includes = header.includes;
  if (header.definedIn) includes.insert(header.definedIn->baseName);
  for (const std::string& name : includes) out.line("#include \"asn1data/{}.h\"", name);
}

// What control objects and free functions need to know of a type is in its table.
void WriteFunctions(Writer& out, const Type& type) {
  const std::string& name = type.cppName;
  const Type& root = type.root();
  const bool list = IsList(type.kind);
  const std::string base = list
      ? fmt::format("ASN1ListControl<{}, kInfo_{}>", ValueType(*root.members.front().type), name)
      : fmt::format("ASN1Control<ASN1T_{0}, kInfo_{0}>", name);
  out.blank();
  out.line("extern const TypeInfo kInfo_{};", name);
  out.line("class ASN1C_{} : public {} {{", name, base);
  out.line(" public:");
  out.line("  using {}::{};", list ? "ASN1ListControl" : "ASN1Control",
           list ? "ASN1ListControl" : "ASN1Control");
  out.line("}};");
  out.line("inline int asn1E_{0}(ASN1Context& context, const ASN1T_{0}* value, Tagging tagging) {{", name);
  out.line("  return EncodeValue(context, kInfo_{}, value, tagging);", name);
  out.line("}}");
  out.line("inline int asn1D_{0}(ASN1Context& context, ASN1T_{0}* value, Tagging tagging, int length) {{",
           name);
  out.line("  return DecodeValue(context, kInfo_{}, value, tagging, length);", name);
  out.line("}}");
  out.line("inline void asn1Init_{0}(ASN1T_{0}* value) {{ ClearValue(value); }}", name);
  out.line("inline void asn1Free_{0}(ASN1Context&, ASN1T_{0}* value) {{ ClearValue(value); }}", name);
}

void WriteSharedTables(Writer& out, const Type& type, const Schema& schema) {
  if (!SharesTables(type, schema)) return;
  if (!type.members.empty())
    out.line("extern const MemberInfo kMembers_{}[{}];", type.cppName, type.members.size());
  if (!type.names.empty()) out.line("extern const NameInfo kNames_{}[{}];", type.cppName, type.names.size());
}

std::string Dotted(const std::vector<uint32_t>& arcs) { return fmt::format("{}", fmt::join(arcs, ".")); }

void WriteObjects(Writer& out, const Module& module) {
  if (!module.oids.empty()) out.blank();
  for (const Oid* const oid : module.oids)
    out.line("extern const ASN1OBJID ASN1V_{};  // {}", oid->cppName, Dotted(oid->arcs));
  if (!module.objects.empty()) out.blank();
  for (const Object* const object : module.objects)
    out.line("extern const ObjectInfo kObject_{};  // {}", object->cppName, object->className);
  if (!module.sets.empty()) out.blank();
  for (const ObjectSet* const set : module.sets)
    out.line("extern const ObjectSetInfo kObjects_{};  // {}", set->cppName, set->className);
}

}  // namespace

std::string Literal(std::string_view text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result.push_back('\\');
    result.push_back(c);
  }
  return result + '"';
}

bool SharesTables(const Type& type, const Schema& schema) {
  if (type.alias) return false;
  return std::any_of(schema.types.begin(), schema.types.end(), [&](const Type& other) {
    return other.alias && &other.root() == &type && other.module != type.module;
  });
}

void WriteHeader(Writer& out, const Header& header, const Schema& schema) {
  const Module& module = *header.module;
  const std::string guard = Guard(module.baseName);
  if (module.fileName.empty())
    out.line("// Made by asn1gen: types without a module.");
  else
    out.line("// Made by asn1gen from {}: change that file, not this one.", module.fileName);
  out.line("#ifndef {}", guard);
  out.line("#define {}", guard);
  out.blank();
  WriteIncludes(out, header);
  out.blank();
  out.line("namespace certkern::asn1data {{");
  if (!header.announced.empty()) out.blank();
  for (const std::string& name : header.announced) out.line("struct ASN1T_{};", name);
  for (const Type* const type : header.definitions) {
    out.blank();
    DefineType(out, *type);
  }
  for (const Type* const type : module.types) {
    WriteFunctions(out, *type);
    WriteSharedTables(out, *type, schema);
  }
  WriteObjects(out, module);
  out.blank();
  out.line("}}  // namespace certkern::asn1data");
  out.blank();
  out.line("#endif");
}

}  // namespace certkern::asn1gen
