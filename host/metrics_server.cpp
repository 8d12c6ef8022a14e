#include "host/metrics_server.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <microhttpd.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace tarq::host {
namespace {

constexpr const char* kPlainText = "text/plain; charset=utf-8";
constexpr const char* kExposition = "text/plain; version=0.0.4; charset=utf-8";

MHD_Result OnRequest(void* server, MHD_Connection* connection, const char* url, const char* method, const char*,
                     const char*, size_t* uploadSize, void** seen) try {
  if (*seen == nullptr) {  // only the head of the request is here
    *seen = server;
    return MHD_YES;
  }
  if (*uploadSize > 0) {  // nothing here takes a body
    *uploadSize = 0;
    return MHD_YES;
  }
  auto answer = static_cast<const MetricsServer*>(server)->Respond(method, url);
  MHD_Response* response =
      MHD_create_response_from_buffer(answer.body.size(), answer.body.data(), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) return MHD_NO;
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.type.c_str());
  if (answer.status == MHD_HTTP_METHOD_NOT_ALLOWED)
    MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
  MHD_Result queued = MHD_queue_response(connection, answer.status, response);
  MHD_destroy_response(response);
  return queued;
} catch (const std::exception&) {  // no memory: the connection is closed
  return MHD_NO;
}

}  // namespace

MetricsServer::MetricsServer(uint16_t port, Metrics metrics, Health health)
    : metrics_(std::move(metrics)), health_(std::move(health)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  errno = 0;
  daemon_ =
      MHD_start_daemon(MHD_USE_AUTO_INTERNAL_THREAD, port, nullptr, nullptr, OnRequest, this, MHD_OPTION_SOCK_ADDR,
                       &address, MHD_OPTION_CONNECTION_LIMIT, kMaxHttpConnections, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
                       kMaxHttpConnectionBytes, MHD_OPTION_CONNECTION_TIMEOUT, kHttpTimeoutSeconds, MHD_OPTION_END);
  if (daemon_ == nullptr) {
    throw std::runtime_error(fmt::format("metrics cannot be served on port {} of 127.0.0.1: {}; take another --metrics",
                                         port, std::strerror(errno)));
  }
}

MetricsServer::~MetricsServer() { MHD_stop_daemon(daemon_); }

uint16_t MetricsServer::port() const {
  const MHD_DaemonInfo* info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT);
  return info == nullptr ? 0 : info->port;
}

MetricsServer::Answer MetricsServer::Respond(const std::string& method, const std::string& path) const {
  if (path != "/metrics" && path != "/healthz") {
    return {MHD_HTTP_NOT_FOUND, kPlainText, "there are /metrics and /healthz\n"};
  }
  if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD) {
    return {MHD_HTTP_METHOD_NOT_ALLOWED, kPlainText, "only GET and HEAD\n"};
  }
  if (path == "/metrics") return {MHD_HTTP_OK, kExposition, metrics_()};
  std::string wrong = health_();
  if (wrong.empty()) return {MHD_HTTP_OK, kPlainText, "ok\n"};
  return {MHD_HTTP_SERVICE_UNAVAILABLE, kPlainText, wrong};
}

}  // namespace tarq::host
