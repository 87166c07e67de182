// Where results go: standard output, or a file that --out names.
#ifndef CERTKERN_CLI_OUTPUT_H
#define CERTKERN_CLI_OUTPUT_H

#include "common/secret_bytes.h"
#include "field.h"

#include <CLI/App.hpp>

#include <span>
#include <string>
#include <string_view>

namespace certkern::cli {

enum class Secrecy { Public, Secret };

struct OutputOptions {
  std::string file;  // empty or "-": standard output
  bool der = false;
  bool force = false;  // secrets go to a terminal, too
};

// --out, --pem and --der.
void AddOutputOptions(CLI::App& command, OutputOptions& options);

// Fails where WriteObject would refuse the destination.
void CheckDestination(const OutputOptions& options, Secrecy secrecy);
// An object as DER or as PEM under its label. What is secret goes into a new file that only its owner may read, and never
// to a terminal unless forced; neither do bytes that are no text.
void WriteObject(const OutputOptions& options, std::string_view label, std::span<const BYTE> der,
                 Secrecy secrecy = Secrecy::Public);

// The same of what is more than one object, or none: the bytes go out as they are.
void WriteBytes(const OutputOptions& options, std::span<const BYTE> bytes);
SecretBytes PemText(std::string_view label, std::span<const BYTE> der);

// Bytes to standard output; refused to a terminal with the advice given.
void WriteRaw(std::span<const BYTE> bytes);
void RefuseTerminal(std::string_view what, std::string_view advice);

// The objects as text or as JSON.
void PrintObjects(std::span<const Field> objects, bool json);

// False, with a message, when not everything that was printed arrived.
bool FlushOutput();

}  // namespace certkern::cli

#endif
