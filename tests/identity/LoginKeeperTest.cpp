#include "paperloom/identity/LoginKeeper.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "paperloom/operations/CheckEntitlementOperation.h"
#include "paperloom/operations/RefreshTokenThenCheckEntitlementsOperation.h"
#include "paperloom/platform/OperationQueue.h"
#include "tests/support/IdentityAnswers.h"
#include "tests/support/IdentityFixture.h"

namespace paperloom::test {
namespace {

using Answer = RequestResult<Authorisation>;

Authorisation tokens(const std::string& refreshToken) {
  return std::make_shared<const ContentAuthorisation>("access", refreshToken, "id");
}

std::string text(const Answer& answer) {
  const auto* success = std::get_if<request::Success<Authorisation>>(&answer);
  return success != nullptr ? success->item->refreshToken() : textOf(answer);
}

Answer success(const std::string& refreshToken) {
  return request::Success<Authorisation>{tokens(refreshToken)};
}

// Notes the refresh tokens sent; answers when told.
struct FakeCoordinator final : AuthDataCoordinatorProtocol {
  void login(const std::string&, const std::string&, AuthenticationLoginCredentialType,
             AuthorisationCompletion) override {}
  void checkEntitlement(const std::string&, EntitlementCompletion) override {}
  void refreshToken(const std::string& token, AuthorisationCompletion completion) override {
    sent.push_back(token);
    waiting = std::move(completion);
  }

  Lines sent;
  AuthorisationCompletion waiting;
};

// Tells the order of what happens to it.
struct FakeStorage final : LoginStorage {
  struct Begun final : Refresh {
    explicit Begun(FakeStorage& of) : storage(of) {}
    ~Begun() override { storage.events.emplace_back("let go"); }
    Authorisation replacement() override { return std::exchange(storage.others.at(0), nullptr); }
    void keep(const Authorisation& refreshed) override {
      storage.events.push_back("keep " + refreshed->refreshToken());
    }
    FakeStorage& storage;
  };
  std::unique_ptr<Refresh> beginRefresh(const std::string&) override {
    if (!canBegin) return nullptr;
    return std::make_unique<Begun>(*this);
  }

