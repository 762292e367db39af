#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

#include "paperloom/identity/RegistrationCoordinator.h"
#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/platform/DebugLog.h"
#include "paperloom/testing/ScriptedServer.h"
#include "tests/support/IdentityFixture.h"

namespace paperloom::test {
namespace {

// Answers that no orderly identity service would give: they may be kept, by any cache.
constexpr std::string_view storable =
    "Cache-Control: public, max-age=3600\r\nETag: \"1\"\r\nVary: Authorization\r\n"
    "Content-Location: #\r\n";

class SecretsTest : public IdentityFixture {
 protected:
  SecretsTest() {
    auth->setBaseURL(server.url(""));
    registration->setBaseURL(server.url(""));
    removal.setBaseURL(server.url(""));
    DebugLog::setListener([this](std::string_view line) { say(line); });
  }
  ~SecretsTest() override { DebugLog::setListener(nullptr); }

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
            say(error.details());
            done(request::NetworkError{});
          });
    });
  }

  template <class Call>
  void once(Call call) {
    captured<int>([&](auto done) {
      call([this, done](const auto& result) {
        this->note(result);
        done(0);
      });
    });
  }

  template <class Item>
  void note(const RequestResult<Item>& result) {
    if (const auto* error = std::get_if<request::ParsingError>(&result)) {
      say(error->description);
    }
  }
  void note(request::NetworkError) {}

  void say(std::string_view text) {
    const std::lock_guard lock(mutex);
    said.append(text).append("\n");
  }

  void setPostAnswer(const Script& script) {
    const std::lock_guard lock(mutex);
    postAnswer = script;
  }

  std::mutex mutex;  // guards the next two
  std::string said;
  Script postAnswer;
  // The one GET, for the entitlement, is answered without secrets.
  ScriptedServer server{[this](const ScriptedServer::Request& request) {
    const std::lock_guard lock(mutex);
    return request.method == "GET" ? answer("{}", storable) : postAnswer;
  }};
  RegistrationCoordinator removal{std::make_shared<ContentSessionManager>(
      std::make_shared<URLCache>(1 << 20, 1 << 20, folder.path() / "url-cache"))};
};

TEST_F(SecretsTest, appearInNoFileNoTextAndNoOutput) {
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  const std::string token =
      R"("accessToken":"canary-access","refreshToken":"canary-refresh","idToken":"canary-id")";
  const std::string registered =
      R"({"@id":"1","token":{"expiresIn":1,"livefyreToken":"canary-comments","tokenType":"t",)" +
      token +
      R"(},"email":"e","firstName":"f","lastName":"l","marketingEmailOptIn":true,)"
      R"("marketingPhoneOptIn":true,"marketingPostOptIn":true,"marketingSMSOptIn":true})";
  const Script answers[] = {
      answer("{" + token + "}", storable),
      answer(registered, storable, "201 Created"),
      answer(R"({"accessToken":"canary-lonely"})", storable),
      answer("{" + token + R"(,"canary-garbage)", storable),
      answer(R"({"error":"canary-refusal"})", storable, "401 Unauthorized"),
      {send("HTTP/1.1 200 OK\r\nContent-Length: 999\r\n\r\n{" + token), closeConnection()},
      {send("HTTP/1.1 canary-status\r\n\r\n"), closeConnection()},
  };
  for (const Script& given : answers) {
    setPostAnswer(given);
    callEverything();
  }
  manager.reset();
  auth.reset();
  registration.reset();
  said += ::testing::internal::GetCapturedStdout() + ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(said.find("canary"), std::string::npos) << said;

  bool keptTheEntitlement = false;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
    EXPECT_EQ(entry.path().string().find("canary"), std::string::npos);
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    keptTheEntitlement |= bytes.find("/entitlement") != std::string::npos;
    const auto found = bytes.find("canary");
    EXPECT_EQ(found, std::string::npos) << entry.path() << ": " << bytes.substr(found, 40);
  }
  EXPECT_TRUE(keptTheEntitlement) << "it may be kept: without a cache this proves nothing";
}

TEST_F(SecretsTest, andTheAnswersToThemStayAtTheOriginOfTheService) {
  ScriptedServer elsewhere(answer(R"({"accessToken":"a","refreshToken":"r","idToken":"i"})"));
  const std::string location = "Location: " + elsewhere.url().absoluteString() + "\r\n";
  for (const char* status : {"301", "302", "303", "307", "308"}) {
    ScriptedServer moved(answer("", location, std::string(status) + " Moved"));
    auth->setBaseURL(moved.url(""));
    const auto statusOf = [](const auto& result) {
      const auto* failed = std::get_if<request::FailedStatusCode>(&result);
      return failed == nullptr ? "none" : std::to_string(failed->statusCode);
    };
    const auto login = captured<RequestResult<Authorisation>>([&](auto done) {
      auth->login("canary", "canary", AuthenticationLoginCredentialType::kxNumber, done);
    });
    EXPECT_EQ(statusOf(login), status);
    const auto check = captured<RequestResult<Entitlement>>(
        [&](auto done) { auth->checkEntitlement("canary", done); });
    EXPECT_EQ(statusOf(check), status);
  }
  EXPECT_TRUE(elsewhere.requests().empty());
}

}  // namespace
}  // namespace paperloom::test
