// A DER object as `openssl asn1parse` sees it: where each element begins and ends is its word, not ours.
#ifndef CERTKERN_TESTS_INTEROP_ASN1_TREE_H
#define CERTKERN_TESTS_INTEROP_ASN1_TREE_H

#include "interop/openssl_tool.h"

#include <span>
#include <string>
#include <vector>

class Asn1Node {
 public:
  std::string type;  // "SEQUENCE", "cont [ 3 ]", "UTCTIME"
  std::string text;  // what stands behind the type: a time, the name of an object identifier
  std::span<const BYTE> whole;
  std::span<const BYTE> content;
  std::vector<Asn1Node> children;

  // The child at a place; a failure of the test, and an empty node, where there is none.
  const Asn1Node& operator[](size_t index) const;
  bool is(const std::string& wanted) const { return type == wanted; }
  bool isTime() const { return is("UTCTIME") || is("GENERALIZEDTIME"); }
  // Dotted decimal, by the names that `openssl list` gives.
  std::string oid() const;
};

// The spans point into der.
Asn1Node ParseWithOpenssl(std::span<const BYTE> der);

#endif
