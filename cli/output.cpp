#include "output.h"

#include "failure.h"
#include "handles.h"
#include "text.h"
#include "writers.h"

#include <certkern/text.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace certkern::cli {
namespace {

constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kEverybody = 0666;  // the umask takes its part away

void WriteAll(int file, std::span<const BYTE> bytes, std::string_view name) {
  while (!bytes.empty()) {
    const ssize_t count = write(file, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) ThrowErrno(name);
    bytes = bytes.subspan(static_cast<size_t>(count));
  }
}

void AppendText(SecretBytes& out, std::string_view text) { out.insert(out.end(), text.begin(), text.end()); }

// A secret never lands in a file that was there before: others may have it open, or may have made it a link.
FileDescriptor OpenNew(const std::string& path, Secrecy secrecy) {
  const bool secret = secrecy == Secrecy::Secret;
  FileDescriptor file(open(path.c_str(),
                           O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | (secret ? O_EXCL : O_TRUNC),
                           secret ? kOwnerOnly : kEverybody));
  const std::string name = Escaped(Utf8Of(std::string_view(path)));
  if (!file && errno == EEXIST)
    throw Failure(name + ": a private key is only written to a new file, and this one exists already");
  if (!file) ThrowErrno(name);
  return file;
}

bool IsStandardOutput(const OutputOptions& options) { return options.file.empty() || options.file == "-"; }

}  // namespace

SecretBytes PemText(std::string_view label, std::span<const BYTE> der) {
  DWORD size = 0;
  const DWORD length = CheckedSize(der.size());
  if (!CryptBinaryToStringA(der.data(), length, CRYPT_STRING_BASE64, nullptr, &size))
    ThrowLastError("Base64");
  SecretBytes text(size);
  if (!CryptBinaryToStringA(der.data(), length, CRYPT_STRING_BASE64, reinterpret_cast<char*>(text.data()),
                            &size))
    ThrowLastError("Base64");
  text.resize(size);
  SecretBytes pem;
  AppendText(pem, fmt::format("-----BEGIN {}-----\n", label));
  Append(pem, text);
  AppendText(pem, fmt::format("-----END {}-----\n", label));
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
  const SecretBytes bytes = options.der ? ToSecret(der) : PemText(label, der);
  if (IsStandardOutput(options)) return WriteRaw(bytes);
  const FileDescriptor file = OpenNew(options.file, secrecy);
  const std::string name = Escaped(Utf8Of(std::string_view(options.file)));
  WriteAll(file.get(), bytes, name);
  if (secrecy == Secrecy::Secret && fsync(file.get()) != 0 && errno != EINVAL) ThrowErrno(name);
}

void WriteBytes(const OutputOptions& options, std::span<const BYTE> bytes) {
  if (IsStandardOutput(options)) return WriteRaw(bytes);
  WriteAll(OpenNew(options.file, Secrecy::Public).get(), bytes,
           Escaped(Utf8Of(std::string_view(options.file))));
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
