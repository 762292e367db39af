#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "paperloom/identity/ContentAuthorisation.h"
#include "paperloom/operations/CheckEntitlementOperation.h"
#include "paperloom/operations/LoginOperation.h"
#include "paperloom/operations/RefreshTokenThenCheckEntitlementsOperation.h"
#include "paperloom/operations/RegistrationOperation.h"
#include "paperloom/platform/OperationQueue.h"
#include "tests/support/IdentityFixture.h"

namespace paperloom::test {
namespace {

constexpr auto email = AuthenticationLoginCredentialType::emailAndPassword;
constexpr auto number = AuthenticationLoginCredentialType::kxNumber;

Operation::Deadline deadline() { return std::chrono::steady_clock::now() + patience; }

struct Credentials {
  std::string identifier;
  std::string authKey;
};

const Credentials premiumReader = {"premium@lantern.example", "lighthouse-7"};
const Credentials expiredReader = {"expired@lantern.example", "lowtide-5"};

class IdentityOperationsTest : public IdentityFixture {
 protected:
  // Runs the operation to its end on a queue and checks that its result is there before anyone
  // hears of the end.
  template <class SomeOperation, class Result>
  std::string_view run(const std::shared_ptr<SomeOperation>& operation, Result result) {
    struct Early final : OperationObserver {
      explicit Early(std::function<bool()> has) : hasResult(std::move(has)) {}
      void willChangeValue(Operation&, std::string_view key) override {
        EXPECT_EQ(hasResult(), key == Operation::isFinishedKey || hasResult());
      }
      std::function<bool()> hasResult;
    };
    EXPECT_FALSE(result(*operation));
    operation->addObserver(std::make_shared<Early>([&] { return result(*operation).has_value(); }));
    queue.addOperation(operation);
    if (!operation->waitUntilFinished(deadline())) return "never finished";
    return result(*operation).value().caseName();
  }

  auto loginOperation(const Credentials& account, AuthenticationLoginCredentialType type = email) {
    return std::make_shared<LoginOperation>(account.identifier, account.authKey, type, auth);
  }

  auto registrationOperation(const std::string& address,
                             const std::string& authKey = "long enough") {
    return std::make_shared<RegistrationOperation>(
        RegistrationOperation::Arguments{.email = address,
                                         .authKey = authKey,
                                         .firstName = "Ada",
                                         .lastName = "Reader",
                                         .martketingOptIn = true},
        registration);
  }

  std::size_t requestsFor(std::string_view call) const {
    std::size_t count = 0;
    for (const auto& request : service->requests()) count += request.target.ends_with(call) ? 1 : 0;
    return count;
  }

