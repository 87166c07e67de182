// certkern hash: digests of files.
#include "command.h"
#include "container.h"
#include "failure.h"
#include "handles.h"
#include "hashes.h"
#include "output.h"
#include "text.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

namespace certkern::cli {
namespace {

constexpr size_t kChunk = size_t{1} << 16;

struct HashArguments {
  std::string algorithm{kHashes[0].name};
  std::vector<std::string> files;
  bool json = false;
};

std::string ShownFile(const std::string& path) {
  return path == "-" ? "standard input" : Escaped(Utf8Of(std::string_view(path)));
}

void Feed(HCRYPTHASH hash, int file, const std::string& name) {
  Bytes chunk(kChunk);
  while (true) {
    const ssize_t count = read(file, chunk.data(), chunk.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) ThrowErrno(name);
    if (count == 0) return;
    if (!CryptHashData(hash, chunk.data(), CheckedSize(static_cast<size_t>(count)), 0)) ThrowLastError(name);
  }
}

Bytes HashFile(HCRYPTPROV provider, ALG_ID algorithm, const std::string& path) {
  const std::string name = ShownFile(path);
  HashHandle hash;
  if (!CryptCreateHash(provider, algorithm, 0, 0, hash.out())) ThrowLastError("the hash function");
  if (path == "-") {
    Feed(hash.get(), STDIN_FILENO, name);
  } else {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file) ThrowErrno(name);
    Feed(hash.get(), file.get(), name);
  }
  Bytes value;
  const auto ask = [&](BYTE* out, DWORD* size) {
    return CryptGetHashParam(hash.get(), HP_HASHVAL, out, size, 0);
  };
  if (!AskBytes(ask, value)) ThrowLastError(name);
  return value;
}

Field HashField(const std::string& path, const HashRow& row, const Bytes& value) {
  Field field("Hash");
  field.add("File", Text{Utf8Of(std::string_view(path))});
  field.add("Algorithm", Words{std::string(row.name)});
  field.add("Value", value);
  return field;
}

int RunHash(const HashArguments& arguments) {
  const HashRow& row = HashByName(arguments.algorithm);
  const ProviderHandle provider = OpenProvider();
  std::vector<Field> objects;
  bool sound = true;
  for (const std::string& path : arguments.files) {
    try {
      const Bytes value = HashFile(provider.get(), row.algorithm, path);
      if (arguments.json) {
        objects.push_back(HashField(path, row, value));
      } else {
        fmt::print("{}  {}\n", HexText(value), path == "-" ? "-" : ShownFile(path));
      }
    } catch (const Failure& failure) {
      Complain("{}", failure.what());
      sound = false;
    }
  }
  if (arguments.json) PrintObjects(objects, true);
  return FlushOutput() && sound ? 0 : kFailed;
}

}  // namespace

Runner PrepareHash(CLI::App& command) {
  const auto arguments = std::make_shared<HashArguments>();
  command.add_option("--algorithm", arguments->algorithm, "The hash function; gost2012-256 unless given")
      ->check(CLI::IsMember(HashNames()));
  command.add_option("FILE", arguments->files, "Files to hash; - stands for standard input")->type_name("");
  command.add_flag("--json", arguments->json, "Write JSON: an array with one object for each file");
  command.footer(
      "One line for each file: the digest in hexadecimal, two blanks, the name.\n"
      "Exit status: 0 every file was hashed; 1 one could not be; 2 wrong usage.");
  return [arguments] {
    if (arguments->files.empty()) arguments->files.emplace_back("-");
    return RunHash(*arguments);
  };
}

}  // namespace certkern::cli
