#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "platform/ScratchDirectory.h"
#include "reliability/ReliabilityRuns.h"

extern char** environ;

namespace iam {
namespace {

// One run of the child over `prefs`, reading its report lines as they come.
class Child {
 public:
  Child(const std::string& prefs, long loops, const char* mode = nullptr) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return;
    read_ = fds[0];
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 3);  // dup2 drops close-on-exec
    const std::string loopText = std::to_string(loops);
    char* argv[] = {const_cast<char*>(IAM_CRASH_CHILD), const_cast<char*>(prefs.c_str()), const_cast<char*>("3"),
                    const_cast<char*>(loopText.c_str()), const_cast<char*>(mode), nullptr};
    if (posix_spawn(&pid_, IAM_CRASH_CHILD, &actions, nullptr, argv, environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
  }
  ~Child() {
    if (pid_ > 0) kill();
    if (read_ >= 0) ::close(read_);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  bool started() const { return pid_ > 0 && read_ >= 0; }
  // The next whole line; none at the end of the output or when nothing came for 60 s (a hang).
  std::optional<std::string> line() {
    for (;;) {
      if (auto end = buffer_.find('\n'); end != std::string::npos) {
        std::string out = buffer_.substr(0, end);
        buffer_.erase(0, end + 1);
        return out;
      }
      pollfd p{read_, POLLIN, 0};
      if (::poll(&p, 1, 60'000) != 1) return std::nullopt;
      char chunk[512];
      const ssize_t n = ::read(read_, chunk, sizeof chunk);
      if (n <= 0) return std::nullopt;
      buffer_.append(chunk, static_cast<std::size_t>(n));
    }
  }
  // SIGKILL, then the exit status.
  int kill() {
    ::kill(pid_, SIGKILL);
    return wait();
  }
  int wait() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
  }

 private:
  pid_t pid_ = -1;
  int read_ = -1;
  std::string buffer_;
};

// What the children have reported so far; every line is checked against it.
struct Seen {
  std::int64_t events = 0, fires = 0, launches = 0;
  int starts = 0, saves = 0;

  void take(const std::string& line) {
    std::istringstream in(line);
    std::string kind;
    std::int64_t e = -1, f = -1, l = -1;
    in >> kind >> e >> f >> l;
    if (kind == "start") {
      // A new process over the file the killed one left: nothing it saw saved is gone.
      EXPECT_GE(e, events) << line;
      EXPECT_GE(f, fires) << line;
      EXPECT_GT(l, launches) << line;
      launches = l;
      ++starts;
    } else if (kind == "saved") {
      EXPECT_GE(e, events) << line;
      EXPECT_GE(f, fires) << line;
      ++saves;
    } else {
      ADD_FAILURE() << "child reported: " << line;
      return;
    }
    events = e;
    fires = f;
  }
};

TEST(CrashSafetyTest, CountsSeenSavedSurviveSIGKILLAtAnyMoment) {
  testing::ScratchDirectory dir;
  const std::string prefs = dir.file("preferences.sqlite");
  const int kills = testing::reliabilityLongForm() ? 200 : 20;
  std::mt19937 random(testing::reliabilitySeed());
  Seen seen;
  for (int i = 0; i < kills; ++i) {
    Child child(prefs, 1'000'000);
    ASSERT_TRUE(child.started());
    // -1: before the child has even opened the file; otherwise after that many saves it reported.
    const int reports = std::uniform_int_distribution<int>(-1, 12)(random);
    for (int n = 0; n <= reports; ++n) {
      auto line = child.line();
      ASSERT_TRUE(line) << "the child stopped or hung in run " << i;
      seen.take(*line);
    }
    const int status = child.kill();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "run " << i << " ended by itself";
    // Lines written before the kill were saved counts too.
    while (auto line = child.line()) seen.take(*line);
  }
  Child last(prefs, 0);
  while (auto line = last.line()) seen.take(*line);
  EXPECT_EQ(last.wait(), 0);
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    EXPECT_EQ(entry.path().filename().string().find(".corrupt-"), std::string::npos) << "a killed writer damaged the file";
  }
  std::cout << "crash safety: " << kills << " kills, " << seen.starts << " starts, " << seen.saves
            << " saves reported, last counts " << seen.events << " events / " << seen.fires << " trigger fires\n";
}

TEST(CrashSafetyTest, CountingGoesOnWhileTheFileCannotGrowAndReachesItOnceItCan) {
  testing::ScratchDirectory dir;
  const std::string prefs = dir.file("preferences.sqlite");
  Seen seen;
  Child(prefs, 3).wait();
  Child full(prefs, 8, "full");
  std::vector<std::string> logs;
  while (auto line = full.line()) {
    if (line->rfind("log ", 0) == 0) {
      logs.push_back(*line);
    } else {
      seen.take(*line);
    }
  }
  EXPECT_EQ(full.wait(), 0);
  // One line when writing starts to fail, one when it works again; none for the writes between.
  ASSERT_EQ(logs.size(), 2u);
  EXPECT_NE(logs[0].find("writing failed"), std::string::npos) << logs[0];
  EXPECT_NE(logs[1].find("writing works again"), std::string::npos) << logs[1];
  const std::int64_t counted = seen.events;
  EXPECT_EQ(seen.saves, 8);
  Child after(prefs, 0);
  while (auto line = after.line()) seen.take(*line);
  EXPECT_EQ(seen.events, counted);
}

}  // namespace
}  // namespace iam
