// The members of structures, choices and lists.
#include <fmt/format.h>

#include <algorithm>

#include "bounds.h"
#include "types.h"

namespace certkern::asn1gen {

// One more type inside types. Throws when that is one too many.
class TypeBuilder::Deeper {
 public:
  Deeper(size_t& depth, const Place& place) : depth_(depth) {
    if (depth_ >= kMaxReferences)
      throw SchemaError(place, "found too many types inside each other, expected fewer");
    ++depth_;
  }
  Deeper(const Deeper&) = delete;
  Deeper& operator=(const Deeper&) = delete;
  ~Deeper() { --depth_; }

 private:
  size_t& depth_;
};

void TypeBuilder::fillAll(SetFinder findSet) {
  findSet_ = std::move(findSet);
  for (auto& row : types_.named()) Attempt(diagnostics_, [&] { fill(row.second); });
}

void TypeBuilder::fill(Named& named) {
  Type& type = *named.type;
  if (named.members == Named::State::Done || type.alias || type.broken) return;
  if (named.members == Named::State::Working)
    throw SchemaError(
        type.place,
        fmt::format("found the components of '{}' inside themselves, expected others", type.name));
  named.members = Named::State::Working;
  const bool fine = Attempt(diagnostics_, [&] { describe(type, *named.syntax, named.symbol); });
  type.broken = type.broken || !fine;
  named.members = Named::State::Done;
}

void TypeBuilder::describe(Type& type, const TypeSyntax& syntax, const Symbol& symbol) {
  const Deeper deeper(depth_, type.place);
  if (IsList(type.kind)) {
    addElement(type, syntax, symbol);
  } else if (IsStructure(type.kind) || type.kind == Kind::Choice) {
    type.extensible = syntax.extensible;
    addComponents(type, syntax, symbol);
    setSelectors(type);
    if (IsStructure(type.kind)) setPresenceBits(type);
  }
}

// Of a list with a name.
void TypeBuilder::addElement(Type& type, const TypeSyntax& syntax, const Symbol& symbol) {
  const TypeUse element = use(*syntax.element, {&symbol, type.cppName + "_element"});
  const Word& selector = element.selector;
  if (!selector.empty())
    throw SchemaError(
        selector.place,
        fmt::format("found '@{}', expected none: a list with a name stands beside no components",
                    selector.text));
  if (element.tags == element.type->tags && !element.contained) types_.sharedList(type.kind, *element.type);
  type.members.push_back(ElementMember(element, syntax.element->place));
}

void TypeBuilder::addComponents(Type& type, const TypeSyntax& syntax, const Symbol& symbol) {
  bool tagsWritten = false;
  for (const ComponentSyntax& component : syntax.components) {
    tagsWritten = tagsWritten || (!component.componentsOf && !component.type.tags.empty());
    const bool fine = Attempt(diagnostics_, [&] {
      if (component.componentsOf)
        addComponentsOf(type, component);
      else
        addComponent(type, component, symbol);
    });
    type.broken = type.broken || !fine;
  }
  if (symbol.module->tagDefault != TagDefault::Automatic || tagsWritten) return;
  uint32_t next = 0;
  for (Member& member : type.members) {
    const Tag tag{2, next++};
    if (member.tags.empty())
      member.tags.push_back(tag);
    else
      member.tags.front() = tag;
  }
}

void TypeBuilder::addComponent(Type& type, const ComponentSyntax& component, const Symbol& symbol) {
  const TypeUse used = use(component.type, {&symbol, type.cppName + "_" + CppName(component.name.text)});
  Member member;
  member.name = component.name.text;
  member.cppName = CppMemberName(member.name);
  member.place = component.name.place;
  member.type = used.type;
  member.tags = used.tags;
  member.contained = used.contained;
  if (!used.objectSet.empty()) member.objects = findSet_(used.objectSet);
  member.selectorName = used.selector;
  member.pointer =
      type.kind == Kind::Choice && (IsStructure(used.type->kind) || used.type->kind == Kind::Choice);
  setPresence(member, component);
  addMember(type, std::move(member));
}

// Those of the type as it is without additions, with the tags that they have there.
void TypeBuilder::addComponentsOf(Type& type, const ComponentSyntax& component) {
  if (component.type.form != TypeForm::Reference || !component.type.tags.empty())
    throw SchemaError(component.type.place,
                      "found a type written in place, expected the name of a structure");
  const Word& name = component.type.name;
  Word word = name;
  const Type& source = types_.find(name).type->root();
  word.text = source.name;
  fill(types_.find(word));
  if (source.broken) throw AlreadyNoted();
  if (source.kind != type.kind)
    throw SchemaError(
        name.place,
        fmt::format("found '{}', expected a {}", name.text, type.kind == Kind::Set ? "SET" : "SEQUENCE"));
  for (const Member& member : source.members) {
    if (!member.addition) addMember(type, member);
  }
}

void TypeBuilder::addMember(Type& type, Member member) const {
  const auto same = std::find_if(type.members.begin(), type.members.end(),
                                 [&](const Member& other) { return other.name == member.name; });
  if (same != type.members.end())
    throw SchemaError(member.place,
                      fmt::format("found '{}' again, expected a new name: it stands at {}", member.name,
                                  ToText(same->place)));
  if (type.members.size() >= kMaxComponents)
    throw SchemaError(member.place,
                      fmt::format("found more than {} components, expected fewer", kMaxComponents));
  type.members.push_back(std::move(member));
}

void TypeBuilder::setPresence(Member& member, const ComponentSyntax& component) const {
  member.addition = component.addition;
  member.optional = component.optional || component.defaultValue || component.addition;
  const Kind kind = member.type->kind;
  member.hasDefault =
      component.defaultValue && (kind == Kind::Boolean || kind == Kind::Int32 || kind == Kind::Enumerated);
  if (member.hasDefault && !member.type->broken)
    member.defaultValue = defaultOf(member, *component.defaultValue);
}

int32_t TypeBuilder::defaultOf(const Member& member, const ValueSyntax& value) const {
  const Type& type = member.type->root();
  if (type.kind == Kind::Boolean) {
    if (value.kind == ValueSyntax::Kind::True) return 1;
    if (value.kind == ValueSyntax::Kind::False) return 0;
    throw SchemaError(value.word.place,
                      fmt::format("found '{}', expected 'TRUE' or 'FALSE'", value.word.text));
  }
  const auto name = std::find_if(type.names.begin(), type.names.end(),
                                 [&](const NamedNumber& row) { return row.name == value.word.text; });
  if (value.kind == ValueSyntax::Kind::Name && name != type.names.end()) return name->value;
  if (type.kind == Kind::Enumerated)
    throw SchemaError(value.word.place,
                      fmt::format("found '{}', expected a name of {}", value.word.text, type.name));
  return symbols_.integer32(value);
}

void TypeBuilder::setSelectors(Type& type) const {
  for (Member& member : type.members) {
    const Word& name = member.selectorName;
    if (name.empty()) continue;
    const auto found = std::find_if(type.members.begin(), type.members.end(),
                                    [&](const Member& other) { return other.name == name.text; });
    if (found == type.members.end() || found->type->kind != Kind::ObjectId)
      throw SchemaError(
          name.place,
          fmt::format("found '@{}', expected an OBJECT IDENTIFIER beside '{}'", name.text, member.name));
    member.selector = static_cast<int>(found - type.members.begin());
  }
}

void TypeBuilder::setPresenceBits(Type& type) const {
  int next = 0;
  for (Member& member : type.members) {
    member.presentBit = member.optional && !member.hasDefault ? next++ : -1;
  }
  if (static_cast<size_t>(next) > kMaxOptionalMembers)
    throw SchemaError(
        type.place,
        fmt::format("found {} optional members, expected no more than {}", next, kMaxOptionalMembers));
}

}  // namespace certkern::asn1gen
