#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "apps/sample_service/internal/IdentityStore.h"
#include "tests/service/RunningService.h"

namespace paperloom::sample {
namespace {

using nlohmann::json;

struct Identity : RunningService {
  httplib::Result post(const std::string& call, const std::string& body) const {
    return client->Post("/identity/" + call, body, "application/json");
  }

  json postJson(const std::string& call, const json& body) const {
    const auto result = post(call, body.dump());
    if (!result || (result->status != 200 && result->status != 201)) return json::object();
    return json::parse(result->body);
  }

  int postStatus(const std::string& call, const json& body) const {
    const auto result = post(call, body.dump());
    return result ? result->status : 0;
  }

  int entitlement(const json& tokens) const {
    return status("/identity/entitlement", {{"Authorization", tokens.at("accessToken")}});
  }
};

json credentials(const std::string& identifier, const std::string& authKey,
                 const std::string& type = "EMAIL_PASSWORD") {
  return {{"identifier", identifier}, {"authKey", authKey}, {"credentialType", type}};
}

json newcomer(const std::string& email, const std::string& authKey = "long enough") {
  return {{"email", email},
          {"firstName", "Ada"},
          {"lastName", "Morrow"},
          {"authKey", authKey},
          {"marketingEmailOptIn", true}};
}

TEST(SampleIdentity, everySampleAccountBehavesAsListed) {
  const Identity identity;
  for (const SampleAccount& account : sampleAccounts()) {
    const std::string name(account.identifier);
    const json tokens = identity.postJson(
        "token",
        credentials(name, std::string(account.authKey), std::string(account.credentialType)));
    ASSERT_EQ(tokens.size(), 3U) << name;
    const int entitled = account.entitlementStatus != 0 ? account.entitlementStatus
                         : account.premium              ? 200
                                                        : 403;
    EXPECT_EQ(identity.entitlement(tokens), account.loginTokenExpired ? 401 : entitled) << name;

    const auto refreshed =
        identity.post("refreshToken", json{{"refreshToken", tokens.at("refreshToken")}}.dump());
    ASSERT_TRUE(refreshed) << name;
    const int refreshStatus = account.refreshTokenRefused  ? 401
                              : account.refreshStatus != 0 ? account.refreshStatus
                                                           : 200;
    EXPECT_EQ(refreshed->status, refreshStatus) << name;
    EXPECT_EQ(refreshed->get_header_value("Cache-Control"), "no-store") << name;
    if (refreshStatus == 200) {
      EXPECT_EQ(identity.entitlement(json::parse(refreshed->body)), entitled) << name;
    }
  }
}

TEST(SampleIdentity, tokensRotateAndRunOut) {
  IdentityStore store(std::chrono::seconds(60));
  const IdentityStore::Time start;
  const auto first =
      store.login("premium@lantern.example", "lighthouse-7", "EMAIL_PASSWORD", start);
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

TEST(SampleIdentity, tokensAreGoodInTheNextServiceAndOnlyAsSigned) {
  const IdentityStore::Time now;
  IdentityStore first(std::chrono::seconds(60));
  IdentityStore next(std::chrono::seconds(60));
  const auto login = first.login("premium@lantern.example", "lighthouse-7", "EMAIL_PASSWORD", now);
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

TEST(SampleIdentity, badBodiesAreRefused) {
  const Identity identity;
  const std::string good = credentials("premium@lantern.example", "lighthouse-7").dump();
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"token", ""},
      {"token", "[]"},
      {"token", good.substr(1)},
      {"token", good + "x"},
      {"token", "{\"identifier\": \"\xff\", \"authKey\": \"\", \"credentialType\": \"KX_NUMBER\"}"},
      {"token", R"({"identifier": "a", "authKey": "b"})"},
      {"token", R"({"identifier": "a", "authKey": 7, "credentialType": "KX_NUMBER"})"},
      {"token", credentials("a", "b", "email_password").dump()},
      {"refreshToken", R"({"refreshToken": "a", "more": "b"})"},
      {"register/account", R"({"email": "a@b"})"},
      {"register/account", newcomer("a@b.example", "short").dump()},
      {"register/account", newcomer("nobody").dump()},
      {"delete/email", R"({"token": "a"})"},
      {"delete/google", R"({"token": "a", "email": "b"})"},
      {"token", std::string(60'000, '[')},
  };
  for (const auto& [call, body] : cases) {
    const auto result = identity.post(call, body);
    ASSERT_TRUE(result) << call << " " << body;
    EXPECT_EQ(result->status, 400) << call << " " << body;
  }
  EXPECT_EQ(identity.postStatus("token", credentials("premium@lantern.example", "wrong")), 401);
  EXPECT_EQ(identity.postStatus("token", credentials("KX204417", "quayside-9")), 401);
  EXPECT_EQ(identity.status("/identity/entitlement"), 401);
  EXPECT_EQ(identity.status("/identity/token"), 405);
  EXPECT_EQ(identity.client->Post("/identity/token", good, "text/plain")->status, 415);
}

TEST(SampleIdentity, registrationMakesAnAccountOnce) {
  const Identity identity;
  const auto result = identity.post("register/account", newcomer("ada@lantern.example").dump());
  ASSERT_TRUE(result);
  EXPECT_EQ(result->status, 201);
  const json account = json::parse(result->body);
  EXPECT_TRUE(account.at("@id").is_string());
  EXPECT_EQ(account.at("marketingEmailOptIn"), true);
  EXPECT_EQ(account.at("marketingSMSOptIn"), false);
  EXPECT_TRUE(account.at("token").at("expiresIn").is_number_integer());
  EXPECT_EQ(identity.entitlement(account.at("token")), 403);
  EXPECT_TRUE(account.at("token").contains("refreshToken"));
  EXPECT_EQ(identity.postStatus("token", credentials("ada@lantern.example", "long enough")), 200);
  EXPECT_EQ(identity.postStatus("register/account", newcomer("ada@lantern.example")), 409);
  EXPECT_EQ(identity.postStatus("register/account", newcomer("premium@lantern.example")), 409);
  const json other = identity.postJson("register/account", newcomer("no-refresh@lantern.example"));
  EXPECT_FALSE(other.at("token").contains("refreshToken"));
}

TEST(SampleIdentity, linksAreRemovedOnce) {
  const Identity identity;
  const json login = credentials("reader@lantern.example", "breakwater-3");
  const std::string token = identity.postJson("token", login).at("accessToken");
  const std::vector<std::tuple<std::string, json, int>> cases = {
      {"delete/facebook", {{"token", "made up"}}, 401},
      {"delete/facebook", {{"token", token}}, 200},
      {"delete/facebook", {{"token", token}}, 404},
      {"delete/google", {{"token", token}}, 200},
      {"delete/email", {{"token", token}, {"email", "premium@lantern.example"}}, 404},
      {"delete/email", {{"token", token}, {"email", "reader@lantern.example"}}, 200},
  };
  for (const auto& [call, body, status] : cases) {
    EXPECT_EQ(identity.postStatus(call, body), status) << call << " " << body;
  }
  EXPECT_EQ(identity.postStatus("token", login), 401);
}

TEST(SampleIdentity, namesProvokeTheirFaultInEveryCall) {
  const Identity identity;
  for (const int status : {204, 400, 401, 403, 409, 500, 504}) {
    const std::string name = "answer-" + std::to_string(status);
    EXPECT_EQ(identity.postStatus("token", credentials(name + "@x", "")), status);
    EXPECT_EQ(identity.postStatus("refreshToken", {{"refreshToken", name}}), status);
    EXPECT_EQ(identity.postStatus("register/account", newcomer(name + "@x")), status);
    EXPECT_EQ(identity.postStatus("delete/google", {{"token", name}}), status);
    EXPECT_EQ(identity.entitlement({{"accessToken", name}}), status);
  }
  EXPECT_EQ(identity.postStatus("token", credentials("cut", "")), 0);
  EXPECT_EQ(identity.post("token", credentials("empty-200", "").dump())->body, "");
  EXPECT_FALSE(json::accept(identity.post("token", credentials("garbled", "").dump())->body));
  identity.client->set_read_timeout(0, 100'000);
  EXPECT_EQ(identity.postStatus("token", credentials("silence@x", "")), 0);
}

}  // namespace
}  // namespace paperloom::sample
