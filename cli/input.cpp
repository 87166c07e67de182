#include "input.h"

#include "grammar.h"
#include "text.h"

#include <certkern/encode.h>
#include <certkern/keykern.h>
#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

namespace certkern::cli {
namespace {

class Descriptor {
 public:
  explicit Descriptor(const std::string& path)
      : number_(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY)) {}
  ~Descriptor() {
    if (number_ > STDERR_FILENO) close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return number_; }

 private:
  int number_;
};

std::string ErrorText(int code) { return std::strerror(code); }  // NOLINT(concurrency-mt-unsafe): one thread

// --- Base64 ---

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
bool IsBase64(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

// Where a text stops being Base64; nothing when it is Base64 as a whole. The library's reader overlooks some
// of this, and reports no place for the rest.
std::optional<size_t> FindBase64Fault(std::string_view text) {
  size_t digits = 0;
  size_t padding = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (IsBlank(text[i])) continue;
    if (text[i] == '=') {
      if (++padding > 2 || (digits + padding - 1) % 4 < 2) return i;
    } else if (!IsBase64(text[i]) || padding) {
      return i;
    } else {
      ++digits;
    }
  }
  if (!digits || (digits + padding) % 4) return text.size();
  return std::nullopt;
}

std::optional<Bytes> DecodeBase64(std::string_view text) {
  DWORD size = 0;
  const auto length = static_cast<DWORD>(text.size());
  if (!CryptStringToBinaryA(text.data(), length, CRYPT_STRING_BASE64, nullptr, &size, nullptr, nullptr))
    return std::nullopt;
  Bytes bytes(size);
  if (!CryptStringToBinaryA(text.data(), length, CRYPT_STRING_BASE64, bytes.data(), &size, nullptr, nullptr))
    return std::nullopt;
  bytes.resize(size);
  return bytes;
}

// text is a part of the file that starts at offset; introducer is where a reader finds it.
void ReadBase64(std::string_view text, size_t offset, const Block& introducer, const BlockReader& reader) {
  if (const std::optional<size_t> fault = FindBase64Fault(text)) {
    const std::string found = *fault == text.size()
        ? "the end of the text"
        : fmt::format("byte 0x{:02x}", static_cast<unsigned char>(text[*fault]));
    return reader.onFault(fmt::format(
        "expected Base64 in groups of four, found {} at byte offset {} of the file", found, offset + *fault));
  }
  const std::optional<Bytes> bytes = DecodeBase64(text);
  if (!bytes) {
    return reader.onFault(
        fmt::format("expected Base64 that the library reads, found a text that it refuses with code 0x{:08x} "
                    "at byte offset {} of the file",
                    GetLastError(), offset));
  }
  Block block = introducer;
  block.bytes = *bytes;
  reader.onBlock(block);
}

// --- PEM, RFC 7468 ---

constexpr std::string_view kBegin = "-----BEGIN ";
constexpr std::string_view kEnd = "-----END ";
constexpr std::string_view kDashes = "-----";

bool IsMessageLabel(std::string_view label) { return label == "CMS" || label == "PKCS7"; }

bool IsShownLabel(std::string_view label) {
  static constexpr std::string_view kShown[] = {
      "CERTIFICATE", "X509 CERTIFICATE",    "TRUSTED CERTIFICATE",    "X509 CRL",
      "CRL",         "CERTIFICATE REQUEST", "NEW CERTIFICATE REQUEST"};
  return std::find(std::begin(kShown), std::end(kShown), label) != std::end(kShown);
}

// Not what an encoding may look like: PEM with any text around it, or nothing but ASCII, which no encoding of more than a few
// octets is.
bool IsText(std::span<const BYTE> file) {
  const std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(kByteOrderMark)) return true;
  const bool pem = text.find(kBegin) != text.npos;
  return std::all_of(text.begin(), text.end(), [pem](char c) {
    const auto octet = static_cast<unsigned char>(c);
    return IsBlank(c) || (octet >= 0x20 && octet < 0x7F) || (pem && octet >= 0x80);
  });
}

