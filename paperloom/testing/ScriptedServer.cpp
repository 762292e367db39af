#include "paperloom/testing/ScriptedServer.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "paperloom/platform/HTTPHeaders.h"

namespace paperloom::test {

Step send(std::string bytes) { return {Step::Kind::send, std::move(bytes), {}, {}}; }
Step wait(std::chrono::milliseconds pause) { return {Step::Kind::wait, {}, pause, {}}; }
Step closeConnection() { return {Step::Kind::close, {}, {}, {}}; }
Step resetConnection() { return {Step::Kind::reset, {}, {}, {}}; }
Step hang() { return {Step::Kind::hang, {}, {}, {}}; }
Step call(std::function<void()> function) {
  return {Step::Kind::call, {}, {}, std::move(function)};
}
Step flood(std::string bytes) { return {Step::Kind::flood, std::move(bytes), {}, {}}; }
Step awaitRelease() { return {Step::Kind::await, {}, {}, {}}; }

Script answer(std::string_view body, std::string_view fields, std::string_view status) {
  std::string bytes = "HTTP/1.1 ";
  bytes.append(status).append("\r\n").append(fields);
  bytes.append("Content-Length: " + std::to_string(body.size()) + "\r\n\r\n").append(body);
  return {send(std::move(bytes))};
}

Script then(Script script, Step step) {
  script.push_back(std::move(step));
  return script;
}

Script hangingOnRequest(const ScriptedServer::Request& request) {
  if (request.target == "/hang") return {hang()};
  return answer("x");
}

std::string ScriptedServer::Request::field(std::string_view name) const {
  std::size_t at = head.find("\r\n");
  while (at != std::string::npos) {
    const std::size_t end = head.find("\r\n", at + 2);
    const std::string line = head.substr(at + 2, end - at - 2);
    const std::size_t colon = line.find(':');
    if (colon != std::string::npos && equalsIgnoringCase(line.substr(0, colon), name)) {
      return line.size() > colon + 2 ? line.substr(colon + 2) : "";
    }
    at = end;
  }
  return "";
}

Listener::Listener() : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(socket, generic, size) != 0 || listen(socket, 128) != 0 ||
      getsockname(socket, generic, &size) != 0) {
    throw std::runtime_error("no loopback port");
  }
  origin = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
}

Listener::~Listener() { ::close(socket); }

int Listener::accept() const {
  const int accepted = accept4(socket, nullptr, nullptr, SOCK_CLOEXEC);
  const int atOnce = 1;  // what is sent is there, whatever was sent before it
  if (accepted >= 0) setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &atOnce, sizeof atOnce);
  return accepted;
}

void Listener::stop() const { ::shutdown(socket, SHUT_RDWR); }

ScriptedServer::ScriptedServer(Script script)
    : ScriptedServer([script = std::move(script)](const Request&) { return script; }) {}

ScriptedServer::ScriptedServer(Handler handler) : handler_(std::move(handler)) {
  acceptor_ = std::thread([this] { acceptAll(); });
}

ScriptedServer::~ScriptedServer() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    for (const auto& [connection, socket] : open_) ::shutdown(socket, SHUT_RDWR);
  }
  changed_.notify_all();
  listener_.stop();
  acceptor_.join();
  for (std::thread& thread : threads_) thread.join();
}

URL ScriptedServer::url(std::string_view target) const {
  return *URL::parse("http://" + listener_.origin + std::string(target));
}

std::vector<ScriptedServer::Request> ScriptedServer::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

int ScriptedServer::connections() const {
  const std::lock_guard lock(mutex_);
  return connections_;
}

int ScriptedServer::mostConnections() const {
  const std::lock_guard lock(mutex_);
  return mostConnections_;
}

void ScriptedServer::release() {
  const std::lock_guard lock(mutex_);
  released_ = true;
  changed_.notify_all();
}

void ScriptedServer::acceptAll() {
  while (true) {
    const int socket = listener_.accept();
    if (socket < 0) return;
    const std::lock_guard lock(mutex_);
    const int connection = ++connections_;
    open_[connection] = socket;
    mostConnections_ = std::max(mostConnections_, static_cast<int>(open_.size()));
    if (stopping_) ::shutdown(socket, SHUT_RDWR);
    threads_.emplace_back([this, socket, connection] { serve(socket, connection); });
  }
}

void ScriptedServer::serve(int socket, int connection) {
  std::string input;
  char buffer[16 * 1024];
  const auto readMore = [&] {
    const ssize_t count = recv(socket, buffer, sizeof buffer, 0);
    if (count > 0) input.append(buffer, static_cast<std::size_t>(count));
    return count > 0;
  };
  bool open = true;
  for (int index = 1; open; ++index) {
    std::size_t end = std::string::npos;
    while ((end = input.find("\r\n\r\n")) == std::string::npos && (open = readMore())) {
    }
    if (!open) break;
    Request request;
    request.head = input.substr(0, end + 2);
    input.erase(0, end + 4);
    request.method = request.head.substr(0, request.head.find(' '));
    const auto target = request.method.size() + 1;
    request.target = request.head.substr(target, request.head.find(' ', target) - target);
    const auto length = std::strtoul(request.field("Content-Length").c_str(), nullptr, 10);
    while (input.size() < length && (open = readMore())) {
    }
    request.body = input.substr(0, length);
    input.erase(0, length);
    request.connection = connection;
    request.indexOnConnection = index;
    {
      const std::lock_guard lock(mutex_);
      requests_.push_back(request);
    }
    const Script script = handler_(request);
    open = std::all_of(script.begin(), script.end(),
                       [&](const Step& step) { return perform(socket, step); });
  }
  const std::lock_guard lock(mutex_);
  open_.erase(connection);
  ::close(socket);
}

bool ScriptedServer::perform(int socket, const Step& step) {
  const auto until = [&](auto condition, std::chrono::milliseconds longest) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, longest, [&] { return stopping_ || condition(); });
    return !stopping_;
  };
  const auto sendAll = [&](std::string_view left) {
    while (!left.empty()) {
      const ssize_t sent = ::send(socket, left.data(), left.size(), MSG_NOSIGNAL);
      if (sent <= 0) return false;
      left.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
  };
  switch (step.kind) {
    case Step::Kind::send:
      return sendAll(step.bytes);
    case Step::Kind::flood: {
      std::string many;
      while (many.size() < 64 * 1024) many += step.bytes;
      while (sendAll(many)) {
      }
      return false;
    }
    case Step::Kind::wait:
      return until([] { return false; }, step.pause);
    case Step::Kind::await:
      return until([this] { return released_; }, std::chrono::seconds(30));
    case Step::Kind::hang: {
      char ignored[1024];
      while (recv(socket, ignored, sizeof ignored, 0) > 0) {
      }
      return false;
    }
    case Step::Kind::reset: {
      const linger abrupt{1, 0};
      setsockopt(socket, SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
      return false;
    }
    case Step::Kind::call:
      step.function();
      return true;
    case Step::Kind::close:
      return false;
  }
  return false;
}

}  // namespace paperloom::test
