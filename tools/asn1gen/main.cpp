// asn1gen --check FILE...            reads and checks modules
// asn1gen --out DIR FILE...          and writes what the library is built from
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "compiler.h"
#include "emitter.h"

namespace certkern::asn1gen {
namespace {

struct Arguments {
  std::string outputFolder;
  bool checkOnly = false;
  std::vector<std::string> files;
};

bool ReadArguments(int argc, char** argv, Arguments& arguments) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--check")
      arguments.checkOnly = true;
    else if (argument == "--out" && i + 1 < argc)
      arguments.outputFolder = argv[++i];
    else if (argument.substr(0, 2) == "--")
      return false;
    else
      arguments.files.emplace_back(argument);
  }
  return !arguments.files.empty() && arguments.checkOnly == arguments.outputFolder.empty();
}

bool ReadFiles(const std::vector<std::string>& names, std::deque<SourceFile>& files) {
  for (const std::string& name : names) {
    std::ifstream stream(name, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    if (!stream.good() && !stream.eof()) {
      fmt::print(stderr, "{}: error: found no file that can be read, expected a schema\n", name);
      return false;
    }
    files.push_back({name, std::move(text)});
  }
  return true;
}

// A file whose text stays the same keeps its time, and what was built from it stands.
bool WriteIfChanged(const std::filesystem::path& path, const std::string& text) {
  std::ifstream old(path, std::ios::binary);
  const std::string oldText((std::istreambuf_iterator<char>(old)), std::istreambuf_iterator<char>());
  if (old.is_open() && oldText == text) return true;
  std::ofstream stream(path, std::ios::binary);
  stream << text;
  stream.close();
  if (stream) return true;
  fmt::print(stderr, "{}: error: the file can't be written\n", path.string());
  return false;
}

bool WriteAll(const std::string& folder, const Schema& schema) {
  std::error_code failure;
  std::filesystem::create_directories(folder, failure);
  for (const auto& [name, text] : Emit(schema)) {
    if (!WriteIfChanged(std::filesystem::path(folder) / name, text)) return false;
  }
  return true;
}

int Run(int argc, char** argv) {
  Arguments arguments;
  if (!ReadArguments(argc, argv, arguments)) {
    fmt::print(stderr, "usage: asn1gen --check FILE...\n       asn1gen --out DIR FILE...\n");
    return 2;
  }
  std::deque<SourceFile> files;
  if (!ReadFiles(arguments.files, files)) return 1;
  Compiler compiler(std::move(files));
  const bool fine = compiler.run();
  for (const std::string& line : compiler.diagnostics().report()) fmt::print(stderr, "{}\n", line);
  if (!fine) return 1;
  if (arguments.checkOnly) {
    const Schema& schema = compiler.schema();
    fmt::print("{} modules, {} types, {} identifiers, {} objects in {} sets\n", schema.modules.size(),
               schema.types.size(), schema.oids.size(), schema.objects.size(), schema.sets.size());
  }
  return arguments.checkOnly || WriteAll(arguments.outputFolder, compiler.schema()) ? 0 : 1;
}

}  // namespace
}  // namespace certkern::asn1gen

int main(int argc, char** argv) { return certkern::asn1gen::Run(argc, argv); }
