#include "host/stop_signals.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <system_error>

namespace tarq::host {
namespace {

sigset_t StopSet() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

}  // namespace

StopSignals::StopSignals() {
  std::signal(SIGPIPE, SIG_IGN);
  sigset_t set = StopSet();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  signalFd_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (signalFd_ < 0 || wakeFd_ < 0)
    throw std::system_error(errno, std::generic_category(), "signals cannot be watched");
}

StopSignals::~StopSignals() {
  close(signalFd_);
  close(wakeFd_);
}

std::string_view StopSignals::Wait(std::optional<std::chrono::milliseconds> duration) {
  using std::chrono::steady_clock;
  auto start = steady_clock::now();
  pollfd sources[] = {{signalFd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
  std::string_view reason;
  while (reason.empty()) {
    auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - start);
    long long left = duration ? std::clamp<long long>((*duration - passed).count(), 0, INT_MAX) : -1;
    if (left == 0) {
      reason = "the duration is over";
    } else if (poll(sources, 2, static_cast<int>(left)) > 0) {
      signalfd_siginfo info;
      bool signalled = read(signalFd_, &info, sizeof(info)) == sizeof(info);
      reason = !signalled ? "an output is gone" : info.ssi_signo == SIGINT ? "SIGINT" : "SIGTERM";
    }
  }
  sigset_t set = StopSet();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  return reason;
}

void StopSignals::Wake() { eventfd_write(wakeFd_, 1); }

}  // namespace tarq::host
