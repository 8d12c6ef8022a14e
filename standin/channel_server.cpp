#include "standin/channel_server.h"

#include <arpa/inet.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/framework.h"
#include "standin/channel_counters.h"
#include "standin/crossings.h"
#include "standin/log.h"
#include "standin/standin.h"

namespace tarq::standin {
namespace {

constexpr time_t kSweepSeconds = 1;  ///< how often half frames are looked at and accepting is tried again
constexpr int kBacklog = 1024;       ///< connections that wait for being accepted

bool IsLoopback(const in_addr& address) { return ntohl(address.s_addr) >> 24 == 127; }

std::string NameOf(const sockaddr_in& address) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
  return std::string(text) + ":" + std::to_string(ntohs(address.sin_port));
}

sockaddr_in AddressOf(const ChannelEndpoint& endpoint, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = endpoint.address;
  address.sin_port = htons(port);
  return address;
}

FileDescriptor PeriodicTimer(time_t seconds) {
  FileDescriptor timer(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
  const itimerspec schedule{.it_interval = {seconds, 0}, .it_value = {seconds, 0}};
  if (timer.valid()) timerfd_settime(timer.get(), 0, &schedule, nullptr);
  return timer;
}

/// Says whether closing the socket resets the connection: the peer then reads an error, not an end of file.
void SetResetOnClose(int socket, bool reset) {
  const linger setting{.l_onoff = reset ? 1 : 0, .l_linger = 0};
  setsockopt(socket, SOL_SOCKET, SO_LINGER, &setting, sizeof setting);
}

size_t ArrivedBytes(int socket) {
  int bytes = 0;
  return ioctl(socket, FIONREAD, &bytes) == 0 && bytes > 0 ? static_cast<size_t>(bytes) : 0;
}

}  // namespace

ChannelServer::ChannelServer(const ChannelConfig& config, std::shared_ptr<EventLoop> loop)
    : config_(config), loop_(std::move(loop)) {}

// ---- Starting and stopping ----

uint32_t ChannelServer::Start(uint16_t port) {
  const sockaddr_in address = AddressOf(config_.local, port);
  if (const uint32_t error = Listen(address); error != 0) return error;
  sweepTimer_ = PeriodicTimer(kSweepSeconds);
  sockaddr_in bound{};
  socklen_t size = sizeof bound;
  getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&bound), &size);
  std::unique_lock lock(mutex_);
  port_ = ntohs(bound.sin_port);
  if (WatchAll()) return 0;
  lock.unlock();
  const uint32_t error = FailStart("wait for connections", port);
  Stop();
  return error;
}

