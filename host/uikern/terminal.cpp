#include "uikern/terminal.h"

#include <certkern/keykern.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/harmful_characters.h"

namespace certkern::dialog {
namespace {

// Bytes of a line that is looked at. No answer is nearly as long.
constexpr size_t kMaxAnswer = 64;

// A question has several lines.
bool IsHarmfulInText(wchar_t character) { return character != L'\n' && IsHarmful(character); }

// A signal with a handler interrupts the call, and is not the user's answer.
template <class Call>
ssize_t Uninterrupted(Call call) {
  ssize_t done;
  do {
    done = call();
  } while (done < 0 && errno == EINTR);
  return done;
}

}  // namespace

Terminal::Terminal() : file_(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {
  if (!file_ || tcgetattr(file_.get(), &before_) != 0) return;
  termios lines = before_;
  lines.c_iflag = (lines.c_iflag | ICRNL) & ~static_cast<tcflag_t>(IGNCR | INLCR);
  lines.c_oflag |= OPOST | ONLCR;
  lines.c_lflag |= ICANON | ECHO | ECHOE | ISIG;
  changed_ = Uninterrupted([&] { return tcsetattr(file_.get(), TCSAFLUSH, &lines); }) == 0;
}

Terminal::~Terminal() {
  if (changed_) Uninterrupted([&] { return tcsetattr(file_.get(), TCSADRAIN, &before_); });
}

bool Terminal::write(std::string_view text) {
  while (!text.empty()) {
    const ssize_t done = Uninterrupted([&] { return ::write(file_.get(), text.data(), text.size()); });
    if (done <= 0) return false;
    text.remove_prefix(static_cast<size_t>(done));
  }
  return true;
}

std::optional<std::string> Terminal::readLine() {
  std::string line;
  for (;;) {
    char chunk[kMaxAnswer];
    const ssize_t size = Uninterrupted([&] { return read(file_.get(), chunk, sizeof chunk); });
    if (size <= 0) return std::nullopt;
    const std::string_view piece(chunk, static_cast<size_t>(size));
    line.append(piece.substr(0, kMaxAnswer - line.size()));
    if (piece.back() == '\n') return line;
  }
}

std::string Harmless(std::string_view text) {
  const int given = static_cast<int>(text.size());
  std::wstring characters(text.size(), L'\0');
  characters.resize(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), given, characters.data(),
                                                            static_cast<int>(characters.size()))));
  std::ranges::replace_if(characters, IsHarmfulInText, kReplacementCharacter);
  std::string shown(characters.size() * 4, '\0');
  shown.resize(static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, characters.data(),
                                                       static_cast<int>(characters.size()), shown.data(),
                                                       static_cast<int>(shown.size()), nullptr, nullptr)));
  return shown;
}

}  // namespace certkern::dialog
