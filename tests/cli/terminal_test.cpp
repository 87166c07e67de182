// What the tool does on a terminal: asks without showing, leaves the terminal as it was, keeps bytes off it.
#include "tool_home.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <csignal>

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr int kPatience = 20000;  // milliseconds

// The tool with a terminal of its own, whose other end is here.
class Session {
 public:
  Session(const ToolHome& home, std::vector<std::string> words) {
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_TRUE(master_ >= 0 && grantpt(master_) == 0 && unlockpt(master_) == 0);
    std::array<char, 64> slave{};
    EXPECT_EQ(ptsname_r(master_, slave.data(), slave.size()), 0);
    words.insert(words.begin(), kTool);
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    std::string data = "XDG_DATA_HOME=" + home.path("data"), config = "CERTKERN_CONFIG=/dev/null";
    char* environment[] = {data.data(), config.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // the first terminal that the leader of a session opens becomes its own
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, slave.data(), O_RDWR, 0);
    posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    EXPECT_EQ(posix_spawn(&child_, kTool, &actions, &attributes, argv.data(), environment), 0);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    keeper_ = open(slave.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);  // what is said last stays readable
  }
  ~Session() {
    close(keeper_);
    close(master_);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Waits for a prompt, and answers it.
  void answer(const std::string& prompt, const std::string& line) {
    waitFor(prompt);
    EXPECT_EQ(write(master_, line.data(), line.size()), static_cast<ssize_t>(line.size()));
  }
  void waitFor(const std::string& prompt) {
    pollfd place{master_, POLLIN, 0};
    while (said_.find(prompt, seen_) == said_.npos) {
      std::array<char, 4096> buffer;
      ssize_t count = 0;
      if (poll(&place, 1, kPatience) == 1) count = read(master_, buffer.data(), buffer.size());
      if (count <= 0) {
        kill(child_, SIGKILL);
        FAIL() << "no \"" << prompt << "\" in: " << said_;
      }
      said_.append(buffer.data(), static_cast<size_t>(count));
    }
    seen_ = said_.find(prompt, seen_) + prompt.size();
  }
  bool echoes() const {
    termios settings{};
    EXPECT_EQ(tcgetattr(keeper_, &settings), 0);
    return settings.c_lflag & ECHO;
  }
  void signal(int number) const { kill(child_, number); }
  // Exit status; negative: the signal that ended it.
  int end() {
    int status = 0;
    EXPECT_EQ(waitpid(child_, &status, 0), child_);
    pollfd place{master_, POLLIN, 0};
    std::array<char, 4096> buffer;
    while (poll(&place, 1, 0) == 1) {
      const ssize_t count = read(master_, buffer.data(), buffer.size());
      if (count <= 0) break;
      said_.append(buffer.data(), static_cast<size_t>(count));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  const std::string& said() const { return said_; }

 private:
  int master_ = -1;
  int keeper_ = -1;
  pid_t child_ = 0;
  std::string said_;
  size_t seen_ = 0;
};

TEST(Terminal, PinsAreAskedForTwiceAndNeverShown) {
  const ToolHome home;
  Session made(home, {"key", "new", "anna", "--algorithm", "ecdsa"});
  made.answer("New PIN of anna: ", "s3cret\n");
  made.answer("New PIN of anna again: ", "s3cret\n");
  EXPECT_EQ(made.end(), 0) << made.said();
  EXPECT_THAT(made.said(), Not(HasSubstr("s3cret")));
  EXPECT_TRUE(made.echoes());
  home.out("certkern request new --key anna --subject CN=A --pin-command 'echo s3cret'");

  Session differing(home, {"key", "set-pin", "anna"});
  differing.answer("PIN of anna: ", "s3cret\n");
  differing.answer("New PIN of anna: ", "one\n");
  differing.answer("New PIN of anna again: ", "two\n");
  EXPECT_EQ(differing.end(), 1);
  EXPECT_THAT(differing.said(), HasSubstr("not the same"));
  home.out("certkern request new --key anna --subject CN=A --pin-command 'echo s3cret'");
}

TEST(Terminal, SignalsFindItAsItWas) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    SCOPED_TRACE(number);
    const ToolHome home;
    Session session(home, {"key", "new", "anna", "--algorithm", "ecdsa"});
    session.waitFor("New PIN of anna: ");
    EXPECT_FALSE(session.echoes());
    session.signal(number);
    EXPECT_EQ(session.end(), -number);
    EXPECT_TRUE(session.echoes());
    EXPECT_EQ(home.out("certkern key list --json"), "[]\n");
  }
}

TEST(Terminal, WhoComesBackFromAStopIsAskedAgain) {
  const ToolHome home;
  Session session(home, {"key", "new", "anna", "--algorithm", "ecdsa"});
  session.waitFor("New PIN of anna: ");
  session.signal(SIGTSTP);  // nobody could wake it here, so it does not stop, but goes on as if it had
  session.answer("New PIN of anna: ", "x1\n");
  session.answer("New PIN of anna again: ", "x1\n");
  EXPECT_EQ(session.end(), 0) << session.said();
}

TEST(Terminal, SecretsAndBytesStayOffIt) {
  const ToolHome home;
  home.out("certkern key new anna --algorithm ecdsa --exportable --no-pin");
  struct Case {
    std::vector<std::string> words;
    int status;
    const char* said;
  };
  const Case kCases[] = {
      {{"key", "export", "anna"},                                         1, "not written to a terminal"},
      {{"key", "export", "anna", "--force"},                              0, "BEGIN PRIVATE KEY"        },
      {{"key", "export", "anna", "--public", "--der"},                    1, "not written to a terminal"},
      {{"request", "new", "--key", "anna", "--subject", "CN=A", "--der"}, 1, "not written to a terminal"},
      {{"random", "5"},                                                   1, "--hex or --base64"        },
  };
  for (const auto& [words, status, said] : kCases) {
    SCOPED_TRACE(words[0] + " " + words[1]);
    Session session(home, words);
    EXPECT_EQ(session.end(), status);
    EXPECT_THAT(session.said(), HasSubstr(said));
  }
}

TEST(Terminal, DeletionAsks) {
  const ToolHome home;
  home.out("certkern key new anna --algorithm ecdsa --no-pin");
  Session no(home, {"key", "delete", "anna"});
  no.answer("Type yes: ", "y\n");
  EXPECT_EQ(no.end(), 1);
  home.out("certkern key show anna");
  Session yes(home, {"key", "delete", "anna"});
  yes.answer("Type yes: ", "yes\n");
  EXPECT_EQ(yes.end(), 0);
  EXPECT_EQ(home.run("certkern key show anna").status, 1);
}

}  // namespace
