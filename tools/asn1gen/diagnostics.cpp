#include "diagnostics.h"

#include <fmt/format.h>

#include <algorithm>

#include "bounds.h"

namespace certkern::asn1gen {

std::string ToText(const Place& place) {
  return fmt::format("{}:{}:{}", place.file ? *place.file : "?", place.line, place.column);
}

void Diagnostics::add(const Place& place, std::string text) {
  if (errors_.size() >= kMaxDiagnostics) {
    ++left_out_;
    return;
  }
  errors_.push_back({place, std::move(text)});
}

std::vector<std::string> Diagnostics::report() const {
  std::vector<const Entry*> sorted;
  for (const Entry& entry : errors_) sorted.push_back(&entry);
  // files keep the order in which their first error was found
  std::vector<const std::string*> files;
  for (const Entry& entry : errors_) {
    if (std::find(files.begin(), files.end(), entry.place.file) == files.end())
      files.push_back(entry.place.file);
  }
  const auto rank = [&](const Entry* entry) {
    const auto file = std::find(files.begin(), files.end(), entry->place.file) - files.begin();
    return std::tuple(file, entry->place.line, entry->place.column);
  };
  std::stable_sort(sorted.begin(), sorted.end(),
                   [&](const Entry* a, const Entry* b) { return rank(a) < rank(b); });
  std::vector<std::string> lines;
  for (const Entry* entry : sorted)
    lines.push_back(fmt::format("{}: error: {}", ToText(entry->place), entry->text));
  if (left_out_) lines.push_back(fmt::format("{} more errors are not shown", left_out_));
  return lines;
}

}  // namespace certkern::asn1gen
