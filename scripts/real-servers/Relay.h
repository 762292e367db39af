#pragma once

#include <atomic>
#include <list>
#include <string>
#include <thread>

#include "paperloom/testing/ScriptedServer.h"

namespace paperloom::servers {

// A connection to a loopback port, or a negative number.
int connectTo(int port);

// Carries bytes between its clients and a loopback port, and counts the connections.
class Relay {
 public:
  explicit Relay(int port);
  ~Relay();
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  const std::string& origin() const { return listener_.origin; }
  int connections() const { return connections_; }
  // From here on the present connections stay open, and all that is sent over them is lost.
  void swallow() { swallowedUpTo_ = connections_.load(); }

 private:
  void acceptAll();
  void carry(int client, int number);
  bool move(int from, int to, int number) const;

  const int port_;
  test::Listener listener_;
  std::atomic<int> connections_ = 0;
  std::atomic<int> swallowedUpTo_ = 0;
  std::atomic<bool> stopping_ = false;
  std::list<std::thread> carriers_;
  std::thread acceptor_;
};

}  // namespace paperloom::servers
