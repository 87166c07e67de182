// Names as chains compare them: decoded, with the values of the usual attributes folded (case, runs of white space)
// where they are PrintableStrings. A name that does not decode is equal to none.
#ifndef CERTKERN_CERTKERN_CHAIN_NORMAL_NAME_H
#define CERTKERN_CERTKERN_CHAIN_NORMAL_NAME_H

#include <certkern/types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace certkern {

// One flat key instead of a tree: counts, identifiers and folded values behind each other, each with its length, so
// that two names are equal exactly when their keys are.
class NormalName {
 public:
  NormalName() = default;                              // of a name that does not decode
  explicit NormalName(std::span<const BYTE> encoded);  // throws std::bad_alloc

  bool decoded() const { return key_.has_value(); }
  // False when either does not decode.
  bool equals(const NormalName& other) const { return key_ && other.key_ && *key_ == *other.key_; }
  // For look-ups; empty when it does not decode.
  std::string key() const { return key_.value_or(std::string()); }
  // Of the key; 0 when it does not decode.
  uint64_t hash() const;

 private:
  std::optional<std::string> key_;
};

}  // namespace certkern

#endif
