// The constants that the runtime encodes and decodes by.
#include <algorithm>
#include <set>

#include "emitter.h"

namespace certkern::asn1gen {
namespace {

constexpr std::string_view kKindNames[] = {"Boolean",     "Int32", "BigInteger", "Enumerated", "BitString",
                                           "OctetString", "Null",  "ObjectId",   "Text",       "Open",
                                           "Sequence",    "Set",   "SequenceOf", "SetOf",      "Choice"};
constexpr std::string_view kClassNames[] = {"Universal", "Application", "Context", "Private"};

std::string TagsName(const TagList& tags) {
  std::string name = "kTags";
  for (const Tag& tag : tags) name += fmt::format("_{}{}", kClassNames[tag.tagClass], tag.number);
  return name;
}

std::string TagsText(const TagList& tags) { return tags.empty() ? "{}" : TagsName(tags); }

// Separated by commas, on as many lines as it takes.
std::string Wrapped(const std::vector<std::string>& fields, std::string_view indent) {
  constexpr size_t kLineWidth = 110;
  std::string text;
  size_t width = indent.size();
  for (const std::string& field : fields) {
    const bool first = text.empty();
    const bool fits = width + field.size() + 2 <= kLineWidth;
    if (!first) text += fits ? ", " : fmt::format(",\n{}", indent);
    width = fits ? width + field.size() + 2 : indent.size() + field.size();
    text += field;
  }
  return text;
}

// The order of the file: what is included, the tags that stand in it, the tables.
class SourceWriter {
 public:
  SourceWriter(Writer& out, const Module& module, const Schema& schema)
      : out_(out), module_(module), schema_(schema) {}

  void run() {
    if (module_.fileName.empty())
      out_.line("// Made by asn1gen: types without a module.");
    else
      out_.line("// Made by asn1gen from {}: change that file, not this one.", module_.fileName);
    writeIncludes();
    out_.blank();
    out_.line("namespace certkern::asn1data {{");
    writeTags();
    for (const Oid* const oid : module_.oids) writeOid(*oid);
    // other names of a type show the tables of the one that has them
    for (const Type* const type : module_.types) {
      if (!type->alias) writeType(*type);
    }
    for (const Type* const type : module_.types) {
      if (type->alias) writeType(*type);
    }
    for (const Object* const object : module_.objects)
      out_.line("\nconstinit const ObjectInfo kObject_{}{};", object->cppName, objectText(*object));
    for (const ObjectSet* const set : module_.sets) writeSet(*set);
    out_.blank();
    out_.line("}}  // namespace certkern::asn1data");
  }

 private:
  void writeIncludes() {
    std::set<std::string> includes;
    for (const Type* const type : module_.types) noteTypes(includes, *type);
    for (const Object* const object : module_.objects) noteObject(includes, *object);
    for (const ObjectSet* const set : module_.sets) {
      for (const Object* const object : set->objects) noteObject(includes, *object);
    }
    includes.erase(module_.baseName);
    out_.line("#include \"asn1data/{}.h\"", module_.baseName);
    out_.blank();
    out_.line("#include <cstddef>");
    if (!includes.empty()) out_.blank();
    for (const std::string& name : includes) out_.line("#include \"asn1data/{}.h\"", name);
  }

  static void noteTypes(std::set<std::string>& includes, const Type& type) {
    if (type.alias) includes.insert(type.root().module->baseName);
    for (const Member& member : type.members) {
      includes.insert(member.type->module->baseName);
      includes.insert(member.type->root().module->baseName);
      if (member.objects) includes.insert(member.objects->module->baseName);
    }
  }

  static void noteObject(std::set<std::string>& includes, const Object& object) {
    includes.insert(object.id->module->baseName);
    if (object.type) includes.insert(object.type->module->baseName);
  }

  // Each row of tags that occurs here, once.
  void writeTags() {
    std::set<TagList> all;
    for (const Type* const type : module_.types) {
      all.insert(type->tags);
      for (const Member& member : type->members) all.insert(member.tags);
    }
    all.erase(TagList());
    if (all.empty()) return;
    out_.line("namespace {{");
    out_.blank();
    for (const TagList& tags : all) {
      std::string row;
      for (const Tag& tag : tags)
        row += fmt::format("{}MakeTag(TagClass::{}, {})", row.empty() ? "" : ", ", kClassNames[tag.tagClass],
                           tag.number);
      out_.line("constexpr Asn1Tag {}[] = {{{}}};", TagsName(tags), row);
    }
    out_.blank();
    out_.line("}}  // namespace");
  }