  OperationQueue queue;
};

constexpr auto resultOf = [](const auto& operation) { return operation.result(); };
constexpr auto loginResultOf = [](const auto& operation) { return operation.loginResult(); };
constexpr auto registrationResultOf = [](const auto& operation) {
  return operation.registrationResult();
};

TEST_F(IdentityOperationsTest, loginEndsAsTheServiceAnswers) {
  const struct {
    Credentials account;
    std::string_view result;
    AuthenticationLoginCredentialType type = email;
  } rows[] = {
      {premiumReader, "loggedInAndPremium"},
      {{"KX204417", "quayside-9"}, "loggedInAndPremium", number},
      {{"reader@lantern.example", "breakwater-3"}, "loggedInAndNotPremium"},  // 403
      {expiredReader, "loggedInAndNotPremium"},                               // 401
      {{"unchecked@lantern.example", "foghorn-8"}, "loggedInAndNotPremium"},  // 500
      {{"premium@lantern.example", "wrong"}, "wrongUsernameAndPassword"},
      {{"KX204417", "quayside-9"}, "wrongUsernameAndPassword", email},
      {{"answer-400", ""}, "error"},
      {{"answer-500", ""}, "error"},
      {{"garbled", ""}, "error"},
      {{"cut", ""}, "error"},
      {{"premium@lantern.example", "no UTF-8: \xff"}, "error"},
  };
  for (const auto& row : rows) {
    const auto operation = loginOperation(row.account, row.type);
    EXPECT_EQ(run(operation, loginResultOf), row.result) << row.account.identifier;
  }
  misbehave("cut=/identity/entitlement:3");
  EXPECT_EQ(run(loginOperation(premiumReader), loginResultOf), "loggedInAndNotPremium");
}

TEST_F(IdentityOperationsTest, checkRefreshesOnceWhenTheAccessTokenIsRefused) {
  const struct {
    Credentials account;
    std::string_view result;
    std::size_t refreshes;
    std::string faults = {};
  } rows[] = {
      {premiumReader, "premium", 0},
      {{"reader@lantern.example", "breakwater-3"}, "notPremium", 0},
      {expiredReader, "premium", 1},
      {{"locked-out@lantern.example", "drydock-2"}, "refreshTokenFailed", 1},
      {{"refresh-broken@lantern.example", "sandbank-4"}, "otherFailure", 1},
      {{"refused@lantern.example", "undertow-6"}, "otherFailure", 1},
      {{"unchecked@lantern.example", "foghorn-8"}, "otherFailure", 0},
      {premiumReader, "otherFailure", 0, "status=/identity/entitlement:204"},
      // An error and a status come together: the first outcome stays.
      {premiumReader, "otherFailure", 0, "cut=/identity/ent:3"},
      {expiredReader, "otherFailure", 1, "cut=/identity/refresh:3"},
  };
  for (const auto& row : rows) {
    misbehave("");
    const auto tokens = login(row.account.identifier, row.account.authKey);
    misbehave(row.faults);
    service->clearRequests();
    const auto operation = std::make_shared<CheckEntitlementOperation>(tokens, auth);
    EXPECT_EQ(run(operation, resultOf), row.result) << row.account.identifier << row.faults;
    EXPECT_EQ(requestsFor("refreshToken"), row.refreshes) << row.account.identifier << row.faults;
    if (row.result != "premium") continue;
    using WithTokens = CheckEntitlementOperationResult::Premium;
    ASSERT_TRUE(operation->result() &&
                std::holds_alternative<WithTokens>(operation->result().value().value));
    const auto& premium = std::get<WithTokens>(operation->result().value().value);
    EXPECT_EQ(premium.newAuthorisation != nullptr, row.refreshes == 1);
    if (row.refreshes == 0) continue;
    EXPECT_NE(premium.newAuthorisation->refreshToken(), tokens->refreshToken());
    const auto again = std::make_shared<CheckEntitlementOperation>(premium.newAuthorisation, auth);
    EXPECT_EQ(run(again, resultOf), "premium");
  }
}

TEST_F(IdentityOperationsTest, refreshThenCheckEndsAsTheServiceAnswers) {
  const struct {
    Credentials account;
    std::string_view result;
    bool premium = false;
    std::string faults = {};
  } rows[] = {
      {premiumReader, "success", true},
      {expiredReader, "success", true},
      {{"reader@lantern.example", "breakwater-3"}, "success", false},
      {{"locked-out@lantern.example", "drydock-2"}, "refreshTokenInvalid"},
      {{"refresh-broken@lantern.example", "sandbank-4"}, "otherFailure"},
      {{"refused@lantern.example", "undertow-6"}, "otherFailure"},
      {{"unchecked@lantern.example", "foghorn-8"}, "otherFailure"},
      {premiumReader, "otherFailure", false, "cut=/identity/ent:3"},
      {premiumReader, "otherFailure", false, "cut=/identity/ref:3"},
      {premiumReader, "otherFailure", false, "status=/identity/refreshToken:200"},
  };
  for (const auto& row : rows) {
    misbehave("");
    const auto tokens = login(row.account.identifier, row.account.authKey);
    misbehave(row.faults);
    const auto operation =
        std::make_shared<RefreshTokenThenCheckEntitlementsOperation>(tokens, auth);
    EXPECT_EQ(run(operation, resultOf), row.result) << row.account.identifier << row.faults;
    if (row.result != "success") continue;
    using Success = RefreshTokenThenCheckEntitlementsOperationResult::Success;
    ASSERT_TRUE(operation->result() &&
                std::holds_alternative<Success>(operation->result().value().value));
    const auto& success = std::get<Success>(operation->result().value().value);
    EXPECT_EQ(success.premium == Premium::premium, row.premium) << row.account.identifier;
    EXPECT_NE(success.contentAuthorisation->accessToken(), tokens->accessToken());
  }
}

TEST_F(IdentityOperationsTest, registrationEndsAsTheServiceAnswers) {
  const struct {
    std::string email;
    std::string_view result;
    std::string authKey = "long enough";
  } rows[] = {
      {"new@reader.example", "registeredWithRefreshToken"},
      {"new@reader.example", "duplicateAccount"},
      {"no-refresh@reader.example", "registeredWithoutRefreshToken"},
      {"short@reader.example", "badRequest", "short"},
      {"answer-400@reader.example", "badRequest"},
      {"answer-409@reader.example", "duplicateAccount"},
      {"answer-504@reader.example", "timeout"},
      {"cut@reader.example", "timeout"},
      {"answer-200@reader.example", "failed"},
      {"answer-503@reader.example", "failed"},
      {"garbled@reader.example", "failed"},
      {"no UTF-8: \xff", "failed"},
  };
  for (const auto& row : rows) {
    const auto operation = registrationOperation(row.email, row.authKey);
    EXPECT_EQ(run(operation, registrationResultOf), row.result) << row.email;
  }
}

TEST_F(IdentityOperationsTest, anOperationCancelledBeforeItsStartSendsNothing) {
  const auto operation = loginOperation(premiumReader);
  operation->cancel();
  queue.addOperation(operation);
  EXPECT_TRUE(operation->waitUntilFinished(deadline()));
  EXPECT_FALSE(operation->loginResult());
  EXPECT_TRUE(service->requests().empty());
}

TEST_F(IdentityOperationsTest, cancellingAfterTheStartChangesNothing) {
  misbehave("latency=50");
  const auto operation = loginOperation(premiumReader);
  operation->start();
  operation->cancel();
  EXPECT_TRUE(operation->waitUntilFinished(deadline()));
  EXPECT_EQ(operation->loginResult().value().caseName(), "loggedInAndPremium");
}

TEST_F(IdentityOperationsTest, areReleasedUnfinishedExceptForARegistration) {
  misbehave("latency=100");
  auto released = loginOperation(premiumReader);
  auto kept = registrationOperation("new@reader.example");
  released->setCompletionBlock([] { ADD_FAILURE() << "finished without an owner"; });
  const auto registered = captured<std::string>([&](auto done) {
    kept->setCompletionBlock([done, operation = kept.get()] {
      done(operation->registrationResult().value().caseName());
    });
    released->start();
    kept->start();
    const std::weak_ptr<Operation> gone = released;
    released.reset();
    kept.reset();
    EXPECT_TRUE(gone.expired());
  });
  EXPECT_EQ(registered, "registeredWithRefreshToken");
}

TEST_F(IdentityOperationsTest, aCheckWithoutABaseURLStaysUnfinished) {
  auth->setBaseURL(std::nullopt);
  const auto tokens = std::make_shared<const ContentAuthorisation>("access", "refresh", "id");
  const auto check = std::make_shared<CheckEntitlementOperation>(tokens, auth);
  const auto refresh = std::make_shared<RefreshTokenThenCheckEntitlementsOperation>(tokens, auth);
  queue.addOperation(refresh);
  EXPECT_TRUE(refresh->waitUntilFinished(deadline()));
  check->start();  // here: a queue that goes would cancel it before its start
  EXPECT_FALSE(check->isFinished());
}

}  // namespace
}  // namespace paperloom::test
