// certkern random: bytes from the library's generator.
#include "command.h"
#include "container.h"
#include "failure.h"
#include "output.h"
#include "text.h"

#include <certkern/text.h>

#include <algorithm>
#include <cstdint>
#include <memory>

namespace certkern::cli {
namespace {

constexpr uint64_t kMost = uint64_t{1} << 40;  // bytes
constexpr size_t kChunk = size_t{48} * 1024;   // whole lines of Base64

struct RandomArguments {
  uint64_t count = 0;
  bool hex = false;
  bool base64 = false;
};

void WriteText(std::string_view text) { WriteRaw({reinterpret_cast<const BYTE*>(text.data()), text.size()}); }

void WriteBase64(std::span<const BYTE> bytes) {
  DWORD size = 0;
  const DWORD length = CheckedSize(bytes.size());
  if (!CryptBinaryToStringA(bytes.data(), length, CRYPT_STRING_BASE64, nullptr, &size))
    ThrowLastError("Base64");
  std::string text(size, '\0');
  if (!CryptBinaryToStringA(bytes.data(), length, CRYPT_STRING_BASE64, text.data(), &size))
    ThrowLastError("Base64");
  WriteText({text.data(), size});
}

int RunRandom(const RandomArguments& arguments) {
  if (!arguments.hex && !arguments.base64)
    RefuseTerminal("a row of random bytes", "add --hex or --base64, or send it to a file");
  const ProviderHandle provider = OpenProvider();
  SecretBytes chunk;
  for (uint64_t left = arguments.count; left; left -= chunk.size()) {
    chunk.resize(std::min<uint64_t>(left, kChunk));
    if (!CryptGenRandom(provider.get(), CheckedSize(chunk.size()), chunk.data()))
      ThrowLastError("random numbers");
    if (arguments.base64) {
      WriteBase64(chunk);
    } else if (arguments.hex) {
      WriteText(HexText(chunk));
    } else {
      WriteRaw(chunk);
    }
  }
  if (arguments.hex) WriteText("\n");
  return 0;
}

}  // namespace

Runner PrepareRandom(CLI::App& command) {
  const auto arguments = std::make_shared<RandomArguments>();
  command.add_option("COUNT", arguments->count, "How many bytes")
      ->required()
      ->check(CLI::Range(uint64_t{1}, kMost))
      ->type_name("");
  CLI::Option* hex = command.add_flag("--hex", arguments->hex, "As hexadecimal digits, two to a byte");
  command.add_flag("--base64", arguments->base64, "As Base64")->excludes(hex);
  return [arguments] { return RunRandom(*arguments); };
}

}  // namespace certkern::cli
