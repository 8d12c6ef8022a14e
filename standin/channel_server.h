// One channel server: a listening socket, its connections, their limits.
#pragma once

#include <netinet/in.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/channel.h"
#include "standin/event_loop.h"
#include "standin/frame_buffer.h"

namespace tarq::standin {

/// One accepted connection. Touched by the loop's thread alone; whoever takes it out of the server's table closes it.
struct Connection {
  Connection(FileDescriptor accepted, std::string peerName) : socket(std::move(accepted)), peer(std::move(peerName)) {}

  FileDescriptor socket;
  std::string peer;
  FrameBuffer buffer;
  Source source;
  size_t arrived = 0;  ///< bytes still to be taken in at the end of intake
};

/// Listens on a loopback port and hands complete frames to the receive callback on the loop's thread.
/// A connection that ends other than by the peer's orderly end after a whole frame is reset, the process's death
/// included, so that a sender that reads an end of file knows that all its frames were handed over.
class ChannelServer : public std::enable_shared_from_this<ChannelServer> {
 public:
  ChannelServer(const ChannelConfig& config, std::shared_ptr<EventLoop> loop);

  /// Starts listening on `port`, 0 for any free one. Returns 0 or an errno value; a failure has been logged.
  uint32_t Start(uint16_t port);

  /// Ends listening and closes all connections; no receive callback runs afterwards. Any thread.
  void Stop();

  /// Has the loop's thread hand over what has arrived by now and then close connections and listener.
  void StopIntake() { intakeEnd_.Raise(); }
  /// Waits for that, or for `Stop`. False when `deadline` passed first.
  bool WaitStopped(std::chrono::steady_clock::time_point deadline);

  uint16_t port() const;  ///< 0 when it does not listen

 private:
  using ConnectionPtr = std::shared_ptr<Connection>;

  uint32_t FailStart(const char* step, uint16_t port);
  uint32_t Listen(const sockaddr_in& address);
  bool WatchAll();
  bool WatchListener();
  void Accept();
  bool AcceptOne();
  void PauseAccepting();
  void ResumeAccepting();
  bool full() const;
  void Admit(FileDescriptor socket, const sockaddr_in& peer);
  void OnReadable(const ConnectionPtr& connection);
  void TakeIn(const ConnectionPtr& connection, size_t received);
  void HandOver(const MessageDescriptor& message);
  void OnEnd(const ConnectionPtr& connection, int error);
  void EndIntake();
  void BeginEndOfIntake();
  void CloseDrained(const ConnectionPtr& connection);
  bool TakeArrived(const ConnectionPtr& connection, size_t& arrived);
  void HoldWhenHeavy();
  void ReleaseWhenLight();
  void Sweep();
  void CheckHalfFrame(const ConnectionPtr& connection);

  /// Closes the connection unless it is closed already. True when this call did.
  bool Close(const ConnectionPtr& connection);
  bool IsOpen(const ConnectionPtr& connection) const;
  /// Closes with one log line that names the peer and the reason.
  void Fault(const ConnectionPtr& connection, const char* format, ...) __attribute__((format(printf, 3, 4)));
  std::vector<ConnectionPtr> connections() const;

  const ChannelConfig config_;
  const std::shared_ptr<EventLoop> loop_;
  FileDescriptor listener_;
  FileDescriptor sweepTimer_;
  Signal intakeEnd_;
  uint16_t port_ = 0;

  mutable std::mutex mutex_;
  std::condition_variable stop_;
  bool stopped_ = false;   ///< under the mutex, like the five below
  bool ending_ = false;    ///< intake takes in what had arrived when its end began, and nothing else
  Source listenerSource_;  ///< empty while accepting pauses
  Source sweepSource_;
  Source intakeEndSource_;
  std::map<const Connection*, ConnectionPtr> connections_;

  std::vector<MessageDescriptor> batch_;  ///< loop's thread alone
  std::atomic<bool> crowded_ = false;     ///< connections have to wait for others to end; noted in one log line
  std::atomic<bool> heavy_ = false;       ///< holds the loop: the module's buffers take too much memory
  bool starved_ = false;                  ///< accepting fails for want of descriptors or memory; noted in one log line
};

}  // namespace tarq::standin
