#include <gtest/gtest.h>

#include "paperloom/identity/LoginKeeper.h"
#include "paperloom/identity/RegistrationCoordinator.h"
#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/operations/CheckEntitlementOperation.h"
#include "paperloom/operations/LoginOperation.h"
#include "paperloom/operations/RefreshTokenThenCheckEntitlementsOperation.h"
#include "paperloom/operations/RegistrationOperation.h"
#include "paperloom/platform/DispatchQueue.h"
#include "tests/support/IdentityFixture.h"

namespace paperloom::test {
namespace {

constexpr auto byEmail = AuthenticationLoginCredentialType::emailAndPassword;

class EmptyCallbackTest : public IdentityFixture {
 protected:
  // Every request, with nobody to tell.
  void askForEverything() {
    const URL url = *URL::parse(service->baseURL() + "/config");
    LoginKeeper keeper(auth, LoginKeeper::Keep());
    for (AuthDataCoordinatorProtocol* coordinator :
         {static_cast<AuthDataCoordinatorProtocol*>(auth.get()),
          static_cast<AuthDataCoordinatorProtocol*>(&keeper)}) {
      for (const char* text : {"text", "no UTF-8: \xff"}) {
        coordinator->login(text, text, byEmail, nullptr);
        coordinator->refreshToken(text, nullptr);
        coordinator->checkEntitlement(text, nullptr);
        registration->registerAccount(text, text, text, text, true, nullptr);
        linked.deleteEmailDetails(text, text, nullptr, nullptr);
        linked.deleteGoogleDetails(text, nullptr, nullptr);
      }
    }
    manager->getRequest(url, {}, nullptr);
    manager->postJSONData<Authorisation>(Data(), url, nullptr, nullptr);
    content->getJSONData<Authorisation>(url, nullptr, nullptr);
    URLSession(configuration(folder.path() / "own")).dataTask(URLRequest(url), nullptr)->resume();
  }

  std::shared_ptr<ContentSessionManager> content =
      std::make_shared<ContentSessionManager>(std::make_shared<URLCache>());
  RegistrationCoordinator linked{content};
};

TEST_F(EmptyCallbackTest, areNobodyToTell) {
  auth->setBaseURL(std::nullopt);
  registration->setBaseURL(std::nullopt);
  askForEverything();
  auth->setBaseURL(URL::parse(service->identityURL()));
  registration->setBaseURL(auth->baseURL());
  linked.setBaseURL(auth->baseURL());
  askForEverything();
  EXPECT_TRUE(pumpUntil([&] { return manager->taskCount() + content->taskCount() == 0; }));
  DispatchQueue queue;
  queue.async(nullptr);
  EXPECT_EQ(queue.runPending(), 0U);
}

TEST_F(EmptyCallbackTest, norDoesANullParserAcceptAnything) {
  const URL config = *URL::parse(service->baseURL() + "/config");
  const auto fetched = captured<Result<Authorisation>>([&](auto done) {
    content->getJSONData<Authorisation>(config, nullptr,
                                        [done](auto result, bool) { done(std::move(result)); });
  });
  ASSERT_FALSE(fetched);
  EXPECT_EQ(fetched.error().details(), "no parser was given");
  const auto posted = captured<RequestResult<Authorisation>>([&](auto done) {
    manager->postJSONData<Authorisation>(Data(R"({"refreshToken":"x"})"), config, nullptr, done);
  });
  EXPECT_FALSE(std::holds_alternative<request::Success<Authorisation>>(posted));
}

TEST(NullCollaboratorsTest, stopTheProgram) {
  const auto auth = std::make_shared<AuthDataCoordinator>(std::make_shared<AuthSessionManager>());
  EXPECT_DEATH(AuthDataCoordinator(nullptr), "an auth data coordinator needs a session manager");
  EXPECT_DEATH(RegistrationCoordinator(nullptr),
               "a registration coordinator needs a session manager");
  EXPECT_DEATH(UserRegistrationDataCoordinator(nullptr),
               "a user registration data coordinator needs a session manager");
  EXPECT_DEATH(LoginKeeper(nullptr, LoginKeeper::Keep()), "a login keeper needs a coordinator");
  EXPECT_DEATH(LoginKeeper(auth, std::shared_ptr<LoginStorage>()),
               "a login keeper needs a storage");
  EXPECT_DEATH(LoginOperation("", "", byEmail, nullptr), "an operation needs a coordinator");
  EXPECT_DEATH(RegistrationOperation({}, nullptr), "an operation needs a coordinator");
  const auto tokens = std::make_shared<const ContentAuthorisation>("", "", "");
  EXPECT_DEATH(CheckEntitlementOperation(tokens, nullptr), "an operation needs a coordinator");
  EXPECT_DEATH(RefreshTokenThenCheckEntitlementsOperation(tokens, nullptr),
               "an operation needs a coordinator");
  EXPECT_DEATH(CheckEntitlementOperation(nullptr, auth), "an operation needs an authorisation");
  EXPECT_DEATH(RefreshTokenThenCheckEntitlementsOperation(nullptr, auth),
               "an operation needs an authorisation");
}

}  // namespace
}  // namespace paperloom::test
