#include "host/stream_output.h"

#include <fmt/format.h>
#include <netdb.h>
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
#include <utility>

namespace tarq::host {
namespace {

std::string Reason(int error) { return std::generic_category().message(error); }

std::chrono::milliseconds Until(std::chrono::steady_clock::time_point time) {
  auto left = std::chrono::ceil<std::chrono::milliseconds>(time - std::chrono::steady_clock::now());
  return std::clamp(left, std::chrono::milliseconds{0}, std::chrono::milliseconds{INT_MAX});
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
  if (Connected() && PeerIsThere()) ForgetAcknowledged();
  if (Connected() || Clock::now() < nextTry_) return;
  TryAgain();
}

void StreamOutput::Finish(Deadline deadline) {
  if (!Connected()) return;
  shutdown(socket_.get(), SHUT_WR);
  deadline = std::min(deadline, Clock::now() + kFinishTimeout);
  do {
    ForgetAcknowledged();
  } while (!onTheirWay_.empty() && Clock::now() < deadline && WaitFor(POLLERR, kFinishPoll) == Wait::kLate);
  if (!onTheirWay_.empty()) Lose("it has not acknowledged everything");
  socket_ = standin::FileDescriptor();
  up_ = false;
}

std::vector<Unconfirmed> StreamOutput::TakeUnconfirmed() { return std::exchange(unconfirmed_, {}); }

// ---- Connecting ----

/// Waits for a connection, however long that takes. False when cancelled.
bool StreamOutput::Dial() {
  if (Connected() && PeerIsThere()) ForgetAcknowledged();
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
    sent_ = 0;
    retry_ = kFirstRetry;
    return;
  }
  socket_ = standin::FileDescriptor();
  nextTry_ = Clock::now() + retry_;
  retry_ = std::min(2 * retry_, kLastRetry);
  if (!std::exchange(away_, true)) spdlog::warn("{}: {}; trying again until it is there", name(), problem);
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
  if (connect(socket_.get(), static_cast<const sockaddr*>(address), length) == 0) return "";
  if (errno != EINPROGRESS) return Reason(errno);
  if (WaitFor(POLLOUT, kConnectTimeout) != Wait::kReady) return "no answer";
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &size);
  return error == 0 ? "" : Reason(error);
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
      Lose(Reason(errno));
      return false;
    }
  }
  return true;
}

/// Looks for the peer's end; what it sends is thrown away. False when the connection is over, and lost.
bool StreamOutput::PeerIsThere() {
  char ignored[4096];
  ssize_t count;
  while ((count = recv(socket_.get(), ignored, sizeof ignored, MSG_DONTWAIT)) > 0) {
  }
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return true;
  Lose(count == 0 ? "the subscriber has closed" : Reason(errno));
  return false;
}

void StreamOutput::ForgetAcknowledged() {
  uint64_t acknowledged = sent_ - std::min(sent_, UnacknowledgedBytes(socket_.get()));
  while (!onTheirWay_.empty() && onTheirWay_.front().end <= acknowledged) onTheirWay_.pop_front();
}

void StreamOutput::Lose(const std::string& reason) {
  for (const OnItsWay& sample : onTheirWay_) unconfirmed_.push_back({sample.taskId, {1, sample.records}});
  spdlog::warn("{}: connection lost: {}; {} delivered samples may not have arrived", name(), reason,
               onTheirWay_.size());
  onTheirWay_.clear();
  socket_ = standin::FileDescriptor();
  up_ = false;
  ++losses_;
}

StreamOutput::Wait StreamOutput::WaitFor(short events, std::chrono::milliseconds time) {
  pollfd sources[] = {{cancelled_.fd(), POLLIN, 0}, {socket_.get(), events, 0}};
  poll(sources, events == 0 ? 1 : 2, static_cast<int>(time.count()));
  if (sources[0].revents != 0) return Wait::kCancelled;
  return sources[1].revents != 0 ? Wait::kReady : Wait::kLate;
}

}  // namespace tarq::host
