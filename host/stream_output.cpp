#include "host/stream_output.h"

#include <fmt/format.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <spdlog/spdlog.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

namespace tarq::host {
namespace {

std::string Reason(int error) { return std::generic_category().message(error); }

std::chrono::milliseconds Until(std::chrono::steady_clock::time_point time) {
  auto left = std::chrono::ceil<std::chrono::milliseconds>(time - std::chrono::steady_clock::now());
  return std::clamp(left, std::chrono::milliseconds{0}, std::chrono::milliseconds{INT_MAX});
}

int PendingError(int socket) {
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
  return error;
}

bool HasEnded(int socket) {
  pollfd end{socket, POLLRDHUP, 0};
  return poll(&end, 1, 0) > 0;
}

/// Whether a connection leads back to its own socket, which dialling a free local port can bring about.
bool IsToItself(int socket) {
  sockaddr_storage here{}, there{};
  socklen_t size = sizeof here;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&here), &size) != 0 || here.ss_family == AF_UNIX) return false;
  size = sizeof there;
  return getpeername(socket, reinterpret_cast<sockaddr*>(&there), &size) == 0 &&
         std::memcmp(&here, &there, sizeof here) == 0;
}

void KeepAlive(int socket) {
  auto set = [socket](int level, int option, int value) {
    setsockopt(socket, level, option, &value, sizeof value);  // a Unix socket has none of these, and needs none
  };
  set(SOL_SOCKET, SO_KEEPALIVE, 1);
  set(IPPROTO_TCP, TCP_KEEPIDLE, kKeepaliveIdle.count());
  set(IPPROTO_TCP, TCP_KEEPINTVL, kKeepaliveInterval.count());
  set(IPPROTO_TCP, TCP_KEEPCNT, kKeepaliveProbes);
}

/// Bytes that were sent and that the peer has not acknowledged; on a Unix socket, not read.
uint64_t UnacknowledgedBytes(int socket) {
  int bytes = 0;
  return ioctl(socket, TIOCOUTQ, &bytes) == 0 && bytes > 0 ? static_cast<uint64_t>(bytes) : 0;
}

}  // namespace

StreamOutput::StreamOutput(Target target, SampleText text) : target_(std::move(target)), text_(std::move(text)) {}

WriteResult StreamOutput::Write(const Subscription& subscription, const standin::Sample& sample) {
  std::string bytes = text_(subscription, sample);
  while (Dial()) {
    if (!SendAll(bytes)) continue;
    onTheirWay_.push_back({sent_, subscription.taskId(), sample.recordCount});
    return {};
  }
  return {WriteResult::Outcome::kFailed, "stopped before the subscriber took it"};
}

void StreamOutput::Idle() {
  if ((Connected() && PeerIsThere()) || Clock::now() < nextTry_) return;
  TryAgain();
}

void StreamOutput::Finish(Deadline deadline) {
  if (!Connected()) return;
  shutdown(socket_.get(), SHUT_WR);
  deadline = std::min(deadline, Clock::now() + kFinishTimeout);
  std::string end = Look();
  while (end.empty() && acknowledged_ < sent_ && Clock::now() < deadline) {
    std::this_thread::sleep_for(kFinishPoll);
    end = Look();
  }
  if (end.empty()) Forget(acknowledged_);  // who is still there reads on
  if (!onTheirWay_.empty()) Lose(end.empty() ? "it has not acknowledged everything" : end);
  socket_ = standin::FileDescriptor();
  up_ = false;
}

std::vector<Unconfirmed> StreamOutput::TakeUnconfirmed() {
  std::lock_guard lock(unconfirmedMutex_);
  return std::exchange(unconfirmed_, {});
}

// ---- Connecting ----

/// Waits for a connection, however long that takes. False when cancelled.
bool StreamOutput::Dial() {
  if (Connected()) PeerIsThere();
  while (!Connected()) {
    if (WaitFor(0, Until(nextTry_)) == Wait::kCancelled) return false;
    TryAgain();
  }
  return WaitFor(0, std::chrono::milliseconds{0}) != Wait::kCancelled;
}

void StreamOutput::TryAgain() {
  std::string problem = TryToConnect();
  if (problem.empty()) {
    spdlog::info("{}: connected", name());
    away_ = false;
    up_ = true;
    ++connects_;
    sent_ = acknowledged_ = 0;
    return;
  }
  socket_ = standin::FileDescriptor();
  PutOff();
  if (!std::exchange(away_, true)) spdlog::warn("{}: {}; trying again until it is there", name(), problem);
}

/// The waits start again from the first only once a subscriber has taken a sample: one that accepts and leaves is not
/// dialled without end.
void StreamOutput::PutOff() {
  nextTry_ = Clock::now() + retry_;
  retry_ = std::min(2 * retry_, kLastRetry);
}

