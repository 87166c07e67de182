// What `certkern show` does with a file: whatever the bytes, the answer is JSON without a repeated key, and text
// without a character that a terminal would obey.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "failure.h"
#include "input.h"
#include "message.h"
#include "message_fields.h"
#include "message_file.h"
#include "object_fields.h"
#include "shape.h"
#include "writers.h"

namespace {

using certkern::cli::Field;

void Require(bool condition) {
  if (!condition) std::abort();
}

template <typename Writer>
std::string Written(const Field& object) {
  char* text = nullptr;
  size_t size = 0;
  std::FILE* stream = open_memstream(&text, &size);
  Require(stream != nullptr);
  Writer writer(stream);
  writer.write(object);
  writer.finish();
  std::fclose(stream);
  std::string result(text, size);
  std::free(text);
  return result;
}

void RequireSoundJson(const std::string& text) {
  using nlohmann::json;
  std::vector<std::set<std::string>> keys;
  const json parsed = json::parse(
      text,
      [&keys](int, json::parse_event_t event, json& value) {
        if (event == json::parse_event_t::object_start) keys.emplace_back();
        if (event == json::parse_event_t::object_end) keys.pop_back();
        if (event == json::parse_event_t::key) Require(keys.back().insert(value.get<std::string>()).second);
        return true;
      },
      false);
  Require(!parsed.is_discarded());
}

void RequireSoundOutput(const certkern::cli::Field& object) {
  RequireSoundJson(Written<certkern::cli::JsonWriter>(object));
  for (const char c : Written<certkern::cli::TextWriter>(object)) {
    Require(c == '\n' || static_cast<unsigned char>(c) >= 0x20);
  }
}

void ShowMessage(std::span<const uint8_t> bytes) {
  try {
    if (const auto object = certkern::cli::MessageField(bytes, {})) RequireSoundOutput(*object);
  } catch (const certkern::cli::Failure&) {
    // a part that can't be read is told of
  }
}

void ShowObject(std::span<const uint8_t> bytes) {
  if (certkern::cli::LooksLikeMessage(bytes)) return ShowMessage(bytes);
  const auto kind = certkern::cli::RecognizeObject(bytes);
  if (!kind) {
    Require(certkern::cli::FindFaultOfUnknown(bytes).offset <= bytes.size());
    return;
  }
  const auto fault = certkern::cli::FindFault(*kind, bytes);
  Require(!fault || fault->offset <= bytes.size());
  const auto object = certkern::cli::ObjectField(*kind, bytes, {});
  if (!object) return;
  RequireSoundOutput(*object);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto onBlock = [](const certkern::cli::Block& block) {
    for (std::span<const uint8_t> rest = block.bytes; !rest.empty();) {
      const auto element = certkern::cli::ElementSize(rest);
      Require(!element || (*element && *element <= rest.size()));
      ShowObject(rest.first(element.value_or(rest.size())));
      if (!element) return;
      rest = rest.subspan(*element);
    }
  };
  const auto ignore = [](const std::string&) {};
  certkern::cli::ReadBlocks({data, size},
                            {onBlock, ignore, ignore, certkern::cli::Wanted::ObjectsAndMessages});
  return 0;
}
