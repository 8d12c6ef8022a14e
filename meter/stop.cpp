#include "meter/stop.h"

#include <signal.h>
#include <sys/eventfd.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace tarq::meter {
namespace {

int g_stopDescriptor = -1;  // what the handler writes to
volatile sig_atomic_t g_stopRequested = 0;

constexpr int kEndSignals[] = {SIGINT, SIGTERM};

void OnSignal(int number) {
  const int savedError = errno;
  if (number != SIGALRM) {
    for (const int one : kEndSignals) signal(one, SIG_DFL);  // The next one, whichever, ends the process.
  }
  g_stopRequested = 1;
  const uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(g_stopDescriptor, &one, sizeof one);
  errno = savedError;
}

}  // namespace

StopRequest::StopRequest(std::chrono::milliseconds duration) {
  g_stopDescriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  struct sigaction action {};
  action.sa_handler = OnSignal;
  // Without SA_RESTART, so that reading a capture from a pipe ends, too.
  action.sa_flags = 0;
  for (const int one : {SIGINT, SIGTERM, SIGALRM}) sigaction(one, &action, nullptr);
  const itimerval timer{{0, 0}, {duration.count() / 1000, duration.count() % 1000 * 1000}};
  if (duration.count() > 0) setitimer(ITIMER_REAL, &timer, nullptr);
}

int StopRequest::descriptor() const { return g_stopDescriptor; }
bool StopRequest::requested() const { return g_stopRequested != 0; }

}  // namespace tarq::meter