// Reads the block whose banner begins at start and returns where to look for the next one.
size_t ReadPemBlock(std::string_view file, size_t start, const BlockReader& reader) {
  const auto fault = [&](const std::string& text, size_t offset) {
    reader.onFault(fmt::format("{} at byte offset {} of the file", text, offset));
  };
  const size_t labelStart = start + kBegin.size();
  const size_t labelEnd = file.find(kDashes, labelStart);
  const std::string_view label = file.substr(labelStart, std::min(labelEnd, file.size()) - labelStart);
  if (labelEnd == file.npos || label.find('\n') != label.npos) {
    fault("expected a PEM banner that ends with five dashes, found none", start);
    return labelStart;
  }
  const size_t bodyStart = labelEnd + kDashes.size();
  const size_t bodyEnd = file.find(kDashes, bodyStart);
  if (bodyEnd == file.npos) {
    fault(fmt::format("expected a line -----END {}-----, found the end of the file", Escaped(label)),
          file.size());
    return file.size();
  }
  const std::string closing = fmt::format("{}{}{}", kEnd, label, kDashes);
  if (file.substr(bodyEnd, closing.size()) != closing) {
    fault(fmt::format("expected a line -----END {}-----, found another banner", Escaped(label)), bodyEnd);
    return bodyEnd;
  }
  if (reader.wanted == Wanted::AnyElement || IsShownLabel(label)
      || (reader.wanted == Wanted::ObjectsAndMessages && IsMessageLabel(label))) {
    ReadBase64(file.substr(bodyStart, bodyEnd - bodyStart), bodyStart, Block{{}, start, Block::Form::Pem},
               reader);
  } else {
    reader.onNote(fmt::format("the {} at byte offset {} of the file is not shown", Escaped(label), start));
  }
  return bodyEnd + closing.size();
}

void ReadPem(std::string_view file, size_t start, const BlockReader& reader) {
  while (start != file.npos) {
    const size_t next = ReadPemBlock(file, start, reader);
    start = next < file.size() ? file.find(kBegin, next) : file.npos;
  }
}

const char* NameOf(Wanted wanted) {
  switch (wanted) {
    case Wanted::Objects:
      return "a certificate, CRL or certificate request";
    case Wanted::ObjectsAndMessages:
      return "a certificate, CRL, certificate request or message";
    default:
      return "an encoding";
  }
}

std::vector<struct stat> filesRead;

// 0 where it can't be told, and for what is too large to be read.
size_t SizeOf(int file) {
  struct stat status;
  if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) return 0;
  const auto size = static_cast<size_t>(status.st_size);
  return size > kLargestFile ? 0 : size;
}

}  // namespace

void NoteRead(int file) {
  struct stat status;
  if (fstat(file, &status) == 0 && S_ISREG(status.st_mode)) filesRead.push_back(status);
}

bool WasRead(const struct stat& file) {
  return std::ranges::any_of(filesRead, [&](const struct stat& each) {
    return each.st_dev == file.st_dev && each.st_ino == file.st_ino;
  });
}

FileContent ReadInput(const std::string& path) {
  constexpr size_t kChunk = size_t{1} << 16;
  FileContent content;
  const Descriptor file(path);
  if (file.get() < 0) return {{}, ErrorText(errno)};
  NoteRead(file.get());
  // one octet more, in which the end shows: a buffer that grows would take more than twice the room
  content.bytes.resize(SizeOf(file.get()) + 1);
  for (size_t used = 0;;) {
    if (used == content.bytes.size()) content.bytes.resize(used + std::max(kChunk, used / 2));
    const ssize_t count = read(file.get(), content.bytes.data() + used, content.bytes.size() - used);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return {{}, ErrorText(errno)};
    used += static_cast<size_t>(count);
    if (used > kLargestFile) {
      return {{}, fmt::format("larger than {} MiB, the most that is read", kLargestFile >> 20)};
    }
    if (count > 0) continue;
    content.bytes.resize(used);
    return content;
  }
}

std::string Block::place(size_t offset) const {
  switch (form) {
    case Form::Pem:
      return fmt::format("offset {} of the decoded object, whose PEM begins at byte offset {} of the file",
                         offset, fileOffset);
    case Form::Base64:
      return fmt::format("offset {} of the decoded Base64", offset);
    default:
      return fmt::format("byte offset {} of the file", fileOffset + offset);
  }
}

void ReadBlocks(std::span<const BYTE> file, const BlockReader& reader) {
  const bool objects = reader.wanted != Wanted::AnyElement;
  if (file.empty()) {
    return reader.onFault(fmt::format("expected {}, found an empty file", NameOf(reader.wanted)));
  }
  // neither a PEM banner nor the Base64 of a SEQUENCE begins with the octet of a SEQUENCE
  if (file[0] == kSequenceTag || (!objects && !IsText(file)))
    return reader.onBlock({file, 0, Block::Form::Der});
  std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());
  const size_t banner = text.find(kBegin);
  if (banner != text.npos) return ReadPem(text, banner, reader);
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  const size_t start = text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
  text.remove_prefix(start);
  const size_t first = std::min(
      text.size(), static_cast<size_t>(std::find_if_not(text.begin(), text.end(), IsBlank) - text.begin()));
  if (first == text.size() || !IsBase64(text[first])) {
    const std::string found = first == text.size()
        ? "nothing but blanks"
        : fmt::format("byte 0x{:02x}", static_cast<unsigned char>(text[first]));
    return reader.onFault(
        fmt::format("expected DER (a SEQUENCE, 0x30), PEM or Base64, found {} at byte offset {} of the file",
                    found, start + (first == text.size() ? 0 : first)));
  }
  ReadBase64(text, start, Block{{}, start, Block::Form::Base64}, reader);
}

}  // namespace certkern::cli
