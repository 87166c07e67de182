// The dialog library as it is called: loaded by name, in a process with a terminal of its own.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "platform/supkern.h"
#include "platform/uikern.h"
#include "support/at_terminal.h"

using namespace certkern;
using namespace certkern::test;

namespace {

constexpr DWORD kEnglish = 0x409, kRussian = 0x419;

using Dialog = DWORD (*)(const SV_DIALOG_REQUEST*);

Dialog Load() {
  void* const library = support_load_library_registry(kDialogLibrary, 17);
  return reinterpret_cast<Dialog>(support_load_library_getaddr(library, kDialogFunction));
}

DWORD Ask(const char* text, DWORD language) {
  const SV_DIALOG_REQUEST request = {sizeof request, SV_DIALOG_YES_NO, language, text};
  return Load()(&request);
}

// Ends a child: 0 for yes, 1 for no, 2 for anything that a caller must never see.
[[noreturn]] void End(DWORD answer) {
  if (!answer) _exit(0);
  _exit(answer == ERROR_CANCELLED && GetLastError() == ERROR_CANCELLED ? 1 : 2);
}

TEST(Dialog, OnlyAClearYesAffirms) {
  const std::string blanks(100, ' ');
  const struct {
    DWORD language;
    std::vector<std::string> lines;
    int status;
  } kCases[] = {
      {kEnglish, {"yes\n"},                         0},
      {kEnglish, {" Y \n"},                         0},
      {kEnglish, {"\n"},                            1},
      {kEnglish, {"no\n"},                          1},
      {kEnglish, {"\x04"},                          1}, // end of input
      {kEnglish, {"perhaps\n", "yes\n"},            0},
      {kEnglish, {"yes no\n", "д\n", "yess\n"},    1},
      {kEnglish, {"yes" + blanks + "not\n", "n\n"}, 1},
      {kRussian, {"да\n"},                        0},
      {kRussian, {"Y\n"},                           0},
      {kRussian, {"нет\n"},                      1},
      {0x819,    {"Д\n"},                          0}, // another country's Russian
      {0x407,    {"yes\n"},                         0}, // a language without words
  };
  for (const auto& [language, lines, status] : kCases) {
    SCOPED_TRACE(lines[0]);
    AtTerminal user([&, asked = language] { End(Ask("Trust it?\nName: Иван", asked)); });
    EXPECT_TRUE(user.sees("Trust it?\r\nName: Иван"));
    for (const std::string& line : lines) {
      ASSERT_TRUE(user.sees((language & 0x3FF) == 0x19 ? "Да или нет? [нет] " : "Yes or no? [no] "));
      user.type(line);
    }
    EXPECT_EQ(user.status(), status);
  }
}

TEST(Dialog, WhatWasTypedBeforeIsNoAnswer) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  AtTerminal user([&] {
    char go;
    if (read(ready[0], &go, 1) == 1) End(Ask("Trust it?", kEnglish));
  });
  user.type("yes\n");
  ASSERT_TRUE(user.sees("yes\r\n")) << "echoed, so it has arrived";
  ASSERT_EQ(write(ready[1], "g", 1), 1);
  ASSERT_TRUE(user.sees("[no] "));
  user.type("\n");
  EXPECT_EQ(user.status(), 1);
  close(ready[0]);
  close(ready[1]);
}

TEST(Dialog, TheTerminalsModeComesBack) {
  AtTerminal user([] {
    termios raw{}, after{};
    tcgetattr(STDIN_FILENO, &raw);
    cfmakeraw(&raw);
    tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    tcgetattr(STDIN_FILENO, &raw);
    const DWORD answer = Ask("Trust it?", kEnglish);
    tcgetattr(STDIN_FILENO, &after);
    if (std::memcmp(&raw, &after, sizeof raw) == 0) End(answer);
  });
  ASSERT_TRUE(user.sees("[no] "));
  user.type("no\x7F\x7Fyes\r");
  EXPECT_EQ(user.status(), 0);
}

TEST(Dialog, SignalsAndHangUps) {
  struct sigaction handler {};
  handler.sa_handler = [](int) {};
  sigaction(SIGUSR1, &handler, nullptr);
  AtTerminal interrupted([] { End(Ask("Trust it?", kEnglish)); });
  ASSERT_TRUE(interrupted.sees("[no] "));
  kill(interrupted.child(), SIGUSR1);
  usleep(20'000);
  interrupted.type("yes\n");
  EXPECT_EQ(interrupted.status(), 0) << "a signal is not the user's answer";

  AtTerminal left([] {
    signal(SIGHUP, SIG_IGN);
    End(Ask("Trust it?", kEnglish));
  });
  ASSERT_TRUE(left.sees("[no] "));
  left.hangUp();
  EXPECT_EQ(left.status(), 1);
}

TEST(Dialog, ForeignTextDoesNotCommandTheTerminal) {
  AtTerminal user([] {
    End(
        Ask("a\x1B[2Jb\rc\xE2\x80\xAE"
            "d\xFFz\xC2\x9B"
            "e",
            kEnglish));
  });
  ASSERT_TRUE(user.sees("[no] "));
  EXPECT_NE(user.screen().find("a\uFFFD[2Jb\uFFFDc\uFFFDd\uFFFDz\uFFFDe\r\n"), std::string::npos)
      << user.screen();
  user.type("n\n");
  EXPECT_EQ(user.status(), 1);
}

TEST(Dialog, WithoutATerminalTheAnswerIsNo) {
  const pid_t child = fork();
  if (child == 0) {
    setsid();
    End(Ask("Trust it?", kEnglish));
  }
  EXPECT_EQ(StatusOf(child), 1);
}

TEST(Dialog, BadRequests) {
  const Dialog dialog = Load();
  ASSERT_NE(dialog, nullptr);
  const std::string endless(kMaxDialogText + 1, 'x');
  const SV_DIALOG_REQUEST kRequests[] = {
      {sizeof(SV_DIALOG_REQUEST) - 1, SV_DIALOG_YES_NO, kEnglish, "text"         },
      {sizeof(SV_DIALOG_REQUEST),     1,                kEnglish, "text"         },
      {sizeof(SV_DIALOG_REQUEST),     SV_DIALOG_YES_NO, kEnglish, nullptr        },
      {sizeof(SV_DIALOG_REQUEST),     SV_DIALOG_YES_NO, kEnglish, ""             },
      {sizeof(SV_DIALOG_REQUEST),     SV_DIALOG_YES_NO, kEnglish, endless.c_str()},
  };
  for (const SV_DIALOG_REQUEST& request : kRequests) {
    SetLastError(0);
    EXPECT_EQ(dialog(&request), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  }
  EXPECT_EQ(dialog(nullptr), DWORD{ERROR_INVALID_PARAMETER});
}

}  // namespace
