// Runs a fuzz target over the files of its corpus, where libFuzzer is not linked in.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  size_t files = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
      if (!entry.is_regular_file()) continue;
      std::ifstream file(entry.path(), std::ios::binary);
      const std::vector<char> text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
      // a buffer of exactly the input's size, so that a sanitizer sees the first byte too many
      const std::vector<uint8_t> input(text.begin(), text.end());
      LLVMFuzzerTestOneInput(input.data(), input.size());
      ++files;
    }
  }
  std::printf("%zu inputs replayed\n", files);
  return files ? 0 : 1;
}