uint32_t ChannelServer::Listen(const sockaddr_in& address) {
  const uint16_t port = ntohs(address.sin_port);
  errno = EADDRNOTAVAIL;
  if (!IsLoopback(address.sin_addr)) return FailStart("listen", port);
  listener_ = FileDescriptor(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!listener_.valid()) return FailStart("make a socket to listen", port);
  const int reuse = 1;
  setsockopt(listener_.get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  const bool bound = bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  return bound && listen(listener_.get(), kBacklog) == 0 ? 0 : FailStart("listen", port);
}

bool ChannelServer::WatchAll() {
  sweepSource_ = loop_->Add(sweepTimer_.get(), [weak = weak_from_this()] {
    if (const auto server = weak.lock()) server->Sweep();
  });
  const auto endIntake = [weak = weak_from_this()] {
    if (const auto server = weak.lock()) server->EndIntake();
  };
  intakeEndSource_ = loop_->Add(intakeEnd_.fd(), endIntake, EventLoop::WhenHeld::kWaits);
  return sweepSource_ && intakeEndSource_ && WatchListener();
}

uint32_t ChannelServer::FailStart(const char* step, uint16_t port) {
  const uint32_t error = errno != 0 ? errno : EIO;
  Log(kLogFailure, "[channel] cannot %s on %s: %s", step, NameOf(AddressOf(config_.local, port)).c_str(),
      std::strerror(static_cast<int>(error)));
  return error;
}

bool ChannelServer::WatchListener() {
  listenerSource_ = loop_->Add(listener_.get(), [weak = weak_from_this()] {
    if (const auto server = weak.lock()) server->Accept();
  });
  return static_cast<bool>(listenerSource_);
}

void ChannelServer::Stop() {
  Source listener, sweep, intakeEnd;  // given up without the lock: their callbacks, which are waited for, may need it
  {
    std::lock_guard lock(mutex_);
    stopped_ = true;
    listener.swap(listenerSource_);
    sweep.swap(sweepSource_);
    intakeEnd.swap(intakeEndSource_);
  }
  listener = {};
  sweep = {};
  intakeEnd = {};
  shutdown(listener_.get(), SHUT_RDWR);  // the port refuses at once, whoever still holds this server
  for (const auto& connection : connections()) Close(connection);
  if (heavy_.exchange(false)) loop_->Release();
  stop_.notify_all();
}

bool ChannelServer::WaitStopped(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  return stop_.wait_until(lock, deadline, [this] { return stopped_; });
}

/// Runs again after the loop was held, until all is taken in.
void ChannelServer::EndIntake() {
  BeginEndOfIntake();
  for (const auto& connection : connections()) {
    if (!TakeArrived(connection, connection->arrived)) return;
    CloseDrained(connection);
  }
  Stop();
}

void ChannelServer::BeginEndOfIntake() {
  Source listener;
  {
    std::lock_guard lock(mutex_);
    if (std::exchange(ending_, true)) return;
    listener.swap(listenerSource_);
  }
  for (int i = 0; i < kBacklog && !full() && AcceptOne(); ++i) {
  }
  for (const auto& connection : connections()) {
    connection->source = {};
    connection->arrived = ArrivedBytes(connection->socket.get());
  }
}

void ChannelServer::CloseDrained(const ConnectionPtr& connection) {
  const int socket = connection->socket.get();
  uint8_t next;
  const size_t half = connection->buffer.halfFrame();
  if (half == 0 && recv(socket, &next, sizeof next, MSG_PEEK) == 0) SetResetOnClose(socket, false);
  if (!Close(connection) || half == 0) return;
  Log(kLogNote, "[channel] %s: stopped in the middle of a frame, %zu bytes dropped", connection->peer.c_str(), half);
}

/// Takes in that many bytes, as far as there are so many. False when the loop is held before that.
bool ChannelServer::TakeArrived(const ConnectionPtr& connection, size_t& arrived) {
  while (arrived > 0 && IsOpen(connection)) {
    if (loop_->held()) return false;
    const auto room = connection->buffer.Room();
    const ssize_t received =
        room.empty() ? 0 : recv(connection->socket.get(), room.data(), std::min(room.size(), arrived), 0);
    if (received <= 0) break;
    arrived -= static_cast<size_t>(received);
    TakeIn(connection, static_cast<size_t>(received));
  }
  return true;
}

/// The queue's own limit counts messages; this one counts bytes.
void ChannelServer::HoldWhenHeavy() {
  if (BufferBytesInUse() <= kMaxBufferBytes || heavy_.exchange(true)) return;
  Log(kLogNote, "[channel] nothing is read: the messages that wait take more than %llu bytes",
      static_cast<unsigned long long>(kMaxBufferBytes));
  loop_->Hold();
}

void ChannelServer::ReleaseWhenLight() {
  if (heavy_ && BufferBytesInUse() <= kMaxBufferBytes / 2 && heavy_.exchange(false)) loop_->Release();
}

uint16_t ChannelServer::port() const {
  std::lock_guard lock(mutex_);
  return stopped_ ? 0 : port_;
}

// ---- Accepting ----

void ChannelServer::Accept() {
  if (!full()) {
    if (AcceptOne() || errno == EAGAIN || errno == ECONNABORTED || errno == EINTR) return;
    if (!std::exchange(starved_, true)) {
      Log(kLogFailure, "[channel] cannot accept a connection: %s; trying again every second", std::strerror(errno));
    }
  } else if (!crowded_.exchange(true)) {
    Log(kLogFailure, "[channel] %u connections are open, more have to wait until one of them ends", kMaxConnections);
  }
  PauseAccepting();
}

bool ChannelServer::AcceptOne() {
  sockaddr_in peer{};
  socklen_t size = sizeof peer;
  FileDescriptor accepted(
      accept4(listener_.get(), reinterpret_cast<sockaddr*>(&peer), &size, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!accepted.valid()) return false;
  starved_ = false;
  Admit(std::move(accepted), peer);
  return true;
}

/// What waits in the backlog would wake the loop over and over.
void ChannelServer::PauseAccepting() {
  Source listener;
  std::lock_guard lock(mutex_);
  listener.swap(listenerSource_);
}

void ChannelServer::ResumeAccepting() {
  std::lock_guard lock(mutex_);
  if (!stopped_ && !ending_ && !listenerSource_ && connections_.size() < kMaxConnections) WatchListener();
}

bool ChannelServer::full() const {
  std::lock_guard lock(mutex_);
  return connections_.size() >= kMaxConnections;
}

void ChannelServer::Admit(FileDescriptor socket, const sockaddr_in& peer) {
  SetResetOnClose(socket.get(), true);
  const auto connection = std::make_shared<Connection>(std::move(socket), NameOf(peer));
  if (!IsLoopback(peer.sin_addr)) {
    Totals().Add(&ChannelCounters::connectionsRefused);
    return Log(kLogFailure, "[channel] %s: refused, not on this machine", connection->peer.c_str());
  }
  std::unique_lock lock(mutex_);
  if (stopped_) return;
  connections_.emplace(connection.get(), connection);
  const auto onReadable = [weak = weak_from_this(), link = std::weak_ptr(connection)] {
    const auto server = weak.lock();
    const auto live = link.lock();
    if (server != nullptr && live != nullptr) server->OnReadable(live);
  };
  connection->source = loop_->Add(connection->socket.get(), onReadable, EventLoop::WhenHeld::kWaits);
  lock.unlock();
  Totals().Add(&ChannelCounters::connectionsAccepted);
  if (!connection->source) Fault(connection, "it cannot be waited for");
}

// ---- Receiving ----

void ChannelServer::OnReadable(const ConnectionPtr& connection) {
  const auto room = connection->buffer.Room();
  if (room.empty()) return Fault(connection, "no memory for its read buffer");
  const ssize_t received = recv(connection->socket.get(), room.data(), room.size(), 0);
  if (received > 0) return TakeIn(connection, static_cast<size_t>(received));
  OnEnd(connection, received == 0 ? 0 : errno);
}

void ChannelServer::TakeIn(const ConnectionPtr& connection, size_t received) {
  batch_.clear();
  const auto excess = connection->buffer.Parse(received, std::chrono::steady_clock::now(), batch_);
  for (const MessageDescriptor& message : batch_) HandOver(message);
  connection->buffer.Compact();
  HoldWhenHeavy();
  if (excess) Fault(connection, "a frame of %u bytes exceeds the limit of %u", *excess, wire::kMaxMessageLength);
}

/// Messages go one by one: a receiver may drop what comes in one batch behind a message that it does not want.
void ChannelServer::HandOver(const MessageDescriptor& message) {
  const Crossings& now = ThisThreadsCrossings();
  const Crossings before = now;
  Totals().AddReceived(message);
  config_.onReceive(nullptr, &message, 1);
  Totals().Add(message, now.elementsWritten > before.elementsWritten   ? &MessageOutcomes::queued
                        : now.elementsRefused > before.elementsRefused ? &MessageOutcomes::refused
                        : now.failureLines > before.failureLines       ? &MessageOutcomes::failed
                                                                       : &MessageOutcomes::unwanted);
}

void ChannelServer::OnEnd(const ConnectionPtr& connection, int error) {
  if (error == EAGAIN || error == EINTR) return;
  const size_t half = connection->buffer.halfFrame();
  if (half > 0) return Fault(connection, "ended in the middle of a frame, %zu bytes dropped", half);
  if (error != 0 && error != ECONNRESET) return Fault(connection, "%s", std::strerror(error));
  if (error == 0) SetResetOnClose(connection->socket.get(), false);
  Close(connection);
}

// ---- Limits and closing ----

void ChannelServer::Sweep() {
  uint64_t expirations;
  if (read(sweepTimer_.get(), &expirations, sizeof expirations) < 0) return;
  ReleaseWhenLight();
  if (!loop_->held()) {  // a held connection is not at fault for what is not read
    for (const auto& connection : connections()) CheckHalfFrame(connection);
  }
  ResumeAccepting();
}

void ChannelServer::CheckHalfFrame(const ConnectionPtr& connection) {
  FrameBuffer& buffer = connection->buffer;
  buffer.Shrink();
  const auto late = [&buffer] {
    return buffer.halfFrame() > 0 && std::chrono::steady_clock::now() - buffer.halfSince() >= kHalfFrameTimeout;
  };
  if (!late()) return;
  size_t arrived = ArrivedBytes(connection->socket.get());
  if (!TakeArrived(connection, arrived) || !late()) return;  // a late loop may not have seen the rest yet
  Fault(connection, "a frame was not complete after %lld s, %zu bytes dropped",
        static_cast<long long>(kHalfFrameTimeout.count()), buffer.halfFrame());
}

bool ChannelServer::Close(const ConnectionPtr& connection) {
  {
    std::lock_guard lock(mutex_);
    if (connections_.erase(connection.get()) == 0) return false;
  }
  connection->source = {};
  crowded_ = false;
  ResumeAccepting();
  return true;
}

bool ChannelServer::IsOpen(const ConnectionPtr& connection) const {
  std::lock_guard lock(mutex_);
  return !stopped_ && connections_.contains(connection.get());
}

void ChannelServer::Fault(const ConnectionPtr& connection, const char* format, ...) {
  if (!Close(connection)) return;
  char reason[160];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(reason, sizeof reason, format, arguments);
  va_end(arguments);
  Totals().Add(&ChannelCounters::connectionsFaulted);
  Log(kLogFailure, "[channel] %s: closed, %s", connection->peer.c_str(), reason);
}

std::vector<ChannelServer::ConnectionPtr> ChannelServer::connections() const {
  std::lock_guard lock(mutex_);
  std::vector<ConnectionPtr> all;
  for (const auto& [key, connection] : connections_) all.push_back(connection);
  return all;
}

}  // namespace tarq::standin