  void writeOid(const Oid& oid) {
    out_.line("\nconstinit const ASN1OBJID ASN1V_{}{{{}, {{{}}}}};", oid.cppName, oid.arcs.size(),
              fmt::join(oid.arcs, ", "));
  }

  void writeType(const Type& type) {
    const Type& root = type.root();
    out_.blank();
    if (!type.alias && !type.members.empty()) writeMembers(type);
    if (!type.alias && !type.names.empty()) writeNames(type);
    out_.line("constinit const TypeInfo kInfo_{}{{", type.cppName);
    out_.line("    .name = {},", Literal(type.name));
    out_.line("    .kind = TypeKind::{},", kKindNames[static_cast<size_t>(type.kind)]);
    if (root.extensible) out_.line("    .extensible = true,");
    out_.line("    .tags = {},", TagsText(type.tags));
    out_.line("    .size = sizeof(ASN1T_{}),", type.cppName);
    if (!root.members.empty()) out_.line("    .members = kMembers_{},", root.cppName);
    if (!root.names.empty()) out_.line("    .names = kNames_{},", root.cppName);
    out_.line("}};");
  }

  // Tables that other sources refer to were declared in the header.
  std::string_view linkage(const Type& type) const {
    return SharesTables(type, schema_) ? "constinit const" : "static constexpr";
  }

  void writeMembers(const Type& type) {
    out_.line("{} MemberInfo kMembers_{}[] = {{", linkage(type), type.cppName);
    for (const Member& member : type.members) out_.line("    {{{}}},", memberText(type, member));
    out_.line("}};");
  }

  static std::string memberText(const Type& type, const Member& member) {
    const std::string offset = IsList(type.kind)
        ? "0"
        : fmt::format("offsetof(ASN1T_{}, {})", type.cppName,
                      type.kind == Kind::Choice ? "u" : member.cppName);
    std::vector<std::string> fields = {".name = " + Literal(member.name),
                                       ".type = &kInfo_" + member.type->cppName,
                                       ".tags = " + TagsText(member.tags), ".offset = " + offset};
    if (member.presentBit >= 0) fields.push_back(fmt::format(".presentBit = {}", member.presentBit));
    if (member.optional) fields.push_back(".optional = true");
    if (member.hasDefault) fields.push_back(".hasDefault = true");
    if (member.pointer) fields.push_back(".pointer = true");
    if (member.defaultValue) fields.push_back(fmt::format(".defaultValue = {}", member.defaultValue));
    if (member.objects) fields.push_back(".objects = &kObjects_" + member.objects->cppName);
    if (member.selector >= 0) fields.push_back(fmt::format(".selector = {}", member.selector));
    if (member.contained) fields.push_back(".contained = true");
    return Wrapped(fields, "     ");
  }

  void writeNames(const Type& type) {
    out_.line("{} NameInfo kNames_{}[] = {{", linkage(type), type.cppName);
    for (const NamedNumber& named : type.names)
      out_.line("    {{{}, {}}},", Literal(named.name), named.value);
    out_.line("}};");
  }

  static std::string objectText(const Object& object) {
    return fmt::format("{{{}, &ASN1V_{}, {}}}", Literal(object.name), object.id->cppName,
                       object.type ? "&kInfo_" + object.type->cppName : "nullptr");
  }

  void writeSet(const ObjectSet& set) {
    out_.blank();
    if (!set.objects.empty()) {
      out_.line("static constexpr ObjectInfo kRows_{}[] = {{", set.cppName);
      for (const Object* const object : set.objects) out_.line("    {},", objectText(*object));
      out_.line("}};");
    }
    out_.line("constinit const ObjectSetInfo kObjects_{}{{{}, {}, {}}};", set.cppName, Literal(set.name),
              Literal(set.className), set.objects.empty() ? "{}" : "kRows_" + set.cppName);
  }

  Writer& out_;
  const Module& module_;
  const Schema& schema_;
};

}  // namespace

void WriteSource(Writer& out, const Header& header, const Schema& schema) {
  SourceWriter(out, *header.module, schema).run();
}

}  // namespace certkern::asn1gen
