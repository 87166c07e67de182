#include "supkern/configuration.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/limits.h"
#include "supkern/descriptor.h"
#include "supkern/toml.h"

namespace certkern::support {

namespace {

std::string FoldCase(std::string_view name) {
  std::string folded(name);
  for (char& c : folded) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return folded;
}

// Bounds the dots outside of strings and comments on each line. The parser bounds brackets within brackets
// but not the names of a dotted key, and each of these is a table that it destroys by recursion. A key never
// spans lines.
class DotCounter {
 public:
  // False, with the place in fault, as soon as a line has too many.
  bool check(std::string_view text, ConfigurationFault& fault) {
    size_t lineStart = 0, dots = 0;
    unsigned line = 1;
    for (size_t at = 0; at < text.size();) {
      const char c = text[at];
      if (c == '\n') {
        ++line;
        dots = 0;
        lineStart = at + 1;
        // a string or comment that may not cross a line ends with it: the parser refuses the text there
        if (!multiline_) inside_ = 0;
      } else if (!inside_ && std::string_view("=,[]{}").find(c) != std::string_view::npos) {
        dots = 0;  // a key ends here; the dots of numbers and times are none of its own
      } else if (!inside_ && c == '.' && ++dots >= kMaxConfigurationDepth) {
        fault.line = line;
        fault.column = static_cast<unsigned>(at - lineStart + 1);
        fault.text = "too many names in one key";
        return false;
      }
      at += step(text.substr(at));
    }
    return true;
  }

 private:
  // Moves over one lexical unit and follows the quotes.
  size_t step(std::string_view rest) {
    const char c = rest[0];
    if (!inside_) {
      if (c == '#') inside_ = c;
      if (c != '"' && c != '\'') return 1;
      inside_ = c;
      multiline_ = isTriple(rest, c);
      return multiline_ ? 3 : 1;
    }
    if (inside_ == '#') return 1;
    if (c == '\\' && inside_ == '"' && rest.size() > 1 && rest[1] != '\n') return 2;
    if (c != inside_ || (multiline_ && !isTriple(rest, c))) return 1;
    size_t length = 1;
    if (multiline_) {
      // one or two quotes may stand right before the closing three
      for (length = 3; length < 5 && length < rest.size() && rest[length] == c;) ++length;
    }
    inside_ = 0;
    multiline_ = false;
    return length;
  }

  static bool isTriple(std::string_view rest, char quote) {
    return rest.size() >= 3 && rest[1] == quote && rest[2] == quote;
  }

  char inside_ = 0;  // the quote that opened the string, '#' in a comment, 0 outside
  bool multiline_ = false;
};

ConfigurationValue ValueOf(const toml::node& node) {
  if (const auto* truth = node.as_boolean()) return truth->get();
  if (const auto* number = node.as_integer()) return number->get();
  if (const auto* text = node.as_string()) {
    // a text with a NUL inside cannot reach a C caller whole, so it is no text to us
    if (text->get().find('\0') == std::string::npos) return text->get();
  }
  return OtherKind{};
}

bool HasValue(const ConfigurationNode& node) { return !std::holds_alternative<NoValue>(node.value); }

bool Refuse(const toml::source_region& place, std::string text, ConfigurationFault& fault) {
  fault.line = place.begin.line;
  fault.column = place.begin.column;
  fault.text = std::move(text);
  return false;
}

// Tables whose names differ in case are one table; two values of one name are a fault, as TOML has it for
// equal names.
bool MergeTable(const toml::table& table, size_t depth, ConfigurationNode& into, ConfigurationFault& fault) {
  for (auto&& [key, node] : table) {
    if (depth >= kMaxConfigurationDepth) return Refuse(key.source(), "tables nest too deeply", fault);
    auto& child = into.children[FoldCase(key.str())];
    const bool isNew = !child;
    if (isNew) child = std::make_unique<ConfigurationNode>();
    if (const auto* inner = node.as_table()) {
      if (HasValue(*child))
        return Refuse(key.source(), "this name has a value already, in other case", fault);
      if (!MergeTable(*inner, depth + 1, *child, fault)) return false;
    } else {
      if (!isNew) return Refuse(key.source(), "this name is defined already, in other case", fault);
      child->value = ValueOf(node);
    }
  }
  return true;
}

// Reads at most limit + 1 bytes, so that the caller sees that there are more; an errno value on failure.
int ReadUpTo(const std::string& path, size_t limit, std::string& text) {
  // non-blocking: a FIFO without a writer must not hold up the program
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file) return errno;
  char buffer[16384];
  while (text.size() <= limit) {
    const ssize_t count = read(file.get(), buffer, std::min(sizeof buffer, limit + 1 - text.size()));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) break;
    text.append(buffer, static_cast<size_t>(count));
  }
  return 0;
}

const ConfigurationNode* FindNode(const ConfigurationNode& root, std::string_view path) {
  const ConfigurationNode* node = &root;
  while (!path.empty()) {
    if (path.front() != '\\') return nullptr;
    path.remove_prefix(1);
    const std::string_view name = path.substr(0, path.find('\\'));
    const auto child = node->children.find(FoldCase(name));
    if (child == node->children.end()) return nullptr;
    node = child->second.get();
    path.remove_prefix(name.size());
  }
  return node;
}

}  // namespace

std::string ConfigurationFault::describe() const {
  std::string place = file;
  if (line) place += ':' + std::to_string(line) + ':' + std::to_string(column);
  return place + ": " + text;
}

std::unique_ptr<ConfigurationNode> ParseConfiguration(std::string_view text, ConfigurationFault& fault) {
  if (!DotCounter().check(text, fault)) return nullptr;
  const toml::parse_result parsed = toml::parse(text);
  if (!parsed) {
    Refuse(parsed.error().source(), std::string(parsed.error().description()), fault);
    return nullptr;
  }
  auto root = std::make_unique<ConfigurationNode>();
  if (!MergeTable(parsed.table(), 0, *root, fault)) return nullptr;
  return root;
}

void Configuration::addFile(const std::string& path, Presence presence) {
  std::string text;
  const int error = ReadUpTo(path, kMaxConfigurationFile, text);
  const bool isAbsent = error == ENOENT || error == ENOTDIR;
  if (isAbsent && presence == Presence::Optional) return;
  if (error) {
    faults_.push_back({path, 0, 0, std::string("cannot be read: ") + strerrordesc_np(error)});
  } else if (text.size() > kMaxConfigurationFile) {
    faults_.push_back({path, 0, 0, "is larger than " + std::to_string(kMaxConfigurationFile) + " bytes"});
  } else {
    addText(text, path);
  }
}

void Configuration::addText(std::string_view text, const std::string& file) {
  ConfigurationFault fault{file, 0, 0, {}};
  if (auto layer = ParseConfiguration(text, fault)) {
    layers_.push_back(std::move(layer));
  } else {
    faults_.push_back(std::move(fault));
  }
}

const ConfigurationValue* Configuration::find(std::string_view path) const {
  for (const auto& layer : layers_) {
    const ConfigurationNode* node = FindNode(*layer, path);
    if (node && HasValue(*node)) return &node->value;
  }
  return nullptr;
}

}  // namespace certkern::support
