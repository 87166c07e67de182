// Text of a configuration file. The support library hides its parser, so the source is compiled in.
#include "supkern/configuration.cpp"

#include <cstdlib>
#include <string>

namespace {

using certkern::kMaxConfigurationDepth;
using certkern::support::Configuration;
using certkern::support::ConfigurationNode;

void Require(bool condition) {
  if (!condition) std::abort();
}

// What the look-up must find for each node, by its path; names with a separator inside cannot be asked for.
void RequireFound(const Configuration& configuration, const ConfigurationNode& node, const std::string& path,
                  size_t depth) {
  Require(depth <= kMaxConfigurationDepth);
  if (!std::holds_alternative<certkern::support::NoValue>(node.value)) {
    Require(configuration.find(path) != nullptr);
    const auto* text = std::get_if<std::string>(&node.value);
    Require(!text || text->find('\0') == std::string::npos);
  }
  for (const auto& [name, child] : node.children) {
    if (name.find('\\') == std::string::npos)
      RequireFound(configuration, *child, path + '\\' + name, depth + 1);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  certkern::support::ConfigurationFault fault;
  const auto root = certkern::support::ParseConfiguration(text, fault);
  Configuration configuration;
  configuration.addText(text, "input");
  Require(configuration.faults().size() == (root ? 0u : 1u));
  if (root) {
    RequireFound(configuration, *root, "", 0);
  } else {
    Require(fault.line > 0 && !fault.text.empty());
  }
  return 0;
}