std::string StreamOutput::TryToConnect() {
  if (target_.kind == Target::Kind::kUnix) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, target_.place.data(), target_.place.size());
    return ConnectTo(AF_UNIX, &address, sizeof address);
  }
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  int error = getaddrinfo(target_.place.c_str(), target_.port.c_str(), &hints, &found);
  if (error != 0) return gai_strerror(error);
  std::unique_ptr<addrinfo, void (*)(addrinfo*)> addresses(found, freeaddrinfo);
  std::string problem;
  for (; found != nullptr; found = found->ai_next) {
    problem = ConnectTo(found->ai_family, found->ai_addr, found->ai_addrlen);
    if (problem.empty()) break;
  }
  return problem;
}

std::string StreamOutput::ConnectTo(int family, const void* address, unsigned length) {
  socket_ = standin::FileDescriptor(socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!Connected()) return Reason(errno);
  KeepAlive(socket_.get());
  if (connect(socket_.get(), static_cast<const sockaddr*>(address), length) != 0) {
    if (errno != EINPROGRESS) return Reason(errno);
    if (WaitFor(POLLOUT, kConnectTimeout) != Wait::kReady) return "no answer";
    if (int error = PendingError(socket_.get()); error != 0) return Reason(error);
  }
  return IsToItself(socket_.get()) ? "nobody listens there" : "";
}

// ---- Sending ----

/// False when the connection broke or the write was cancelled.
bool StreamOutput::SendAll(std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t count = send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count > 0) {
      bytes.remove_prefix(static_cast<size_t>(count));
      sent_ += static_cast<uint64_t>(count);
    } else if (errno == EAGAIN) {
      if (WaitFor(POLLOUT | POLLIN, std::chrono::milliseconds{-1}) == Wait::kCancelled || !PeerIsThere()) return false;
    } else if (errno != EINTR) {
      PeerIsThere(errno);
      return false;
    }
  }
  return true;
}

/// False when the connection is over, and lost.
bool StreamOutput::PeerIsThere(int sendError) {
  const std::string end = Look(sendError);
  if (!end.empty()) Lose(end);
  return end.empty();
}

/// Takes note of what the peer has taken and throws away what it sends. Why the connection is over; empty when it is
/// not.
std::string StreamOutput::Look(int sendError) {
  bool over = sendError != 0;
  int error = sendError == EPIPE ? 0 : sendError;  // says only that it is over
  char ignored[16 << 10];
  if (recv(socket_.get(), ignored, sizeof ignored, MSG_DONTWAIT) < 0 && errno != EAGAIN && errno != EINTR)
    error = errno;
  over |= HasEnded(socket_.get());
  const uint64_t unacknowledged = UnacknowledgedBytes(socket_.get());
  // Asked for after the count: a Unix peer that leaves bytes unread takes them off the count, and leaves an error.
  if (int pending = PendingError(socket_.get()); error == 0) error = pending;
  if (error != 0) return Reason(error);
  acknowledged_ = sent_ - std::min(sent_, unacknowledged);
  // A TCP peer's kernel acknowledges for it; only an end in order says that its program has read everything.
  const uint64_t unread = over || target_.kind == Target::Kind::kUnix ? 0 : kMostUnreadBytes;
  Forget(acknowledged_ - std::min(acknowledged_, unread));
  return over ? "the subscriber has closed" : "";
}

/// The samples up to there have arrived.
void StreamOutput::Forget(uint64_t taken) {
  while (!onTheirWay_.empty() && onTheirWay_.front().end <= taken) onTheirWay_.pop_front();
  if (acknowledged_ > 0) retry_ = kFirstRetry;
}

void StreamOutput::Lose(const std::string& reason) {
  {
    std::lock_guard lock(unconfirmedMutex_);
    for (const OnItsWay& sample : onTheirWay_) unconfirmed_.push_back({sample.taskId, {1, sample.records}});
  }
  spdlog::warn("{}: connection lost: {}; {} delivered samples may not have arrived", name(), reason,
               onTheirWay_.size());
  onTheirWay_.clear();
  socket_ = standin::FileDescriptor();
  up_ = false;
  ++losses_;
  PutOff();
}

StreamOutput::Wait StreamOutput::WaitFor(short events, std::chrono::milliseconds time) {
  pollfd sources[] = {{cancelled_.fd(), POLLIN, 0}, {socket_.get(), events, 0}};
  poll(sources, events == 0 ? 1 : 2, static_cast<int>(time.count()));
  if (sources[0].revents != 0) return Wait::kCancelled;
  return sources[1].revents != 0 ? Wait::kReady : Wait::kLate;
}

}  // namespace tarq::host
