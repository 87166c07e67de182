// Places in schema files, and the errors found there.
#ifndef CERTKERN_ASN1GEN_DIAGNOSTICS_H
#define CERTKERN_ASN1GEN_DIAGNOSTICS_H

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

namespace certkern::asn1gen {

struct Place {
  const std::string* file = nullptr;  // its name
  uint32_t line = 0;                  // from 1
  uint32_t column = 0;                // from 1, in bytes
};

std::string ToText(const Place& place);

// Errors in the order in which they were found; the report is in the order of the files.
class Diagnostics {
 public:
  void add(const Place& place, std::string text);
  bool empty() const { return errors_.empty(); }
  size_t count() const { return errors_.size(); }
  std::vector<std::string> report() const;

 private:
  struct Entry {
    Place place;
    std::string text;
  };
  std::vector<Entry> errors_;
  size_t left_out_ = 0;
};

// Ends the work on one assignment; caught where the next one begins.
class SchemaError : public std::exception {
 public:
  SchemaError(const Place& place, std::string text) : place_(place), text_(std::move(text)) {}
  const Place& place() const { return place_; }
  const std::string& text() const { return text_; }
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  Place place_;
  std::string text_;
};

// For what rests on something whose error was noted: ends the work as well, and adds nothing to the report.
inline SchemaError AlreadyNoted() { return SchemaError(Place(), ""); }

// Runs one step; what it throws is noted, and the caller goes on. Answers whether the step came through.
template <class Step>
bool Attempt(Diagnostics& diagnostics, Step step) {
  try {
    step();
    return true;
  } catch (const SchemaError& error) {
    if (!error.text().empty()) diagnostics.add(error.place(), error.text());
    return false;
  }
}

}  // namespace certkern::asn1gen

#endif
