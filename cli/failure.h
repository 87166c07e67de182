// What stops a command: a sentence for the user, and an exit status.
#ifndef CERTKERN_CLI_FAILURE_H
#define CERTKERN_CLI_FAILURE_H

#include <certkern/types.h>

#include <fmt/format.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace certkern::cli {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

// The text goes to a terminal: what is foreign in it has been escaped.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& text, int status = kFailed)
      : std::runtime_error(text), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

// What the options say, taken together, makes no sense.
inline Failure WrongUsage(const std::string& text) { return Failure(text, kWrongUsage); }

// What a code of the library means to a user of this tool, and what can be done.
std::string ReasonOf(DWORD code);

// "what: reason" of the library's last error, or of a code.
[[noreturn]] void ThrowCode(std::string_view what, DWORD code);
[[noreturn]] void ThrowLastError(std::string_view what);
// The same of a system call.
[[noreturn]] void ThrowErrno(std::string_view what);

// Writes "certkern: " and the text to standard error, as far as that can be written: where it can't, there is nobody to be
// told, and the exit status stays what it is.
void Complain(std::string_view text) noexcept;
template <class... Arguments>
void Complain(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
  Complain(std::string_view(fmt::format(format, std::forward<Arguments>(arguments)...)));
}

}  // namespace certkern::cli

#endif
