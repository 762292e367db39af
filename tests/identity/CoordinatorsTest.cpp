#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "paperloom/Version.h"
#include "paperloom/identity/RegistrationCoordinator.h"
#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/network/internal/ClampedTaskCounter.h"
#include "paperloom/platform/DebugLog.h"
#include "paperloom/platform/NetworkActivityIndicator.h"
#include "paperloom/testing/ScriptedServer.h"
#include "tests/support/IdentityAnswers.h"
#include "tests/support/IdentityFixture.h"

namespace paperloom::test {
namespace {

constexpr auto email = AuthenticationLoginCredentialType::emailAndPassword;
constexpr std::string_view missingTokens =
    "parsing failed with error parsingFailed(details: \"Content Authorisation missing one or more "
    "tokens\")";

class CoordinatorsTest : public IdentityFixture {
 protected:
  using Call = std::function<void(AuthDataCoordinator&, Answers&)>;

  // Every call of the completion, in order: the session is drained by its end.
  Lines outcomes(const Call& call) {
    Answers answers;
    {
      AuthDataCoordinator coordinator(std::make_shared<AuthSessionManager>(configuration("")));
      coordinator.setBaseURL(auth->baseURL());
      call(coordinator, answers);
      answers.waitForFirst();
    }
    return answers.take();
  }

