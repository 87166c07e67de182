// What `certkern asn1` makes of any bytes, bare and as any type of the schema: elements that lie within each other, JSON that can
// be read, and text without a character that a terminal would obey.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "asn1_elements.h"
#include "asn1_typing.h"
#include "asn1_writer.h"
#include "asn1data/catalogue.h"
#include "writers.h"

using namespace certkern;
using namespace certkern::cli;

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

template <typename Write>
std::string Written(const Write& write) {
  char* text = nullptr;
  size_t size = 0;
  std::FILE* stream = open_memstream(&text, &size);
  Require(stream != nullptr);
  write(stream);
  std::fclose(stream);
  std::string result(text, size);
  std::free(text);
  return result;
}

void RequireNested(const Elements& elements, size_t size) {
  for (size_t i = 0; i < elements.size(); ++i) {
    const Element& outer = elements[i];
    Require(outer.offset < outer.contentOffset && outer.contentOffset + outer.contentLength <= size);
    Require(outer.behind > i && outer.behind <= elements.size());
    for (size_t inner = i + 1; inner < outer.behind; inner = elements[inner].behind) {
      Require(elements[inner].depth == outer.depth + 1 && elements[inner].offset >= outer.contentOffset);
      Require(elements[inner].contentOffset + elements[inner].contentLength
              <= outer.contentOffset + outer.contentLength);
    }
  }
}

void Show(std::span<const uint8_t> bytes, const TypeInfo* type) {
  Typed typed;
  if (type) typed = ReadTyped(bytes, 0, *type);
  if (typed.fault) {
    Require(typed.fault->offset <= bytes.size());
    return;
  }
  ElementBudget budget;
  const ElementsRead read =
      ReadElements(bytes, 0, budget, [&](uint32_t content) { return typed.at(content) != nullptr; });
  Require(read.fault ? read.fault->offset <= bytes.size() : read.size > 0 && read.size <= bytes.size());
  Require(!type || read.fault || read.size == typed.size);
  RequireNested(read.elements, bytes.size());
  if (read.elements.empty()) return;
  const ElementTree tree{bytes, read.elements, typed};
  for (const char c : Written([&](std::FILE* out) { PrintElements(out, tree); }))
    Require(c == '\n' || static_cast<unsigned char>(c) >= 0x20);
  Require(nlohmann::json::accept(Written([&](std::FILE* out) {
    JsonWriter writer(out);
    writer.write(ElementField(tree, 0));
    writer.finish();
  })));
}

}  // namespace

// The first two bytes pick a type, or none.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const auto types = asn1data::AllTypes();
  const size_t pick = size_t{data[0]} << 8 | data[1];
  Show({data + 2, size - 2}, pick < types.size() ? types[pick] : nullptr);
  return 0;
}
