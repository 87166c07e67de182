#include "pin.h"

#include "failure.h"
#include "handles.h"
#include "terminal.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <CLI/Option.hpp>

#include <algorithm>
#include <array>
#include <cerrno>

namespace certkern::cli {
namespace {

// A line without its end, byte by byte: what follows it belongs to the next reader. False at the end of the data.
bool ReadLine(int file, SecretBytes& line, const std::string& what) {
  BYTE byte = 0;
  const ScopedWipe wipe({&byte, 1});
  while (true) {
    const ssize_t count = read(file, &byte, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) ThrowErrno(what);
    if (count == 0) return !line.empty();
    if (byte == '\n') return true;
    if (line.size() == kLongestPin) throw Failure(fmt::format("{}: longer than {} bytes", what, kLongestPin));
    if (line.capacity() == 0) line.reserve(kLongestPin + 1);
    line.push_back(byte);
  }
}

// So that the program below does not end with a broken pipe.
void Drain(int file) {
  std::array<BYTE, 256> rest;
  const ScopedWipe wipe(rest);
  while (read(file, rest.data(), rest.size()) > 0) {
  }
}

class SpawnActions {
 public:
  SpawnActions() { posix_spawn_file_actions_init(&actions_); }
  ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

pid_t StartShell(const std::string& command, int output) {
  SpawnActions actions;
  posix_spawn_file_actions_adddup2(actions.get(), output, STDOUT_FILENO);
  std::string words[] = {"sh", "-c", command};
  char* argv[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
  pid_t child = 0;
  errno = posix_spawn(&child, "/bin/sh", actions.get(), nullptr, argv, environ);
  if (errno) ThrowErrno("/bin/sh");
  return child;
}

SecretBytes RunHelper(const std::string& command, const std::string& option) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) ThrowErrno(option);
  const FileDescriptor in(ends[0]);
  FileDescriptor out(ends[1]);
  const pid_t child = StartShell(command, out.get());
  out.reset();
  SecretBytes line;
  const bool answered = ReadLine(in.get(), line, option);
  Drain(in.get());
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw Failure(fmt::format("{}: the program failed, so nothing of it is used", option));
  if (!answered) throw Failure(fmt::format("{}: the program wrote nothing", option));
  return line;
}

SecretBytes FromDescriptor(int descriptor, const std::string& option) {
  SecretBytes line;
  if (!ReadLine(descriptor, line, option)) throw Failure(option + ": nothing to read");
  return line;
}

std::string Advice(const PinOptions& options) {
  return fmt::format("give --{0}-fd or --{0}-command{1}", options.option,
                     options.mayBeNone ? ", or --no-pin" : "");
}

SecretBytes Take(const PinOptions& options, const std::string& what) {
  if (options.descriptor >= 0) return FromDescriptor(options.descriptor, "--" + options.option + "-fd");
  if (!options.command.empty()) return RunHelper(options.command, "--" + options.option + "-command");
  return Terminal(Advice(options)).askSecret(what + ": ");
}

void Check(SecretBytes& pin, const std::string& what) {
  if (pin.empty()) throw Failure(what + ": empty");
  if (pin.size() > kLongestPin) throw Failure(fmt::format("{}: longer than {} bytes", what, kLongestPin));
  if (std::find(pin.begin(), pin.end(), BYTE{0}) != pin.end()) throw Failure(what + ": holds a NUL");
  pin.push_back(0);
}

}  // namespace

void AddPinOptions(CLI::App& command, PinOptions& options, const std::string& word, NoPin noPin) {
  options.option = word;
  options.mayBeNone = noPin == NoPin::Allowed;
  const std::string name = word == "password" ? "password" : word == "pin" ? "PIN" : "new PIN";
  CLI::Option* descriptor =
      command
          .add_option("--" + word + "-fd", options.descriptor,
                      fmt::format("Read the {} from this file descriptor, up to the end of a line", name))
          ->check(CLI::NonNegativeNumber)
          ->type_name("N");
  CLI::Option* helper =
      command
          .add_option("--" + word + "-command", options.command,
                      fmt::format("Run this under /bin/sh -c, and take its first line as the {}", name))
          ->type_name("COMMAND")
          ->excludes(descriptor);
  if (options.mayBeNone)
    command.add_flag("--no-pin", options.none, "Protect the key by the rights of its files alone")
        ->excludes(descriptor)
        ->excludes(helper);
}

SecretBytes AskPin(const PinOptions& options, const std::string& what) {
  SecretBytes pin = Take(options, what);
  Check(pin, what);
  return pin;
}

SecretBytes AskNewPin(const PinOptions& options, const std::string& what) {
  if (options.none) return {};
  SecretBytes pin = Take(options, what);
  Check(pin, what);
  if (options.given()) return pin;
  SecretBytes again = Terminal(Advice(options)).askSecret(what + " again: ");
  again.push_back(0);
  if (again != pin) throw Failure("the two are not the same; nothing was changed");
  return pin;
}

}  // namespace certkern::cli
