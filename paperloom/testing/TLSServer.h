#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "paperloom/testing/ScriptedServer.h"

struct ssl_st;

namespace paperloom::test {

// An https server on a loopback port that gives every request the same bytes, behind a certificate
// made for the occasion. One connection at a time. Any thread.
class TLSServer {
 public:
  // What follows an answer: the end of the connection, or something that nobody has asked for.
  enum class Afterwards { close, sendTicket, sendAnswer };
  struct Options {
    std::string answer{};
    std::string subject = "IP:127.0.0.1";  // the subjectAltName of the certificate
    int firstDay = -30;                    // of its validity, from today
    int lastDay = 1;
    bool selfSigned = false;      // nobody else vouches for it
    bool sendsAuthority = false;  // beside its own certificate
    bool onlyTLS11 = false;
    Afterwards afterwards = Afterwards::close;
  };
  explicit TLSServer(const Options& options);
  ~TLSServer();
  TLSServer(const TLSServer&) = delete;
  TLSServer& operator=(const TLSServer&) = delete;

  URL url() const { return *URL::parse("https://" + listener_.origin + "/"); }
  // Writes the certificate that vouches for the server's, in PEM.
  void writeAuthority(const std::filesystem::path& file) const;
  // The server's public key as it is pinned.
  std::string publicKey() const;
  // How many requests came through the handshake.
  int requests() const { return requests_; }
  int connections() const { return connections_; }
  // To how many of them everything has been sent.
  int answered() const { return answered_; }

 private:
  struct Secrets;
  void serve();

  void answer(ssl_st* tls);

  const std::string answer_;
  const Afterwards afterwards_;
  std::unique_ptr<Secrets> secrets_;
  Listener listener_;
  std::atomic<int> requests_ = 0;
  std::atomic<int> connections_ = 0;
  std::atomic<int> answered_ = 0;
  std::thread thread_;
};

}  // namespace paperloom::test
