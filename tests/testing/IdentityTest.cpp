#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "paperloom/testing/internal/IdentityStore.h"
#include "tests/testing/RunningService.h"

namespace paperloom::test {
namespace {

using sample::IdentityStore;

constexpr const char* premium = "premium@lantern.example";

TEST(IdentityTest, tokensRotateAndRunOut) {
  IdentityStore store(std::chrono::seconds(60));
  const IdentityStore::Time start;
  const auto first = store.login(premium, "lighthouse-7", "EMAIL_PASSWORD", start);
  ASSERT_TRUE(first);
  EXPECT_EQ(store.entitlement(first->accessToken, start + std::chrono::seconds(59)), 200);
  EXPECT_EQ(store.entitlement(first->accessToken, start + std::chrono::seconds(60)), 401);

  const auto later = start + std::chrono::hours(2);
  const auto second = store.refresh(first->refreshToken, later);
  ASSERT_TRUE(second);
  EXPECT_EQ(store.entitlement(second->accessToken, later), 200);
  EXPECT_NE(second->accessToken, first->accessToken);
  EXPECT_EQ(store.refresh(first->refreshToken, later).error(), 401);
  EXPECT_TRUE(store.refresh(second->refreshToken, later));
  EXPECT_EQ(store.refresh(second->accessToken, later).error(), 401);
  EXPECT_EQ(store.entitlement(second->refreshToken, later), 401);
}

TEST(IdentityTest, tokensAreGoodInTheNextServiceAndOnlyAsSigned) {
  const IdentityStore::Time now;
  IdentityStore first(std::chrono::seconds(60));
  IdentityStore next(std::chrono::seconds(60));
  const auto login = first.login(premium, "lighthouse-7", "EMAIL_PASSWORD", now);
  const auto made = first.registerAccount({"ada@lantern.example", "long enough", "A", "M"}, now);
  ASSERT_TRUE(login && made);
  EXPECT_EQ(next.entitlement(login->accessToken, now), 200);
  EXPECT_EQ(next.entitlement(made->tokens.accessToken, now), 403);
  EXPECT_TRUE(next.refresh(made->tokens.refreshToken, now));
  for (std::size_t i = 0; i < login->accessToken.size(); ++i) {
    std::string forged = login->accessToken;
    forged[i] = forged[i] == 'a' ? 'b' : 'a';
    EXPECT_EQ(next.entitlement(forged, now), 401) << i;
  }
}

// The members that the library sends are those that the service takes, and no others.
TEST(IdentityTest, badBodiesAreRefused) {
  RunningService running;
  const std::pair<std::string, std::string> cases[] = {
      {"/token", ""},
      {"/token", R"({"identifier": "a", "authKey": "b"})"},
      {"/token", R"({"identifier": "a", "authKey": 7, "credentialType": "KX_NUMBER"})"},
      {"/token", R"({"identifier": "a", "authKey": "b", "credentialType": "kx_number"})"},
      {"/refreshToken", R"({"refreshToken": "a", "more": "b"})"},
      {"/delete/email", R"({"token": "a"})"},
      {"/delete/google", R"({"token": "a", "email": "b"})"},
      {"/token", std::string(60'000, '[')},
  };
  for (const auto& [call, body] : cases) {
    EXPECT_EQ(running.post(call, body, "application/json").status(), 400) << call << " " << body;
  }
  EXPECT_EQ(running.post("/token", "{}", "text/plain").status(), 415);
}

}  // namespace
}  // namespace paperloom::test
