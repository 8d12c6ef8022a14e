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

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

bool HasHandler(int signal, sighandler_t handler) {
  struct sigaction action;
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == handler;
}

sigset_t StopSet() {
  sigset_t set;
  sigemptyset(&set);
  for (int signal : kSignals) sigaddset(&set, signal);
  // A process that was told to outlive its terminal does.
  if (HasHandler(SIGHUP, SIG_IGN)) sigdelset(&set, SIGHUP);
  return set;
}

std::string_view NameOf(uint32_t signal) {
  return signal == SIGINT ? "SIGINT" : signal == SIGHUP ? "SIGHUP" : "SIGTERM";
}

/// Handles the first signal: the next one ends the process.
void EndAtNext(int) {
  for (int signal : kSignals) {
    if (HasHandler(signal, EndAtNext)) std::signal(signal, SIG_DFL);
  }
}

}  // namespace

StopSignals::StopSignals() : set_(StopSet()) {
  std::signal(SIGPIPE, SIG_IGN);
  pthread_sigmask(SIG_BLOCK, &set_, nullptr);
  signalFd_ = signalfd(-1, &set_, SFD_CLOEXEC | SFD_NONBLOCK);
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
  bool signalled = false;
  while (reason.empty()) {
    auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - start);
    long long left = duration ? std::clamp<long long>((*duration - passed).count(), 0, INT_MAX) : -1;
    if (left == 0) {
      reason = "the duration is over";
    } else if (poll(sources, 2, static_cast<int>(left)) > 0) {
      signalfd_siginfo info;
      signalled = read(signalFd_, &info, sizeof(info)) == sizeof(info);
      reason = !signalled ? "an output is gone" : NameOf(info.ssi_signo);
    }
  }
  for (int signal : kSignals) {
    if (!signalled && sigismember(&set_, signal)) std::signal(signal, EndAtNext);
  }
  pthread_sigmask(SIG_UNBLOCK, &set_, nullptr);
  return reason;
}

void StopSignals::Wake() { eventfd_write(wakeFd_, 1); }

}  // namespace tarq::host
