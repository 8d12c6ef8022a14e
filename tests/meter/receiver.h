// A host's end of the channel: a real TCP server that takes frames apart.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cstring>
#include <future>
#include <map>

#include "meter/options.h"
#include "standin/packed_list.h"

namespace tarq::meter {

using List = std::vector<uint8_t>;
using Lists = std::map<uint32_t, std::vector<List>>;  ///< by message identifier
inline constexpr int kPatienceMs = 10'000;

struct Receiver {
  Receiver() {
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof address;
    EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    endpoint = {"127.0.0.1", ntohs(address.sin_port)};
  }
  ~Receiver() { close(listener); }

  int Accept(int waitMs = kPatienceMs) {
    pollfd ready{listener, POLLIN, 0};
    return poll(&ready, 1, waitMs) == 1 ? accept(listener, nullptr, nullptr) : -1;
  }
  Lists ReadToEnd() {
    const int socket = Accept();
    Lists read;
    wire::FrameHeader header;
    ssize_t count = 0;
    while ((count = recv(socket, &header, sizeof header, MSG_WAITALL)) == sizeof header) {
      List& list = read[header.msgId].emplace_back(header.msgLen);
      EXPECT_EQ(recv(socket, list.data(), list.size(), MSG_WAITALL), list.size());
    }
    EXPECT_EQ(count, 0);
    EXPECT_LE(read.size(), 1u) << "kinds share a connection";
    close(socket);
    return read;
  }
  /// Reads that many connections, each to its end, and then closes it. Before it is called none are taken.
  void Serve(int connections) {
    listen(listener, 16);
    while (connections-- > 0) served.push_back(std::async(std::launch::async, [this] { return ReadToEnd(); }));
  }
  void Join() {
    for (auto& one : served) lists.merge(one.get());
  }
  template <class Entry>
  std::vector<Entry> Entries() {
    std::vector<Entry> entries;
    for (const List& list : lists[wire::MsgIdOf(Entry{})]) {
      wire::ListHeader header;
      std::memcpy(&header, list.data(), sizeof header);
      const auto* first = reinterpret_cast<const Entry*>(list.data() + sizeof header);
      entries.insert(entries.end(), first, first + header.entryCount);
    }
    return entries;
  }

  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  Endpoint endpoint;
  std::vector<std::future<Lists>> served;
  Lists lists;  ///< what came, once joined
};

}  // namespace tarq::meter
