// The front end: from the bytes of schema files to a schema, or to errors.
#ifndef CERTKERN_ASN1GEN_COMPILER_H
#define CERTKERN_ASN1GEN_COMPILER_H

#include <deque>
#include <vector>

#include "model.h"
#include "token.h"

namespace certkern::asn1gen {

// Holds what views point into.
class Compiler {
 public:
  explicit Compiler(std::deque<SourceFile> files) : files_(std::move(files)) {}
  Compiler(const Compiler&) = delete;
  Compiler& operator=(const Compiler&) = delete;

  // Answers whether the schema is without error; if it is not, it is not to be looked at.
  bool run();
  const Schema& schema() const { return schema_; }
  const Diagnostics& diagnostics() const { return diagnostics_; }

 private:
  void parse();
  void analyse();
  void finish();

  std::deque<SourceFile> files_;
  std::deque<std::vector<Token>> tokens_;
  std::vector<ModuleSyntax> modules_;
  Diagnostics diagnostics_;
  Schema schema_;
};

}  // namespace certkern::asn1gen

#endif
