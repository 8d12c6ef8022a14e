#include "meter/connection.h"

#include <fcntl.h>
#include <netinet/tcp.h>
#include <spdlog/spdlog.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace tarq::meter {
namespace {

/// Whether a connection to a port of this machine that nobody listens on took that port for its own end and so met
/// itself.
bool IsConnectedToItself(int socket) {
  sockaddr_storage own{};
  sockaddr_storage peer{};
  socklen_t ownLength = sizeof own;
  socklen_t peerLength = sizeof peer;
  return getsockname(socket, reinterpret_cast<sockaddr*>(&own), &ownLength) == 0 &&
         getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &peerLength) == 0 && ownLength == peerLength &&
         std::memcmp(&own, &peer, ownLength) == 0;
}

/// Sends what follows the first `written` bytes of the frame, as far as it goes. Returns what `sendmsg` does.
ssize_t SendRest(int socket, Frame& frame, size_t written) {
  const size_t ofHeader = std::min(written, sizeof frame.header);
  const size_t ofList = written - ofHeader;
  iovec parts[] = {{reinterpret_cast<uint8_t*>(&frame.header) + ofHeader, sizeof frame.header - ofHeader},
                   {frame.list.data() + ofList, frame.list.size() - ofList}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = std::size(parts);
  return sendmsg(socket, &message, MSG_NOSIGNAL);
}

}  // namespace

Connection::Connection(std::string label, std::vector<SocketAddress> addresses, size_t backlogBytes)
    : label_(std::move(label)), addresses_(std::move(addresses)), backlogBytes_(backlogBytes) {}

Connection::~Connection() { Close(); }

void Connection::Queue(Frame frame) {
  counters_.made.Add(1, frame.records);
  DropForRoom(frame.heldBytes());
  queuedBytes_ += frame.heldBytes();
  queue_.push_back(std::move(frame));
}

void Connection::DropForRoom(size_t bytes) {
  // A frame begun on a live connection must be finished, or the host loses its place in the stream.
  const size_t begun = written_ != 0 ? 1 : 0;
  while (queue_.size() > begun && queuedBytes_ + bytes > backlogBytes_) LoseFrame(queue_.begin() + begun);
}

void Connection::LoseFrame(std::deque<Frame>::iterator frame) {
  counters_.lost.Add(1, frame->records);
  queuedBytes_ -= frame->heldBytes();
  queue_.erase(frame);
}

pollfd Connection::Interest() const {
  const bool writes = state_ == State::kConnecting || (state_ == State::kOpen && !queue_.empty());
  return {socket_, static_cast<short>(POLLIN | (writes ? POLLOUT : 0)), 0};
}

std::optional<Clock::time_point> Connection::WakeAt() const {
  if (state_ == State::kFinishing || state_ == State::kFinished || proven_) return std::nullopt;
  return deadline_;
}

void Connection::Handle(short revents, Clock::time_point now) {
  const bool isDue = now >= deadline_;
  if (state_ == State::kWaiting && isDue) {
    Connect(now);
  } else if (state_ == State::kConnecting && revents != 0) {
    FinishConnecting(now);
  } else if (state_ == State::kConnecting && isDue) {
    Broken("no answer", now);
  } else if (revents & (POLLIN | POLLHUP | POLLERR)) {
    Read(now);
  }
  Age(now);
  if (state_ == State::kOpen) Write(now);
  FinishIfSent(now);
}

