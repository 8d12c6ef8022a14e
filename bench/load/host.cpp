#include "load/host.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

extern char** environ;

namespace tarq::load {
namespace {

constexpr std::chrono::seconds kPatience{20};

std::string ReadFile(const std::string& file) {
  std::ostringstream text;
  text << std::ifstream(file).rdbuf();
  return text.str();
}

/// The text between `start` and the end of its line or the next blank; empty when it is not there yet.
std::string WordAfter(const std::string& text, const std::string& start) {
  const size_t at = text.find(start);
  if (at == text.npos) return "";
  const size_t end = text.find_first_of(" \n", at + start.size());
  return end == text.npos ? "" : text.substr(at + start.size(), end - at - start.size());
}

}  // namespace

Host::Host(const std::string& program, const std::string& folder, const std::string& jsonSocket,
           const std::string& gpbSocket, size_t queueBytes)
    : folder_(folder) {
  // Ends with this program, whatever ends that.
  std::vector<std::string> command = {"setpriv",         "--pdeathsig", "TERM",          program,
                                      "--port",          "0",           "--metrics",     "0",
                                      "--drain-timeout", "60",          "--queue-bytes", std::to_string(queueBytes)};
  for (const auto& [socket, encoding] : {std::pair(jsonSocket, "json"), {gpbSocket, "gpb"}}) {
    const bool gpb = std::string(encoding) == "gpb";
    for (const std::string& word : {std::string("--output"), "unix:" + socket, std::string("--format"),
                                    std::string(gpb ? "delimited" : "lines")}) {
      command.push_back(word);
    }
    for (const char* kind : {"flow", "flow-hop", "native-ip"}) {
      command.insert(command.end(), {"--subscribe", std::string(kind) + ":" + encoding});
    }
  }
  std::vector<char*> arguments;
  for (std::string& word : command) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 2, ErrorFile().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const int error = posix_spawnp(&pid_, command[0].c_str(), &files, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  if (error != 0) throw std::runtime_error(program + " cannot be started");
  for (const auto end = std::chrono::steady_clock::now() + kPatience; port_ == 0;) {
    const std::string said = ReadFile(ErrorFile());
    metrics_ = WordAfter(said, "metrics at ");
    const std::string port = WordAfter(said, "listening on 127.0.0.1:");
    if (!port.empty()) port_ = static_cast<uint16_t>(std::stoi(port));
    if (std::chrono::steady_clock::now() > end) throw std::runtime_error("the host did not start:\n" + said);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

Host::~Host() {
  if (pid_ == 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

uint64_t Host::memory() const {
  uint64_t pages = 0, resident = 0;
  std::ifstream("/proc/" + std::to_string(pid_) + "/statm") >> pages >> resident;
  return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

test::Books Host::Metrics() const {
  const std::unique_ptr<FILE, int (*)(FILE*)> curl(popen(("curl -sS " + metrics_).c_str(), "r"), pclose);
  std::string text;
  char buffer[4096];
  for (size_t count; curl && (count = fread(buffer, 1, sizeof buffer, curl.get())) > 0;) text.append(buffer, count);
  if (text.empty()) throw std::runtime_error("the host gives no metrics");
  return test::Books(text);
}

int Host::Stop() {
  kill(pid_, SIGTERM);
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = 0;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace tarq::load
