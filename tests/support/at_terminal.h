// A child process at a terminal of its own, and the hands and eyes of its user.
#ifndef CERTKERN_TESTS_SUPPORT_AT_TERMINAL_H
#define CERTKERN_TESTS_SUPPORT_AT_TERMINAL_H

#include <sys/types.h>

#include <functional>
#include <string>

namespace certkern::test {

// What a child ended with; -1 when something else ended it.
int StatusOf(pid_t child);

class AtTerminal {
 public:
  // The body ends the process itself; 2 if it does not.
  explicit AtTerminal(const std::function<void()>& body);
  ~AtTerminal();
  AtTerminal(const AtTerminal&) = delete;
  AtTerminal& operator=(const AtTerminal&) = delete;

  pid_t child() const { return child_; }
  const std::string& screen() const { return screen_; }
  void type(const std::string& keys) const;
  // Reads what is written, up to the text, behind what was waited for before.
  bool sees(const std::string& text);
  void hangUp();
  int status();

 private:
  int master_ = -1;
  pid_t child_ = -1;
  std::string screen_;
  size_t seen_ = 0;
};

}  // namespace certkern::test

#endif
