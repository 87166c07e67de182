// The back end: C++ that says what the schema says.
#ifndef CERTKERN_ASN1GEN_EMITTER_H
#define CERTKERN_ASN1GEN_EMITTER_H

#include <fmt/format.h>

#include <map>
#include <string>

#include "layout.h"
#include "model.h"

namespace certkern::asn1gen {

// Text that grows line by line.
class Writer {
 public:
  template <class... Arguments>
  void line(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    fmt::format_to(std::back_inserter(text_), format, std::forward<Arguments>(arguments)...);
    text_.push_back('\n');
  }
  void blank() { text_.push_back('\n'); }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

// How the type is spelt where a value of it is declared.
std::string ValueType(const Type& type);
// A string literal.
std::string Literal(std::string_view text);

// structures and names for everything else, then what every type has
void WriteHeader(Writer& out, const Header& header, const Schema& schema);
// the tables that the runtime works by
void WriteSource(Writer& out, const Header& header, const Schema& schema);
void WriteCatalogueHeader(Writer& out, const Schema& schema);
void WriteCatalogueSource(Writer& out, const Schema& schema);

void DefineType(Writer& out, const Type& type);
// Whether tables of this type are needed in the sources of other modules: by another name of it that stands there.
bool SharesTables(const Type& type, const Schema& schema);

// All files, by name.
std::map<std::string, std::string> Emit(const Schema& schema);

}  // namespace certkern::asn1gen

#endif
