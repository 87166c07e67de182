#include "interop/asn1_tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <sstream>

namespace {

// Lines "short = long, dotted", or "name = dotted" where both names are one.
std::map<std::string, std::string> ReadObjectNames() {
  std::map<std::string, std::string> names;
  std::istringstream lines(RunShell("OPENSSL_CONF=/dev/null openssl list -objects"));
  for (std::string line; std::getline(lines, line);) {
    const size_t equals = line.find(" = ");
    if (equals == std::string::npos) continue;
    const std::string right = line.substr(equals + 3);
    const size_t comma = right.rfind(", ");
    if (comma == std::string::npos) {
      names[line.substr(0, equals)] = right;
    } else {
      names[right.substr(0, comma)] = right.substr(comma + 2);
    }
  }
  return names;
}

struct Line {
  size_t offset = 0;
  size_t depth = 0;
  size_t header = 0;
  size_t length = 0;
  std::string type;
  std::string text;
};

// "   10:d=3  hl=2 l=   1 prim: INTEGER           :02"
bool ReadLine(const std::string& line, Line& out) {
  int end = 0;
  if (std::sscanf(line.c_str(), " %zu:d=%zu hl=%zu l=%zu %*4s: %n", &out.offset, &out.depth, &out.header,
                  &out.length, &end)
      != 4) {
    return false;
  }
  const std::string rest = line.substr(static_cast<size_t>(end));
  const size_t colon = rest.find(':');
  out.type = rest.substr(0, std::min(colon, rest.find("  ")));  // the type is filled up with blanks
  out.text = colon == std::string::npos ? "" : rest.substr(colon + 1);
  return true;
}

}  // namespace

const Asn1Node& Asn1Node::operator[](size_t index) const {
  static const Asn1Node kNone;
  if (index < children.size()) return children[index];
  ADD_FAILURE() << type << " has no element " << index;
  return kNone;
}

std::string Asn1Node::oid() const {
  static const std::map<std::string, std::string> kNames = ReadObjectNames();
  const auto found = kNames.find(text);
  return found == kNames.end() ? text : found->second;
}

Asn1Node ParseWithOpenssl(std::span<const BYTE> der) {
  const std::string path = WriteScratch(der);
  std::istringstream lines(
      RunShell("OPENSSL_CONF=/dev/null openssl asn1parse -inform DER -in '" + path + "'"));
  Asn1Node root;  // holds the outermost element
  std::vector<Asn1Node*> open = {&root};
  Line line;
  for (std::string text; std::getline(lines, text);) {
    if (!ReadLine(text, line) || line.depth >= open.size()
        || line.offset + line.header + line.length > der.size()) {
      ADD_FAILURE() << "cannot read: " << text;
      break;
    }
    open.resize(line.depth + 1);
    const auto whole = der.subspan(line.offset, line.header + line.length);
    open.back()->children.push_back({line.type, line.text, whole, whole.subspan(line.header), {}});
    open.push_back(&open.back()->children.back());
  }
  return root[0];
}
