// Everything by name.
#include <algorithm>

#include "emitter.h"

namespace certkern::asn1gen {
namespace {

std::vector<const Module*> AllModules(const Schema& schema) {
  std::vector<const Module*> modules{&schema.builtIns};
  for (const Module& module : schema.modules) modules.push_back(&module);
  std::sort(modules.begin(), modules.end(),
            [](const Module* a, const Module* b) { return a->baseName < b->baseName; });
  return modules;
}

// Sorted by name, as look-ups expect it.
template <class Row>
std::vector<const Row*> Sorted(const std::deque<Row>& rows) {
  std::vector<const Row*> sorted;
  for (const Row& row : rows) sorted.push_back(&row);
  std::sort(sorted.begin(), sorted.end(), [](const Row* a, const Row* b) { return a->name < b->name; });
  return sorted;
}

template <class Row, class Format>
void WriteTable(Writer& out, std::string_view type, std::string_view function, const std::deque<Row>& rows,
                Format format) {
  out.blank();
  out.line("std::span<const {}> {}() {{", type, function);
  if (rows.empty()) {
    out.line("  return {{}};");
  } else {
    out.line("  static constexpr const {} kRows[] = {{", type);
    for (const Row* const row : Sorted(rows)) out.line("      {},", format(*row));
    out.line("  }};");
    out.line("  return kRows;");
  }
  out.line("}}");
}

}  // namespace

void WriteCatalogueHeader(Writer& out, const Schema& schema) {
  out.line(
      "// Made by asn1gen: all types, objects and identifiers of the schema, each table sorted by name.");
  out.line("#ifndef CERTKERN_ASN1DATA_CATALOGUE_H");
  out.line("#define CERTKERN_ASN1DATA_CATALOGUE_H");
  out.blank();
  out.line("#include <span>");
  out.blank();
  for (const Module* const module : AllModules(schema))
    out.line("#include \"asn1data/{}.h\"", module->baseName);
  out.blank();
  out.line("namespace certkern::asn1data {{");
  out.blank();
  out.line("struct NamedObject {{");
  out.line("  const char* name;");
  out.line("  const char* objectClass;");
  out.line("  const ObjectInfo* object;");
  out.line("}};");
  out.blank();
  out.line("struct NamedOid {{");
  out.line("  const char* name;");
  out.line("  const ASN1OBJID* id;");
  out.line("}};");
  out.blank();
  out.line("std::span<const TypeInfo* const> AllTypes();");
  out.line("std::span<const ObjectSetInfo* const> AllObjects();");
  out.line("std::span<const NamedObject> AllSingleObjects();");
  out.line("std::span<const NamedOid> AllOids();");
  out.blank();
  out.line("}}  // namespace certkern::asn1data");
  out.blank();
  out.line("#endif");
}

void WriteCatalogueSource(Writer& out, const Schema& schema) {
  out.line("// Made by asn1gen: all types, objects and identifiers of the schema.");
  out.line("#include \"asn1data/catalogue.h\"");
  out.blank();
  out.line("namespace certkern::asn1data {{");
  WriteTable(out, "TypeInfo* const", "AllTypes", schema.types,
             [](const Type& type) { return "&kInfo_" + type.cppName; });
  WriteTable(out, "ObjectSetInfo* const", "AllObjects", schema.sets,
             [](const ObjectSet& set) { return "&kObjects_" + set.cppName; });
  WriteTable(out, "NamedObject", "AllSingleObjects", schema.objects, [](const Object& object) {
    return fmt::format("{{{}, {}, &kObject_{}}}", Literal(object.name), Literal(object.className),
                       object.cppName);
  });
  WriteTable(out, "NamedOid", "AllOids", schema.oids,
             [](const Oid& oid) { return fmt::format("{{{}, &ASN1V_{}}}", Literal(oid.name), oid.cppName); });
  out.blank();
  out.line("}}  // namespace certkern::asn1data");
}

std::map<std::string, std::string> Emit(const Schema& schema) {
  std::map<std::string, std::string> files;
  const auto write = [&](const std::string& name, auto writeTo) {
    Writer out;
    writeTo(out);
    files[name] = out.text();
  };
  for (const Header& header : LayOut(schema)) {
    write(header.module->baseName + ".h", [&](Writer& out) { WriteHeader(out, header, schema); });
    write(header.module->baseName + ".cpp", [&](Writer& out) { WriteSource(out, header, schema); });
  }
  write(std::string(kCatalogueFile) + ".h", [&](Writer& out) { WriteCatalogueHeader(out, schema); });
  write(std::string(kCatalogueFile) + ".cpp", [&](Writer& out) { WriteCatalogueSource(out, schema); });
  return files;
}

}  // namespace certkern::asn1gen
