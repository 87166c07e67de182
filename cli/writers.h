// The two forms in which the tree of an object leaves the tool. Both write as they go: a list that makes its
// elements when asked is never held as a whole.
#ifndef CERTKERN_CLI_WRITERS_H
#define CERTKERN_CLI_WRITERS_H

#include "field.h"

#include <cstdio>
#include <string>
#include <string_view>

namespace certkern::cli {

class ObjectWriter {
 public:
  virtual ~ObjectWriter() = default;
  // An object; its label says what it is.
  virtual void write(const Field& object) = 0;
  // Behind the last object.
  virtual void finish() = 0;
};

// Labels and values in columns; nothing foreign reaches the terminal unescaped.
class TextWriter : public ObjectWriter {
 public:
  explicit TextWriter(std::FILE* out) : out_(out) {}
  void write(const Field& object) override;
  void finish() override {}

 private:
  std::FILE* out_;
  bool first_ = true;
};

// One array of objects. A key is the label in camel case.
class JsonWriter : public ObjectWriter {
 public:
  explicit JsonWriter(std::FILE* out) : out_(out) {}
  void write(const Field& object) override;
  void finish() override;

 private:
  std::FILE* out_;
  bool first_ = true;
};

// "Not before" becomes "notBefore", "CRL number" "crlNumber", "SHA-256" "sha256".
std::string KeyOf(std::string_view label);

}  // namespace certkern::cli

#endif
