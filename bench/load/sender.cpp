#include "load/sender.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <system_error>
#include <thread>

namespace tarq::load {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;
constexpr std::chrono::milliseconds kTick{2};
constexpr Seconds kPeriod{10};
constexpr Seconds kBacklog{1};

int Connect(uint16_t port) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  const sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::system_error(errno, std::generic_category(), "the channel cannot be reached");
  }
  fcntl(fd, F_SETFL, O_NONBLOCK);
  return fd;
}

}  // namespace

Sender::Sender(uint16_t port) : period_(static_cast<uint64_t>(std::time(nullptr)) / 10) {
  for (Lane& lane : lanes_) lane.socket = Connect(port);
  ChangePeriod();
}

Sender::~Sender() {
  for (Lane& lane : lanes_) close(lane.socket);
}

Offered Sender::Run(double rate, Seconds time) {
  const auto start = Clock::now();
  const auto maxBacklog = static_cast<size_t>(rate * kBacklog.count() / kRecordsPerMessage / kKindCount) + 1;
  auto nextPeriod = start + kPeriod;
  Offered offered;
  for (auto now = start; now < start + time; now = Clock::now()) {
    if (now >= nextPeriod) ChangePeriod(), nextPeriod += std::chrono::duration_cast<Clock::duration>(kPeriod);
    const double due = rate * Seconds(now - start).count();
    while (static_cast<double>(offered.records + kRecordsPerMessage) <= due) Offer(maxBacklog, offered);
    for (Lane& lane : lanes_) Push(lane);
    std::this_thread::sleep_for(kTick);
  }
  const auto waits = [this] {
    return std::ranges::any_of(lanes_, [](const Lane& lane) { return !lane.backlog.empty(); });
  };
  for (const auto end = Clock::now() + kBacklog; waits() && Clock::now() < end; std::this_thread::sleep_for(kTick)) {
    for (Lane& lane : lanes_) Push(lane);
  }
  for (const Lane& lane : lanes_) offered.lost += lane.backlog.size() * kRecordsPerMessage;
  return offered;
}

void Sender::Offer(size_t maxBacklog, Offered& offered) {
  const size_t kind = turn_++ % kKindCount;
  Lane& lane = lanes_[kind];
  const auto& frames = traffic_[set_][kind].frames;
  offered.records += kRecordsPerMessage;
  if (lane.backlog.size() >= maxBacklog) {
    offered.lost += kRecordsPerMessage;
  } else {
    lane.backlog.push_back(&frames[lane.next++ % frames.size()]);
  }
}

void Sender::Push(Lane& lane) {
  while (!lane.backlog.empty()) {
    const std::string& frame = *lane.backlog.front();
    const ssize_t count = send(lane.socket, frame.data() + lane.sent, frame.size() - lane.sent, MSG_NOSIGNAL);
    if (count < 0 && errno == EAGAIN) return;
    if (count < 0) throw std::system_error(errno, std::generic_category(), "the channel broke off");
    lane.sent += static_cast<size_t>(count);
    if (lane.sent < frame.size()) return;
    lane.backlog.pop_front();
    lane.sent = 0;
  }
}

void Sender::ChangePeriod() {
  set_ = 1 - set_;
  ++period_;
  for (Frames& frames : traffic_[set_]) frames.SetPeriod(period_);
}

}  // namespace tarq::load
