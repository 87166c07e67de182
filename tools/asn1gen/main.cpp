// asn1gen --check FILE...            reads and checks modules
// asn1gen --out DIR FILE...          and writes what the library is built from
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "compiler.h"

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
  return 0;
}

}  // namespace
}  // namespace certkern::asn1gen

int main(int argc, char** argv) { return certkern::asn1gen::Run(argc, argv); }
