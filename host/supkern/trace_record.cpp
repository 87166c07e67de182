#include "supkern/trace_record.h"

#include <unistd.h>

#include <clocale>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace certkern::support {

namespace {

constexpr std::string_view kCut = "...";

// Formats in a locale of its own, on this thread only: wide text becomes UTF-8 whatever the program's locale
// is.
class Utf8Locale {
 public:
  Utf8Locale() {
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);  // kept until the process ends
    if (utf8) previous_ = uselocale(utf8);
  }
  ~Utf8Locale() {
    if (previous_) uselocale(previous_);
  }
  Utf8Locale(const Utf8Locale&) = delete;
  Utf8Locale& operator=(const Utf8Locale&) = delete;

 private:
  locale_t previous_ = nullptr;
};

// Length of the UTF-8 character at the head of text, 0 when there is none.
size_t Utf8Length(std::string_view text, uint32_t& character) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = byte(0);
  const size_t length = lead < 0x80 ? 1
      : lead < 0xC2                 ? 0
      : lead < 0xE0                 ? 2
      : lead < 0xF0                 ? 3
      : lead < 0xF5                 ? 4
                                    : 0;
  if (length < 2) {
    character = lead;
    return length;
  }
  if (length > text.size()) return 0;
  character = lead & (0x7Fu >> length);
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    character = character << 6 | (byte(i) & 0x3Fu);
  }
  const bool isOverlong = (length == 3 && character < 0x800) || (length == 4 && character < 0x10000);
  const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
  return isOverlong || isSurrogate || character > 0x10FFFF ? 0 : length;
}

// Characters that end a line or begin a command somewhere: C0, DEL, C1, the Unicode separators, direction
// overrides.
bool IsPlain(uint32_t character) {
  return character >= 0x20 && character != '\\' && (character < 0x7F || character > 0x9F)
      && (character < 0x200B || character > 0x200F) && (character < 0x2028 || character > 0x202E)
      && (character < 0x2066 || character > 0x2069) && character != 0x061C && character != 0xFEFF;
}

// The escape of one character; `bytes` are what it is made of.
std::string Escape(std::string_view bytes) {
  switch (bytes[0]) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    case '\\':
      return "\\\\";
    default:
      break;
  }
  std::string escape;
  for (const char c : bytes) {
    char hex[8];
    std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned char>(c));
    escape += hex;
  }
  return escape;
}

void AppendTime(std::string& line) {
  timespec now{};
  tm parts{};
  clock_gettime(CLOCK_REALTIME, &now);
  gmtime_r(&now.tv_sec, &parts);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06ldZ ", parts.tm_year + 1900,
                parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                now.tv_nsec / 1000);
  line += text;
}

}  // namespace

const char* TraceLevelName(unsigned level) {
  switch (level) {
    case 1:
      return "error";
    case 2:
      return "expected";
    case 4:
      return "call";
    case 8:
      return "debug";
    case 16:
      return "result";
    case 32:
      return "cache";
    default:
      return "other";
  }
}

void AppendEscaped(std::string_view text, size_t limit, std::string& line) {
  size_t safe = line.size();  // where a cut leaves room for its mark
  while (!text.empty()) {
    uint32_t character = 0;
    const size_t length = Utf8Length(text, character);
    const std::string_view bytes = text.substr(0, length ? length : 1);
    if (length && IsPlain(character)) {
      line += bytes;
    } else {
      line += Escape(bytes);
    }
    if (line.size() > limit) {
      line.resize(safe);
      line += kCut;
      return;
    }
    if (line.size() + kCut.size() <= limit) safe = line.size();
    text.remove_prefix(bytes.size());
  }
}

std::string FormatTraceRecord(const TraceOrigin& origin, const char* format, va_list arguments) {
  std::string line;
  line.reserve(kMaxTraceRecord);
  AppendTime(line);
  char head[48];
  std::snprintf(head, sizeof head, "%d:%d ", static_cast<int>(getpid()), static_cast<int>(gettid()));
  line += head;
  // each of these is short by nature; the bound keeps room for the text all the same
  constexpr size_t kMaxName = 256;
  const auto appendName = [&line](std::string_view name) {
    AppendEscaped(name.empty() ? "-" : name, line.size() + kMaxName, line);
    line += ' ';
  };
  appendName(origin.module);
  appendName(TraceLevelName(origin.level));
  appendName(origin.function ? origin.function : "");
  const std::string place = origin.file && *origin.file ? origin.file + std::string(":") : std::string();
  appendName(place + std::to_string(origin.line));

  char text[kMaxTraceRecord];
  int count = 0;
  {
    const Utf8Locale utf8;
    count = std::vsnprintf(text, sizeof text, format, arguments);
  }
  // wide text that is no Unicode stops the formatting; the format alone still says where we were
  AppendEscaped(count < 0 ? format : text, kMaxTraceRecord - 1, line);
  line += '\n';
  return line;
}

}  // namespace certkern::support
