#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "paperloom/platform/URL.h"

namespace paperloom::test {

// One thing a scripted server does with a request.
struct Step {
  enum class Kind { send, wait, close, reset, hang, await, call, flood };
  Kind kind = Kind::send;
  std::string bytes{};
  std::chrono::milliseconds pause{};
  std::function<void()> function{};
};
using Script = std::vector<Step>;

// The steps, made on any thread. These send bytes as they are, wait, and end the connection in
// order or by a reset.
Step send(std::string bytes);
Step wait(std::chrono::milliseconds pause);
Step closeConnection();
Step resetConnection();
// Does nothing more until the client leaves or the server ends.
Step hang();
// Goes on when somebody calls ScriptedServer::release().
Step awaitRelease();
// Calls the function on the connection's thread.
Step call(std::function<void()> function);
// Sends these over and over, as fast as the client takes them, until it leaves.
Step flood(std::string bytes);

// A whole answer of that status with a Content-Length; `fields` are lines that end in "\r\n". Any
// thread.
Script answer(std::string_view body, std::string_view fields = "",
              std::string_view status = "200 OK");

// The script with one step more. Any thread.
Script then(Script script, Step step);

// A socket that listens on a loopback port of the kernel's choice. Any thread.
struct Listener {
  Listener();
  ~Listener();
  int accept() const;
  // Ends accept().
  void stop() const;

  int socket;
  std::string origin;  // address and port
};

// A server on a loopback port that says exactly the bytes it is told to, however wrong they are.
// Connections are kept until a script ends them. The handler runs on a thread for each connection;
// the functions may be called on any.
class ScriptedServer {
 public:
  struct Request {
    std::string method;
    std::string target;
    std::string head;  // request line and fields as received
    std::string body;
    int connection = 0;         // counted from 1
    int indexOnConnection = 0;  // from 1

    // The field's value, or "".
    std::string field(std::string_view name) const;
  };
  using Handler = std::function<Script(const Request& request)>;

  explicit ScriptedServer(Handler handler);
  // Answers every request alike.
  explicit ScriptedServer(Script script);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  // "http", its address and `target`.
  URL url(std::string_view target = "/") const;
  std::vector<Request> requests() const;
  int connections() const;
  // The most connections that were open at a time.
  int mostConnections() const;
  // Lets every awaitRelease() go on, also those to come.
  void release();

 private:
  void acceptAll();
  void serve(int socket, int connection);
  bool perform(int socket, const Step& step);

  const Handler handler_;
  Listener listener_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Request> requests_;
  std::map<int, int> open_;  // connection -> socket
  std::list<std::thread> threads_;
  int connections_ = 0;
  int mostConnections_ = 0;
  bool released_ = false;
  bool stopping_ = false;
  std::thread acceptor_;
};

// Answers with "x", but for the target /hang, which gets no answer.
Script hangingOnRequest(const ScriptedServer::Request& request);

}  // namespace paperloom::test