  bool canBegin = true;
  std::vector<Authorisation> others = {nullptr};  // the first is what replacement() gives next
  Lines events;
};

TEST(LoginKeeperTest, asksTheStorageBeforeItSendsAndBeforeAnybodyHears) {
  const struct {
    std::string_view name;
    bool canBegin;
    Authorisation before;
    std::vector<Answer> answers;
    Authorisation afterwards;
    Lines events;  // an answer stands in brackets
  } rows[] = {
      {"refreshed", true, nullptr, {success("r2")}, nullptr, {"keep r2", "let go", "[r2]"}},
      {"no place", false, nullptr, {}, nullptr, {"[internal]"}},
      {"replaced before", true, tokens("r7"), {}, nullptr, {"let go", "[r7]"}},
      {"replaced meanwhile",
       true,
       nullptr,
       {request::FailedStatusCode{401}},
       tokens("r8"),
       {"let go", "[r8]"}},
      {"refused",
       true,
       nullptr,
       {request::FailedStatusCode{401}},
       nullptr,
       {"let go", "[status 401]"}},
      {"broken",
       true,
       nullptr,
       {request::FailedStatusCode{500}},
       tokens("r8"),
       {"let go", "[status 500]"}},
      {"answered twice",
       true,
       nullptr,
       {request::NetworkError{}, success("r2")},
       nullptr,
       {"let go", "[network]", "keep r2", "let go", "[r2]"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto coordinator = std::make_shared<FakeCoordinator>();
    const auto storage = std::make_shared<FakeStorage>();
    storage->canBegin = row.canBegin;
    storage->others[0] = row.before;
    {
      LoginKeeper keeper(coordinator, storage);
      keeper.refreshToken(
          "r1", [&](const Answer& answer) { storage->events.push_back("[" + text(answer) + "]"); });
    }
    EXPECT_EQ(coordinator->sent, row.answers.empty() ? Lines{} : Lines{"r1"});
    storage->others[0] = row.afterwards;
    for (const Answer& answer : row.answers) coordinator->waiting(answer);
    EXPECT_EQ(storage->events, row.events);
    coordinator->waiting = nullptr;
    EXPECT_EQ(storage->events, row.events);
  }
}

TEST(LoginKeeperTest, aTokenGoesOutOnceUnlessItComesBack) {
  const auto coordinator = std::make_shared<FakeCoordinator>();
  Lines kept;
  LoginKeeper keeper(coordinator, [&](const Authorisation& refreshed) {
    kept.push_back(refreshed->refreshToken());
  });
  Lines heard;
  const auto ask = [&](const std::string& token) {
    keeper.refreshToken(token, [&](const Answer& answer) { heard.push_back(text(answer)); });
  };
  ask("r1");
  ask("r1");
  coordinator->waiting(success("r2"));
  ask("r2");
  coordinator->waiting(success("r3"));
  ask("r1");  // spent: gives the latest
  ask("r3");
  coordinator->waiting(request::NetworkError{});
  ask("r3");  // a failure is not remembered
  coordinator->waiting = nullptr;
  ask("r3");  // nor is a request that ended without an answer waited for
  coordinator->waiting(success("r3"));
  ask("r3");  // this service lets a token be used again
  coordinator->waiting(success("r4"));
  EXPECT_EQ(coordinator->sent, (Lines{"r1", "r2", "r3", "r3", "r3", "r3"}));
  EXPECT_EQ(heard, (Lines{"r2", "r2", "r3", "r3", "network", "r3", "r4"}));
  EXPECT_EQ(kept, (Lines{"r2", "r3", "r3", "r4"}));
  for (int i = 4; i < 34; ++i) {  // the 32 tokens spent last are known
    ask("r" + std::to_string(i));
    coordinator->waiting(success("r" + std::to_string(i + 1)));
  }
  coordinator->sent.clear();
  for (const char* spent : {"r1", "r2", "r3"}) ask(spent);
  EXPECT_EQ(coordinator->sent, Lines{"r1"});
  EXPECT_EQ(heard.back(), "r34");
  coordinator->waiting = nullptr;  // which holds the coordinator
}

Operation::Deadline soon() { return std::chrono::steady_clock::now() + patience; }

class KeptLoginTest : public IdentityFixture {
 protected:
  std::string_view check(const Authorisation& with) {
    const auto operation = std::make_shared<CheckEntitlementOperation>(with, keeper);
    queue.addOperation(operation);
    if (!operation->waitUntilFinished(soon())) return "never finished";
    return operation->result().value().caseName();
  }

  Authorisation kept;
  std::shared_ptr<LoginKeeper> keeper = std::make_shared<LoginKeeper>(
      auth, [this](const Authorisation& refreshed) { kept = refreshed; });
  OperationQueue queue;
};

TEST_F(KeptLoginTest, outlivesACheckThatFailsAfterTheRefresh) {
  const auto expired = login("expired@lantern.example", "lowtide-5");
  misbehave("status=/identity/entitlement:500");
  const auto operation =
      std::make_shared<RefreshTokenThenCheckEntitlementsOperation>(expired, keeper);
  EXPECT_TRUE(queue.addOperations({operation}, true, soon()));
  EXPECT_EQ(operation->result().value().caseName(), "otherFailure");
  misbehave("");
  ASSERT_TRUE(kept);
  EXPECT_EQ(check(kept), "premium");
}

TEST_F(KeptLoginTest, staysForEveryCheckThatIsQueuedWithAnother) {
  for (const int limit : {1, OperationQueue::defaultMaxConcurrentOperationCount}) {
    const auto expired = login("expired@lantern.example", "lowtide-5");
    misbehave("latency=20");
    service->clearRequests();
    queue.setMaxConcurrentOperationCount(limit);
    std::vector<std::shared_ptr<CheckEntitlementOperation>> checks;
    for (int i = 0; i < 3; ++i) {
      checks.push_back(std::make_shared<CheckEntitlementOperation>(expired, keeper));
    }
    EXPECT_TRUE(queue.addOperations({checks.begin(), checks.end()}, true, soon()));
    for (const auto& check : checks) EXPECT_EQ(check->result().value().caseName(), "premium");
    std::size_t refreshes = 0;
    for (const auto& request : service->requests()) {
      refreshes += request.target.ends_with("/refreshToken") ? 1 : 0;
    }
    EXPECT_EQ(refreshes, 1U);
  }
}

}  // namespace
}  // namespace paperloom::test
