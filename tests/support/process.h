// Programs under test, run as people run them.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace tarq::test {

inline constexpr std::chrono::seconds kPatience{60};

inline std::string ReadFile(const std::filesystem::path& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

/// Waits until `condition` holds; false when patience ran out first.
template <class Condition>
bool Eventually(Condition condition) {
  for (const auto end = std::chrono::steady_clock::now() + kPatience; !condition();) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

/// A folder of its own for a test, gone with it.
struct Scratch {
  Scratch() {
    std::string pattern = testing::TempDir() + "tarq-XXXXXX";
    path = mkdtemp(pattern.data());
  }
  ~Scratch() { std::filesystem::remove_all(path); }
  std::filesystem::path path;
};

/// A running program whose output goes to files. Killed when the test leaves it behind.
class Process {
 public:
  Process(std::vector<std::string> command, const std::filesystem::path& log)
      : out_(log.string() + ".out"), err_(log.string() + ".err") {
    std::vector<char*> argv;
    for (std::string& word : command) argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, out_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&files, 2, err_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    EXPECT_EQ(posix_spawnp(&pid_, argv[0], &files, nullptr, argv.data(), environ), 0) << command[0];
    posix_spawn_file_actions_destroy(&files);
  }
  ~Process() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

  void Signal(int signal) { kill(pid_, signal); }
  /// The exit code; -1 when it did not end by itself.
  int Wait() {
    int status = 0;
    if (!Eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; })) return -1;
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string Out() const { return ReadFile(out_); }
  std::string Err() const { return ReadFile(err_); }

 private:
  std::string out_, err_;
  pid_t pid_ = 0;
};

/// Runs a program to its end; its exit code, standard output and standard error.
struct Finished {
  int code;
  std::string out, err;
};
inline Finished RunToEnd(const std::vector<std::string>& command, const std::filesystem::path& log) {
  Process process(command, log);
  const int code = process.Wait();
  return {code, process.Out(), process.Err()};
}

}  // namespace tarq::test
