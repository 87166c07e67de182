// Text of a schema file, through the whole compiler.
#include <cstdlib>
#include <string>

#include "compiler.h"
#include "emitter.h"

namespace {

using namespace certkern::asn1gen;

void Require(bool condition) {
  if (!condition) std::abort();
}

// A schema without error can be written down, its order included: what is held by value stands in front.
void RequireOrder(const Schema& schema) {
  for (const Header& header : LayOut(schema)) {
    std::set<const Type*> defined;
    for (const Type* const type : header.definitions) {
      for (const Type* const needed : NeededBefore(*type))
        Require(defined.count(needed) || header.includes.count(needed->module->baseName));
      defined.insert(type);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::deque<SourceFile> files;
  files.push_back({"input.asn", std::string(reinterpret_cast<const char*>(data), size)});
  Compiler compiler(std::move(files));
  if (!compiler.run()) {
    for (const std::string& line : compiler.diagnostics().report())
      Require(line.find(": error: found ") != line.npos || line.find("more errors") != line.npos);
    Require(!compiler.diagnostics().report().empty());
    return 0;
  }
  RequireOrder(compiler.schema());
  Require(Emit(compiler.schema()) == Emit(compiler.schema()));
  return 0;
}
