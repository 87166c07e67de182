// The compiler over texts instead of files.
#ifndef CERTKERN_TESTS_ASN1GEN_COMPILE_H
#define CERTKERN_TESTS_ASN1GEN_COMPILE_H

#include <memory>
#include <string>

#include "compiler.h"

namespace certkern::asn1gen {

// A single file "t.asn"; compiled already.
inline std::unique_ptr<Compiler> Compile(const std::string& text) {
  std::deque<SourceFile> files;
  files.push_back({"t.asn", text});
  auto compiler = std::make_unique<Compiler>(std::move(files));
  compiler->run();
  return compiler;
}

// The body of a module with IMPLICIT TAGS; its first line is line 2.
inline std::unique_ptr<Compiler> CompileBody(const std::string& body) {
  return Compile("T DEFINITIONS IMPLICIT TAGS ::= BEGIN\n" + body + "\nEND\n");
}

}  // namespace certkern::asn1gen

#endif
