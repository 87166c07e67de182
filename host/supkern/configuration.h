// Settings by path, from layers of TOML text. Nothing here looks at the environment or is exported:
// settings.h holds the process's own configuration.
#ifndef CERTKERN_SUPKERN_CONFIGURATION_H
#define CERTKERN_SUPKERN_CONFIGURATION_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/limits.h"

namespace certkern::support {

// What a name stands for: nothing but its children, a value, or a kind that no setting has (a float, an array
// ...).
struct NoValue {};
struct OtherKind {};
using ConfigurationValue = std::variant<NoValue, bool, int64_t, std::string, OtherKind>;

// One name of the hierarchy; children are keyed by their names in lower case.
struct ConfigurationNode {
  ConfigurationValue value;
  std::map<std::string, std::unique_ptr<ConfigurationNode>, std::less<>> children;
};

// Why a file does not count. A line of 0 means that the fault has no place in the text.
struct ConfigurationFault {
  std::string file;
  unsigned line = 0;
  unsigned column = 0;
  std::string text;

  // "file:line:column: text"
  std::string describe() const;
};

// Reads TOML text into nodes; null, with line, column and text of the fault set, when it is no TOML, nests
// too deeply or defines two values whose names differ in case only.
std::unique_ptr<ConfigurationNode> ParseConfiguration(std::string_view text, ConfigurationFault& fault);

enum class Presence {
  Optional,  // a file that is not there is an empty one
  Required,  // a file that is not there is a fault
};

// Layers of configuration, the strongest first. A file with a fault counts as absent and leaves its fault
// behind.
class Configuration {
 public:
  void addFile(const std::string& path, Presence presence);
  void addText(std::string_view text, const std::string& file);

  // The value at a path such as \config\Certkern\max_elements, compared without regard to the case of ASCII
  // letters; null when no layer has one.
  const ConfigurationValue* find(std::string_view path) const;

  const std::vector<ConfigurationFault>& faults() const { return faults_; }

 private:
  std::vector<std::unique_ptr<ConfigurationNode>> layers_;
  std::vector<ConfigurationFault> faults_;
};

}  // namespace certkern::support

#endif
