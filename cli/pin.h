// PINs and passwords: from the terminal, a file descriptor or a helper program. Never from the command line or the
// environment, where others can see them. They live in memory that is wiped.
#ifndef CERTKERN_CLI_PIN_H
#define CERTKERN_CLI_PIN_H

#include "common/secret_bytes.h"

#include <CLI/App.hpp>

#include <string>

namespace certkern::cli {

// In bytes. Longer ones are refused, not cut.
constexpr size_t kLongestPin = 1024;

struct PinOptions {
  std::string option;      // "pin": --pin-fd and so on
  bool mayBeNone = false;  // --no-pin is an option
  int descriptor = -1;     // one line is read from it
  std::string command;     // one line of its output is read; it runs under /bin/sh -c
  bool none = false;       // a new key without a PIN
  bool given() const { return descriptor >= 0 || !command.empty(); }
};

// --pin-fd and --pin-command, or the same of another word; with mayBeNone --no-pin, too.
enum class NoPin { Refused, Allowed };
void AddPinOptions(CLI::App& command, PinOptions& options, const std::string& word,
                   NoPin noPin = NoPin::Refused);

// What is to be typed, as "PIN of anna". The result ends with a NUL, as the library wants it.
SecretBytes AskPin(const PinOptions& options, const std::string& what);
// Asked for twice on a terminal. Empty: none is wanted.
SecretBytes AskNewPin(const PinOptions& options, const std::string& what);

}  // namespace certkern::cli

#endif