void Connection::Connect(Clock::time_point now) {
  const SocketAddress& address = addresses_[nextAddress_++ % addresses_.size()];
  socket_ = socket(address.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (socket_ < 0) return Broken(std::strerror(errno), now);
  const int on = 1;
  setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  state_ = State::kConnecting;
  deadline_ = now + kConnectTimeout;
  if (connect(socket_, reinterpret_cast<const sockaddr*>(&address.storage), address.length) == 0) {
    Connected(now);
  } else if (errno != EINPROGRESS) {
    Broken(std::strerror(errno), now);
  }
}

void Connection::FinishConnecting(Clock::time_point now) {
  int error = 0;
  socklen_t length = sizeof error;
  getsockopt(socket_, SOL_SOCKET, SO_ERROR, &error, &length);
  if (error != 0) return Broken(std::strerror(error), now);
  Connected(now);
}

void Connection::Connected(Clock::time_point now) {
  if (IsConnectedToItself(socket_)) {
    // Reset, not closed in order: that would keep the port from the host for a while.
    const linger atOnce{1, 0};
    setsockopt(socket_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    return Broken("nobody listens there", now);
  }
  state_ = State::kSettling;
  deadline_ = now + kSettleTime;
}

void Connection::Age(Clock::time_point now) {
  if (now < deadline_) return;
  if (state_ == State::kSettling) {
    state_ = State::kOpen;
    away_ = false;
    addressesTried_ = 0;
    deadline_ += kProvenAfter - kSettleTime;
  } else if (state_ == State::kOpen && !proven_) {
    Proven();
  }
}

void Connection::Proven() {
  if (proven_) return;
  proven_ = true;
  saidAway_ = false;
  pause_ = kFirstRetryPause;
  spdlog::info("{}: connected", label_);
}

void Connection::Read(Clock::time_point now) {
  // The host has nothing to say; its end of the stream is what matters.
  char ignored[256];
  const ssize_t count = recv(socket_, ignored, sizeof ignored, 0);
  if (count == 0) {
    EndedByHost(now);
  } else if (count < 0 && errno != EAGAIN && errno != EINTR) {
    Broken(std::strerror(errno), now);
  }
}

void Connection::Write(Clock::time_point now) {
  while (!queue_.empty()) {
    Frame& frame = queue_.front();
    const ssize_t count = SendRest(socket_, frame, written_);
    if (count < 0) {
      if (errno != EAGAIN && errno != EINTR) Broken(std::strerror(errno), now);
      return;
    }
    written_ += static_cast<size_t>(count);
    if (written_ < frame.wireBytes()) continue;
    counters_.sent.Add(1, frame.records);
    sentHere_.Add(1, frame.records);
    queuedBytes_ -= frame.heldBytes();
    queue_.pop_front();
    written_ = 0;
  }
}

void Connection::BeginFinish() {
  finish_ = true;
  FinishIfSent(Clock::now());
}

void Connection::FinishIfSent(Clock::time_point now) {
  if (!finish_ || !queue_.empty()) return;
  if (state_ == State::kOpen) {
    state_ = State::kFinishing;
    if (shutdown(socket_, SHUT_WR) != 0) Broken(std::strerror(errno), now);
  } else if (state_ != State::kFinishing) {
    Close();
    state_ = State::kFinished;
  }
}

void Connection::EndedByHost(Clock::time_point now) {
  if (state_ != State::kFinishing) return Broken("closed by the host", now);
  sentHere_ = {};  // It closed after us, having read to our end: all was taken.
  Proven();
  Close();
  state_ = State::kFinished;
}

void Connection::Broken(const std::string& reason, Clock::time_point now) {
  const bool neverOpened = state_ == State::kWaiting || state_ == State::kConnecting || state_ == State::kSettling;
  Close();
  state_ = State::kWaiting;
  deadline_ = now;
  if (neverOpened && ++addressesTried_ < addresses_.size()) return;  // The next one, at once.
  addressesTried_ = 0;
  const bool hasMore = !finish_ || !queue_.empty();
  if (!saidAway_) spdlog::warn("{}: {}{}", label_, reason, hasMore ? "; trying again" : "");
  saidAway_ = away_ = true;
  deadline_ = now + pause_;
  pause_ = std::min(pause_ * 2, kLongestRetryPause);
}

void Connection::Close() {
  counters_.unconfirmed.Add(sentHere_.messages, sentHere_.records);
  sentHere_ = {};
  written_ = 0;
  proven_ = false;
  if (socket_ >= 0) close(socket_);
  socket_ = -1;
}

void Connection::Abandon() {
  while (!queue_.empty()) LoseFrame(queue_.begin());
  Close();
  state_ = State::kFinished;
}

}  // namespace tarq::meter
