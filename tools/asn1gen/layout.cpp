#include "layout.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "checks.h"

namespace certkern::asn1gen {
namespace {

bool HasStructure(const Type& type) {
  return !type.alias && (IsStructure(type.kind) || type.kind == Kind::Choice);
}

// Where the name must be known: a structure can be announced, everything else is a name for something.
void NeedName(const Type& type, std::vector<const Type*>& needed, std::vector<const Type*>& named) {
  (HasStructure(type) ? named : needed).push_back(&type);
}

void NeedDefinition(const Type& type, std::vector<const Type*>& needed) {
  needed.push_back(&type);
  if (type.alias) needed.push_back(&type.root());
}

struct Needs {
  std::vector<const Type*> needed, named;
};
Needs NeedsOf(const Type& type) {
  Needs needs;
  if (type.alias) {
    NeedName(*type.alias, needs.needed, needs.named);
    return needs;
  }
  for (const Member& member : type.members) {
    if (member.type->isSharedList)
      NeedName(*member.type->members.front().type, needs.needed, needs.named);
    else if (member.pointer || IsList(type.kind))
      NeedName(*member.type, needs.needed, needs.named);
    else
      NeedDefinition(*member.type, needs.needed);
  }
  return needs;
}

class Numbering {
 public:
  explicit Numbering(const Schema& schema) {
    add(schema.builtIns);
    for (const Module& module : schema.modules) add(module);
  }
  const std::vector<const Type*>& types() const { return types_; }
  size_t of(const Type* type) const { return numbers_.at(type); }

  // By what they need: those that need each other have the same number.
  std::vector<size_t> ranks() const {
    std::vector<std::vector<size_t>> edges(types_.size());
    for (size_t i = 0; i < types_.size(); ++i) {
      for (const Type* const needed : NeededBefore(*types_[i])) edges[i].push_back(of(needed));
    }
    return GroupsOf(edges);
  }

  std::vector<const Type*> inOrder() const {
    const std::vector<size_t> rank = ranks();
    std::vector<const Type*> sorted = types_;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [&](const Type* a, const Type* b) { return rank[of(a)] < rank[of(b)]; });
    return sorted;
  }

 private:
  void add(const Module& module) {
    for (const Type* const type : module.types) {
      numbers_[type] = types_.size();
      types_.push_back(type);
    }
  }
  std::vector<const Type*> types_;
  std::map<const Type*, size_t> numbers_;
};

using ModuleNumbers = std::map<const Module*, size_t>;

ModuleNumbers NumberModules(const Schema& schema) {
  ModuleNumbers numbers{
      {&schema.builtIns, 0}
  };
  for (const Module& module : schema.modules) numbers.emplace(&module, numbers.size());
  return numbers;
}

// Which modules share a header's definitions.
std::vector<size_t> GroupModules(const Numbering& numbering, const ModuleNumbers& modules) {
  std::vector<std::vector<size_t>> edges(modules.size());
  for (const Type* const type : numbering.types()) {
    for (const Type* const needed : NeededBefore(*type)) {
      if (needed->module != type->module)
        edges[modules.at(type->module)].push_back(modules.at(needed->module));
    }
  }
  return GroupsOf(edges);
}

}  // namespace

std::vector<const Type*> NeededBefore(const Type& type) { return NeedsOf(type).needed; }
std::vector<const Type*> NamedOnly(const Type& type) { return NeedsOf(type).named; }

void CheckLists(const Schema& schema, Diagnostics& diagnostics) {
  const Numbering numbering(schema);
  const std::vector<size_t> group = numbering.ranks();
  for (const Type* const type : numbering.types()) {
    for (const Type* const needed : NeededBefore(*type)) {
      if (group[numbering.of(needed)] != group[numbering.of(type)]) continue;
      diagnostics.add(
          type->place,
          fmt::format("found '{}' as a list of itself, expected a SEQUENCE or a CHOICE in between",
                      type->name));
      break;
    }
  }
}

std::vector<Header> LayOut(const Schema& schema) {
  const Numbering numbering(schema);
  const ModuleNumbers modules = NumberModules(schema);
  const std::vector<size_t> group = GroupModules(numbering, modules);
  std::vector<Header> headers(modules.size());
  for (const auto& [module, number] : modules) headers[number].module = module;
  std::map<size_t, Header*> firstOfGroup;
  for (size_t i = 0; i < headers.size(); ++i) {
    const auto [first, isNew] = firstOfGroup.emplace(group[i], &headers[i]);
    if (!isNew) headers[i].definedIn = first->second->module;
  }
  const auto headerOf = [&](const Type* type) { return firstOfGroup.at(group[modules.at(type->module)]); };
  for (const Type* const type : numbering.inOrder()) {
    Header& header = *headerOf(type);
    for (const Type* const needed : NeededBefore(*type)) {
      if (headerOf(needed) != &header) header.includes.insert(headerOf(needed)->module->baseName);
    }
    for (const Type* const named : NamedOnly(*type)) header.announced.insert(named->cppName);
    header.definitions.push_back(type);
  }
  return headers;
}

}  // namespace certkern::asn1gen
