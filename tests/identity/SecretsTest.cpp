#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "paperloom/identity/RegistrationCoordinator.h"
#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/platform/DebugLog.h"
#include "tests/support/IdentityFixture.h"

namespace paperloom::test {
namespace {

std::string storable(int status, const std::string& body) {
  return "HTTP/1.1 " + std::to_string(status) +
         " Any\r\nCache-Control: public, max-age=3600\r\nETag: \"1\"\r\nVary: Authorization\r\n"
         "Connection: close\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\n\r\n" + body;
}

// Answers every POST, one request a connection, with the same bytes, replies that no orderly
// identity service would send, and every GET with a document that may be kept.
class OneReplyServer {
 public:
  OneReplyServer() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ::bind(listener_, reinterpret_cast<sockaddr*>(&address), size);
    ::listen(listener_, 16);
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
  ~OneReplyServer() {
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
  }

  std::optional<URL> url() const { return URL::parse("http://127.0.0.1:" + std::to_string(port_)); }
  // Set between requests only.
  std::string reply;

 private:
  void serve() {
    for (int peer = 0; (peer = ::accept(listener_, nullptr, nullptr)) >= 0; ::close(peer)) {
      std::string request;
      char bytes[4096];
      while (!isWhole(request)) {
        const auto count = ::recv(peer, bytes, sizeof bytes, 0);
        if (count <= 0) break;
        request.append(bytes, static_cast<std::size_t>(count));
      }
      const std::string answer = request.starts_with("GET") ? storable(200, "{}") : reply;
      ::send(peer, answer.data(), answer.size(), MSG_NOSIGNAL);
      ::shutdown(peer, SHUT_WR);
      while (::recv(peer, bytes, sizeof bytes, 0) > 0) {
      }
    }
  }

  static bool isWhole(const std::string& request) {
    const auto end = request.find("\r\n\r\n");
    if (end == std::string::npos) return false;
    const auto length = request.find("Content-Length: ");
    if (length == std::string::npos) return true;
    return request.size() - end - 4 >= std::stoul(request.substr(length + 16));
  }

  int listener_;
  int port_ = 0;
  std::thread thread_;
};

class Secrets : public IdentityFixture {
 protected:
  Secrets() {
    auth->setBaseURL(server.url());
    registration->setBaseURL(server.url());
    removal.setBaseURL(server.url());
    DebugLog::setListener([this](std::string_view line) { said.append(line).append("\n"); });
  }
  ~Secrets() override { DebugLog::setListener(nullptr); }

  // Makes every call of the identity side with secrets in each place; notes every text that comes
  // out of a failure.
  void callEverything() {
    using Type = AuthenticationLoginCredentialType;
    once([&](auto done) {
      auth->login("canary-identifier", "canary-password", Type::emailAndPassword, done);
    });
    once([&](auto done) { auth->refreshToken("canary-refresh-sent", done); });
    once([&](auto done) { auth->checkEntitlement("canary-access-sent", done); });
    once([&](auto done) {
      registration->registerAccount("e", "canary-new-password", "f", "l", true, done);
    });
    once([&](auto done) {
      removal.deleteEmailDetails(
          "canary-removal", "e", [done] { done(request::NetworkError{}); },
          [this, done](const PaperloomError& error) {
            said.append(error.details()).append("\n");
            done(request::NetworkError{});
          });
    });
  }

  template <class Call>
  void once(Call call) {
    auto answered = std::make_shared<std::promise<void>>();
    auto isFirst = std::make_shared<std::atomic<bool>>(true);
    call([this, answered, isFirst](const auto& result) {
      note(result);
      if (isFirst->exchange(false)) answered->set_value();
    });
    await(answered->get_future());
  }

  template <class Item>
  void note(const RequestResult<Item>& result) {
    if (const auto* error = std::get_if<request::ParsingError>(&result)) {
      said.append(error->description).append("\n");
    }
  }
  void note(request::NetworkError) {}

  OneReplyServer server;
  RegistrationCoordinator removal{std::make_shared<ContentSessionManager>(
      std::make_shared<URLCache>(1 << 20, 1 << 20, folder.path() / "url-cache"))};
  std::string said;
};

TEST_F(Secrets, appearInNoFileNoTextAndNoOutput) {
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  const std::string token =
      R"("accessToken":"canary-access","refreshToken":"canary-refresh","idToken":"canary-id")";
  const std::string replies[] = {
      storable(200, "{" + token + "}"),
      storable(201, R"({"@id":"1","token":{"expiresIn":1,"livefyreToken":"canary-comments",)"
                    R"("tokenType":"t",)" +
                        token +
                        R"(},"email":"e","firstName":"f",)"
                        R"("lastName":"l","marketingEmailOptIn":true,"marketingPhoneOptIn":true,)"
                        R"("marketingPostOptIn":true,"marketingSMSOptIn":true})"),
      storable(200, R"({"accessToken":"canary-lonely"})"),
      storable(200, "{" + token + R"(,"canary-garbage)"),
      storable(401, R"({"error":"canary-refusal"})"),
      storable(200, "{" + token + "}").substr(0, 160),
  };
  for (const std::string& reply : replies) {
    server.reply = reply;
    callEverything();
  }
  manager.reset();
  auth.reset();
  registration.reset();
  said += ::testing::internal::GetCapturedStdout() + ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(said.find("canary"), std::string::npos) << said;

  int files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
    EXPECT_EQ(entry.path().string().find("canary"), std::string::npos);
    if (!entry.is_regular_file()) continue;
    ++files;
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    const auto found = bytes.find("canary");
    EXPECT_EQ(found, std::string::npos) << entry.path() << ": " << bytes.substr(found, 40);
  }
  EXPECT_GT(files, 0) << "the entitlement is storable: without a cache this proves nothing";
}

}  // namespace
}  // namespace paperloom::test
