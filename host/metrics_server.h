// The books over HTTP.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

struct MHD_Daemon;

namespace tarq::host {

/// Limits of the server; local processes that exhaust them keep it from others, and from nothing else.
inline constexpr unsigned kMaxHttpConnections = 16;
inline constexpr size_t kMaxHttpConnectionBytes = 32u << 10;  ///< memory of one connection, its request included
inline constexpr unsigned kHttpTimeoutSeconds = 5;            ///< without any progress

/// Serves GET and HEAD of `/metrics` and `/healthz` on 127.0.0.1 from a thread of its own.
class MetricsServer {
 public:
  /// Makes the body of `/metrics`. Called on the server's thread.
  using Metrics = std::function<std::string()>;
  /// Says what is wrong, for `/healthz`; an empty text when nothing is. Called on the server's thread.
  using Health = std::function<std::string()>;

  /// Starts on `port`, 0 for any free one. Throws `std::runtime_error` with value and remedy.
  MetricsServer(uint16_t port, Metrics metrics, Health health);
  /// Ends the thread.
  ~MetricsServer();
  MetricsServer(const MetricsServer&) = delete;
  MetricsServer& operator=(const MetricsServer&) = delete;

  uint16_t port() const;

  struct Answer {
    unsigned status;
    std::string type;  ///< media type
    std::string body;
  };
  /// Answers a request.
  Answer Respond(const std::string& method, const std::string& path) const;

 private:
  Metrics metrics_;
  Health health_;
  MHD_Daemon* daemon_;
};

}  // namespace tarq::host
