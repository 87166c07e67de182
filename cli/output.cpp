#include "output.h"

#include "failure.h"
#include "handles.h"
#include "output_file.h"
#include "text.h"
#include "writers.h"

#include <certkern/text.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace certkern::cli {
namespace {

std::span<const BYTE> AsBytes(std::string_view text) {
  return {reinterpret_cast<const BYTE*>(text.data()), text.size()};
}

SecretBytes Base64(std::span<const BYTE> bytes) {
  DWORD size = 0;
  const DWORD length = CheckedSize(bytes.size());
  if (!CryptBinaryToStringA(bytes.data(), length, CRYPT_STRING_BASE64, nullptr, &size))
    ThrowLastError("Base64");
  SecretBytes text(size);
  if (!CryptBinaryToStringA(bytes.data(), length, CRYPT_STRING_BASE64, reinterpret_cast<char*>(text.data()),
                            &size))
    ThrowLastError("Base64");
  text.resize(size);
  return text;
}

// A large object is several times its size as one text, so it goes out line by line, a good many at a time.
void WritePem(std::string_view label, std::span<const BYTE> der, const Sink& sink) {
  constexpr size_t kPiece = size_t{48} << 14;  // of whole lines
  sink(AsBytes(fmt::format("-----BEGIN {}-----\n", label)));
  do {
    const std::span<const BYTE> piece = der.first(std::min(der.size(), kPiece));
    sink(Base64(piece));
    der = der.subspan(piece.size());
  } while (!der.empty());
  sink(AsBytes(fmt::format("-----END {}-----\n", label)));
}

void WriteEncoded(const OutputOptions& options, std::string_view label, std::span<const BYTE> der,
                  const Sink& sink) {
  if (options.der) return sink(der);
  WritePem(label, der, sink);
}

bool IsStandardOutput(const OutputOptions& options) { return options.file.empty() || options.file == "-"; }

}  // namespace

SecretBytes PemText(std::string_view label, std::span<const BYTE> der) {
  SecretBytes pem;
  WritePem(label, der, [&](std::span<const BYTE> piece) { Append(pem, piece); });
  return pem;
}

void AddOutputOptions(CLI::App& command, OutputOptions& options) {
  command.add_option("-o,--out", options.file, "Write to this file, not to standard output")
      ->type_name("FILE");
  const std::string pemText = "Write PEM, which is the default";
  CLI::Option* pem = command.add_flag("--pem", pemText);
  command.add_flag("--der", options.der, "Write DER")->excludes(pem);
}

void CheckDestination(const OutputOptions& options, Secrecy secrecy) {
  if (!IsStandardOutput(options) || options.force) return;
  if (secrecy == Secrecy::Secret)
    RefuseTerminal("a private key", "name a file with --out, or insist with --force");
  if (options.der) RefuseTerminal("DER", "name a file with --out, or leave out --der");
}

void WriteObject(const OutputOptions& options, std::string_view label, std::span<const BYTE> der,
                 Secrecy secrecy) {
  CheckDestination(options, secrecy);
  const auto write = [&](const Sink& sink) { WriteEncoded(options, label, der, sink); };
  if (IsStandardOutput(options)) return write(WriteRaw);
  WriteFile(options.file, secrecy, write);
}

void WriteBytes(const OutputOptions& options, std::span<const BYTE> bytes) {
  if (IsStandardOutput(options)) return WriteRaw(bytes);
  WriteFile(options.file, Secrecy::Public, [&](const Sink& sink) { sink(bytes); });
}

void WriteRaw(std::span<const BYTE> bytes) { WriteAll(STDOUT_FILENO, bytes, "standard output"); }

void RefuseTerminal(std::string_view what, std::string_view advice) {
  if (isatty(STDOUT_FILENO)) throw Failure(fmt::format("{} is not written to a terminal; {}", what, advice));
}

void PrintObjects(std::span<const Field> objects, bool json) {
  std::unique_ptr<ObjectWriter> writer;
  if (json) {
    writer = std::make_unique<JsonWriter>(stdout);
  } else {
    writer = std::make_unique<TextWriter>(stdout);
  }
  for (const Field& object : objects) writer->write(object);
  writer->finish();
}

bool FlushOutput() {
  if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return true;
  Complain("standard output: {}",
           std::strerror(errno));  // NOLINT(concurrency-mt-unsafe): one thread
  return false;
}

}  // namespace certkern::cli
