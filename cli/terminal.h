// The terminal that the user sits at, whatever standard input and output are.
#ifndef CERTKERN_CLI_TERMINAL_H
#define CERTKERN_CLI_TERMINAL_H

#include "common/secret_bytes.h"
#include "handles.h"

#include <string>
#include <string_view>

namespace certkern::cli {

class Terminal {
 public:
  // Fails with the advice when there is none.
  explicit Terminal(std::string_view advice);

  // What is typed is not shown. A signal that ends or stops the program finds the terminal as it was before.
  SecretBytes askSecret(std::string_view prompt) const;
  std::string askLine(std::string_view prompt) const;

 private:
  void say(std::string_view text) const;
  SecretBytes readLine() const;

  FileDescriptor tty_;
};

}  // namespace certkern::cli

#endif