  static Call loginAs(std::string identifier, std::string authKey = "key") {
    return [=](AuthDataCoordinator& coordinator, Answers& answers) {
      coordinator.login(identifier, authKey, email, std::ref(answers));
    };
  }
  static Call refreshWith(std::string token) {
    return [=](AuthDataCoordinator& coordinator, Answers& answers) {
      coordinator.refreshToken(token, std::ref(answers));
    };
  }
  static Call checkWith(std::string token) {
    return [=](AuthDataCoordinator& coordinator, Answers& answers) {
      coordinator.checkEntitlement(token, std::ref(answers));
    };
  }
};

TEST_F(CoordinatorsTest, loginAndRefreshReportWhatTheServiceAnswers) {
  const std::pair<std::string, Lines> rows[] = {
      {"answer-202", {std::string(missingTokens)}},
      {"cut", {"network", "no data was returned"}},
      {"unknown", {"status 401"}},
      {"no UTF-8: \xff", {"internal"}},
  };
  for (const auto& [name, lines] : rows) {
    EXPECT_EQ(outcomes(loginAs(name)), lines) << name;
    EXPECT_EQ(outcomes(refreshWith(name)), lines) << name;
  }
  EXPECT_EQ(outcomes(loginAs("premium@lantern.example", "lighthouse-7")), Lines{"success"});
}

// A session manager of a host's own.
struct OneAnswer final : AuthSessionManagerProtocol {
  explicit OneAnswer(RequestResult<Nothing> given) : answer(std::move(given)) {}
  void getRequest(const URL&, const std::map<std::string, std::string>&,
                  std::function<void(RequestResult<Nothing>)> completion) override {
    completion(answer);
  }
  void postData(Data, const URL&, ErasedParser, ErasedCompletion) override {}
  RequestResult<Nothing> answer;
};

TEST(EntitlementTest, isDecidedByTheStatusAlone) {
  const auto check = [](RequestResult<Nothing> given) {
    AuthDataCoordinator coordinator(std::make_shared<OneAnswer>(std::move(given)));
    coordinator.setBaseURL(URL::parse("http://127.0.0.1:1"));
    Answers answers;
    coordinator.checkEntitlement("token", std::ref(answers));
    return answers.take();
  };
  using request::FailedStatusCode;
  const std::pair<RequestResult<Nothing>, std::string> rows[] = {
      {request::Success<Nothing>{}, "premium"}, {FailedStatusCode{403}, "not premium"},
      {FailedStatusCode{401}, "status 401"},    {FailedStatusCode{204}, "status 204"},
      {request::NetworkError{}, "network"},     {request::InternalError{}, "internal"},
  };
  for (const auto& [given, line] : rows) EXPECT_EQ(check(given), Lines{line}) << line;
  EXPECT_DEATH(check(request::ParsingError{}), "should not parse");
}

TEST_F(CoordinatorsTest, aTokenThatIsNoFieldValueIsNotSent) {
  for (const char* token : {"a\r\nX-More: 1", "a\nb", "a\x7f"}) {
    EXPECT_EQ(outcomes(checkWith(token)), Lines{"network"});
  }
  EXPECT_TRUE(service->requests().empty());  // refused before anything was sent
}

TEST_F(CoordinatorsTest, aMissingBaseURLIsAnInternalErrorOrSilence) {
  auth->setBaseURL(std::nullopt);
  Answers answers;
  auth->login("premium@lantern.example", "lighthouse-7", email, std::ref(answers));
  auth->refreshToken("token", std::ref(answers));
  registration->setBaseURL(std::nullopt);
  registration->registerAccount("e", "k", "f", "l", true, std::ref(answers));
  auth->checkEntitlement("token", std::ref(answers));
  EXPECT_EQ(answers.take(), (Lines{"internal", "internal", "internal"}));
  EXPECT_EQ(manager->taskCount(), 0);
}

TEST_F(CoordinatorsTest, eachRequestIsTheseBytes) {
  ScriptedServer server(answer("{}"));
  auth->setBaseURL(server.url("/base"));
  registration->setBaseURL(server.url("/base/"));
  RegistrationCoordinator removal(std::make_shared<ContentSessionManager>(
      std::make_shared<URLCache>(1 << 20, 1 << 20, folder.path() / "url-cache")));
  removal.setBaseURL(server.url("/base"));
  Answers answers;
  const auto done = [&](const auto&...) { answers.add("done"); };
  const auto enrol = [&](bool optIn) {
    registration->registerAccount("email", "authKey", "firstName", "lastName", optIn, done);
  };
  using Type = AuthenticationLoginCredentialType;
  const struct {
    std::function<void()> call;
    std::string path;
    std::string body;
  } rows[] = {
      {[&] { auth->login("identi\"fier\u00e9", "auth/Key", Type::emailAndPassword, done); },
       "token",
       "{\n  \"identifier\": \"identi\\\"fier\u00e9\",\n  \"authKey\": \"auth/Key\",\n"
       "  \"credentialType\": \"EMAIL_PASSWORD\"\n}"},
      {[&] { auth->login("identifier", "authKey", Type::kxNumber, done); }, "token",
       "{\n  \"identifier\": \"identifier\",\n  \"authKey\": \"authKey\",\n"
       "  \"credentialType\": \"KX_NUMBER\"\n}"},
      {[&] { auth->refreshToken("token", done); }, "refreshToken",
       "{\n  \"refreshToken\": \"token\"\n}"},
      {[&] { enrol(true); }, "register/account",
       "{\n  \"email\": \"email\",\n  \"firstName\": \"firstName\",\n  \"lastName\": "
       "\"lastName\",\n"
       "  \"authKey\": \"authKey\",\n  \"marketingEmailOptIn\": true\n}"},
      {[&] { enrol(false); }, "register/account",
       "{\n  \"email\": \"email\",\n  \"firstName\": \"firstName\",\n  \"lastName\": "
       "\"lastName\",\n"
       "  \"authKey\": \"authKey\",\n  \"marketingEmailOptIn\": false\n}"},
      {[&] { removal.deleteEmailDetails("token", "email", done, done); }, "delete/email",
       "{\n  \"email\": \"email\",\n  \"token\": \"token\"\n}"},
      {[&] { removal.deleteFacebookDetails("token", done, done); }, "delete/facebook",
       "{\n  \"token\": \"token\"\n}"},
      {[&] { removal.deleteGoogleDetails("token", done, done); }, "delete/google",
       "{\n  \"token\": \"token\"\n}"},
      {[&] { auth->checkEntitlement("access token", done); }, "entitlement", ""},
  };
  const std::string origin = "Host: " + server.url("").absoluteString().substr(7) + "\r\n";
  const std::string agent =
      std::string("Accept-Encoding: gzip, deflate, br\r\nUser-Agent: paperloom/") +
      reinterpret_cast<const char*>(PaperloomVersionString) + "\r\n";
  for (const auto& row : rows) {
    row.call();
    answers.waitForFirst();
    answers.take();
    const std::string length = std::to_string(row.body.size());
    const auto request = server.requests().back();
    EXPECT_EQ(request.head + request.body,
              row.body.empty()
                  ? "GET /base/entitlement HTTP/1.1\r\n" + origin +
                        "Accept: */*\r\nAuthorization: access token\r\n" + agent
                  : "POST /base/" + row.path + " HTTP/1.1\r\n" + origin +
                        "Content-Type: application/json\r\nAccept: application/json\r\n" + agent +
                        "Content-Length: " + length + "\r\n" + row.body);
  }
}

TEST_F(CoordinatorsTest, aRejectedBodyIsNotedInTheDebugLogWithoutItsContent) {
  Answers log;
  DebugLog::setListener([&](std::string_view line) { log.add(std::string(line)); });
  const auto garbled = outcomes(loginAs("garbled"));
  const auto incomplete = outcomes(loginAs("answer-200"));
  DebugLog::setListener(nullptr);
  outcomes(loginAs("garbled"));
  EXPECT_EQ(log.take(), (Lines{garbled.at(0), incomplete.at(0)}));
  EXPECT_TRUE(garbled[0].starts_with("parsing failed with error "));
  EXPECT_EQ(garbled[0].find("repaired"), std::string::npos) << garbled[0];
}

TEST_F(CoordinatorsTest, theIndicatorIsWrittenAtOnceAndTheCountNeverFallsBelowZero) {
  const auto& indicator = NetworkActivityIndicator::shared();
  Answers answers;
  auth->checkEntitlement("silence", std::ref(answers));
  EXPECT_TRUE(indicator.isVisible());
  EXPECT_EQ(manager->taskCount(), 1);
  answers.waitForFirst();
  EXPECT_EQ(manager->taskCount(), 0);
  EXPECT_FALSE(indicator.isVisible());

  ClampedTaskCounter counter;
  counter.increment();
  counter.decrement();
  counter.decrement();
  EXPECT_EQ(counter.value(), 0);
  counter.increment();
  EXPECT_TRUE(indicator.isVisible());
  counter.decrement();
}

TEST_F(CoordinatorsTest, aRemovalSucceedsOnlyWithStatus200) {
  RegistrationCoordinator coordinator(std::make_shared<ContentSessionManager>(
      std::make_shared<URLCache>(1 << 20, 1 << 20, folder.path() / "url-cache")));
  const auto remove = [&](std::string_view what, const std::string& token,
                          const std::string& address = "") {
    Answers answers;
    const auto success = [&] { answers.add("removed"); };
    const auto failure = [&](const PaperloomError& error) {
      answers.add(std::string(caseName(error.which())) + " " + error.details());
    };
    if (what == "email") coordinator.deleteEmailDetails(token, address, success, failure);
    if (what == "facebook") coordinator.deleteFacebookDetails(token, success, failure);
    if (what == "google") coordinator.deleteGoogleDetails(token, success, failure);
    answers.waitForFirst();
    return answers.take().at(0);
  };

  EXPECT_EQ(remove("email", "t"), "configurationError deleteEmailDetails - No Base URL");
  EXPECT_EQ(remove("facebook", "t"), "configurationError deleteFacebookDetails - No Base URL");
  EXPECT_EQ(remove("google", "t"), "configurationError deleteGoogleDetails - No Base URL");
  EXPECT_TRUE(service->requests().empty());

  coordinator.setBaseURL(URL::parse(service->identityURL()));
  const std::string account = "premium@lantern.example";
  const std::string token = login(account, "lighthouse-7")->accessToken();
  service->clearRequests();
  const struct {
    std::string_view what;
    std::string token;
    std::string address;
    std::string outcome;
  } rows[] = {
      {"google", token, "", "removed"},
      {"google", token, "", "networkError Response code 404"},
      {"facebook", token, "", "removed"},
      {"facebook", "unknown", "", "networkError Response code 401"},
      {"email", token, account, "removed"},
      {"email", "answer-201", account, "networkError Response code 201"},
      {"email", "empty-204", account, "networkError Response code 204"},
      {"email", "answer-500", account, "networkError Response code 500"},
      {"google", "\xc3", "", "networkError failed to serialize data into JSON"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(remove(row.what, row.token, row.address), row.outcome) << row.what << row.token;
  }
  EXPECT_TRUE(remove("google", "cut").starts_with("networkError Error: : "));
  coordinator.deleteGoogleDetails("answer-500", [] { ADD_FAILURE(); });  // dropped silently
}

}  // namespace
}  // namespace paperloom::test
