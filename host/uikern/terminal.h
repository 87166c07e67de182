// The terminal that controls the process: where the user is, whatever standard input and output are connected to.
#ifndef CERTKERN_UIKERN_TERMINAL_H
#define CERTKERN_UIKERN_TERMINAL_H

#include <termios.h>

#include <optional>
#include <string>
#include <string_view>

#include "supkern/descriptor.h"

namespace certkern::dialog {

class Terminal {
 public:
  // Lines are read as the user edits them, even if the program has the terminal in another mode, which comes back at the
  // end. What was typed before is dropped: it is no answer to a question that nobody had seen.
  Terminal();
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // False for a process that has no terminal.
  explicit operator bool() const { return changed_; }
  [[nodiscard]] bool write(std::string_view text);
  // One line with its newline; one that is longer than any answer is cut, and then has none. Nothing when the user has
  // ended the input, or has gone.
  std::optional<std::string> readLine();

 private:
  support::Descriptor file_;
  termios before_{};
  bool changed_ = false;
};

// What a terminal may be given of a foreign text: names of certificates must not move the cursor, turn the direction of
// writing or hide anything. Such characters become U+FFFD. Throws std::bad_alloc.
std::string Harmless(std::string_view text);

}  // namespace certkern::dialog

#endif
