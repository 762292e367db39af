#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "apps/sample_service/SampleService.h"
#include "tests/reader/ReaderProcess.h"

namespace paperloom {
namespace {

using JSON = nlohmann::ordered_json;
using test::Reader;
using test::ReaderOutcome;
using test::ReaderRun;

class AccountCommands : public ::testing::Test {
 protected:
  // Runs a command, collects all that it says, and gives its case.
  std::string outcome(const std::vector<std::string>& arguments, const std::string& input = {}) {
    std::vector<std::string> all = {"--json"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    last_ = reader_.run(all, input);
    said_ += last_.out + last_.error;
    const JSON json = JSON::parse(last_.out, nullptr, false);
    return json.is_object() && json.contains("case") ? json["case"].get<std::string>() : "";
  }

  std::filesystem::path file() const { return reader_.folder() / "account.json"; }

  JSON stored() const {
    std::ifstream in(file());
    return JSON::parse(in, nullptr, false);
  }

  std::unique_ptr<sample::SampleService> service_ = std::move(*sample::SampleService::start());
  Reader reader_{{"--content-url", service_->baseURL(), "--identity-url", service_->identityURL()}};
  ReaderOutcome last_;
  std::string said_;
};

TEST_F(AccountCommands, outcomesAreTheOperationsOwn) {
  struct Case {
    std::vector<std::string> arguments;
    std::string input;
    std::string expected;
    int status;
  };
  const auto registering = [](const std::string& address) -> std::vector<std::string> {
    return {"register", address, "--first-name", "Ann", "--last-name", "Lee"};
  };
  const std::string key = "tide-mill-1";
  const Case cases[] = {
      {{"entitlement"}, "", "", 1},  // nobody is logged in
      {{"login", "premium@lantern.example"}, "wrong\n", "wrongUsernameAndPassword", 1},
      {{"login", "KX204417"}, "quayside-9", "loggedInAndPremium", 0},
      {{"login", "reader@lantern.example"}, "breakwater-3\n", "loggedInAndNotPremium", 0},
      {{"entitlement"}, "", "notPremium", 0},
      {{"refresh"}, "", "success", 0},
      {{"unlink", "google"}, "", "success", 0},
      {{"unlink", "google"}, "", "", 1},  // no such link any more
      {{"login", "locked-out@lantern.example"}, "drydock-2", "loggedInAndNotPremium", 0},
      {{"entitlement"}, "", "refreshTokenFailed", 1},
      {{"refresh"}, "", "refreshTokenInvalid", 1},
      {registering("new@lantern.example"), key, "registeredWithRefreshToken", 0},
      {{"entitlement"}, "", "notPremium", 0},
      {registering("new@lantern.example"), key, "duplicateAccount", 1},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.arguments[0] + " expects " + each.expected);
    EXPECT_EQ(outcome(each.arguments, each.input), each.expected);
    EXPECT_EQ(last_.status, each.status) << last_.error;
    EXPECT_EQ(last_.error.empty(), each.status == 0);
  }
}

TEST_F(AccountCommands, theWallOpensForThoseEntitledAndAfterLogoutNoMore) {
  const std::string story = "articles/the-ledger-of-cald-point";
  const auto walled = [&] {
    const ReaderOutcome article = reader_.run({"article", story});
    EXPECT_EQ(article.status, 0) << article.error;
    return article.out.find("premium readers") != std::string::npos;
  };
  EXPECT_TRUE(walled());
  ASSERT_EQ(outcome({"login", "reader@lantern.example"}, "breakwater-3"), "loggedInAndNotPremium");
  EXPECT_TRUE(walled());
  // The login's access token has ended already, so that only the refresh makes it premium.
  ASSERT_EQ(outcome({"login", "expired@lantern.example"}, "lowtide-5"), "loggedInAndNotPremium");
  const JSON before = stored();
  EXPECT_TRUE(walled());
  EXPECT_EQ(outcome({"entitlement"}), "premium");
  EXPECT_NE(stored()["refreshToken"], before["refreshToken"]);
  EXPECT_FALSE(walled());
  EXPECT_EQ(outcome({"entitlement"}), "premium");  // with the tokens that were kept
  EXPECT_EQ(reader_.run({"logout"}).status, 0);
  EXPECT_FALSE(std::filesystem::exists(file()));
  EXPECT_TRUE(walled());
}

TEST_F(AccountCommands, secretsAreNowhereButInTheAccountFile) {
  const std::string password = "lighthouse-7";
  std::ofstream(reader_.folder() / "secret") << password << "\n";
  ASSERT_EQ(outcome({"login", "premium@lantern.example", "--password-file",
                     (reader_.folder() / "secret").string()}),
            "loggedInAndPremium");
  std::filesystem::remove(reader_.folder() / "secret");
  std::vector<std::string> secrets = {password};
  const auto keepTokens = [&] {
    for (const char* key : {"accessToken", "refreshToken", "idToken"}) {
      secrets.push_back(stored()[key].get<std::string>());
    }
  };
  keepTokens();
  for (const char* command : {"entitlement", "refresh", "account", "stream"}) outcome({command});
  outcome({"unlink", "facebook"});
  outcome({"unlink", "facebook"});
  keepTokens();
  said_ += reader_.run({"account"}).out;
  EXPECT_NE(said_.find("••••"), std::string::npos);

  struct stat status {};
  ASSERT_EQ(::stat(file().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  for (const std::string& secret : secrets) {
    EXPECT_EQ(said_.find(secret), std::string::npos);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(reader_.folder())) {
      EXPECT_EQ(entry.path().string().find(secret), std::string::npos);
      if (!entry.is_regular_file() || entry.path() == file()) continue;
      std::ifstream in(entry.path(), std::ios::binary);
      const std::string bytes(std::istreambuf_iterator<char>(in), {});
      EXPECT_EQ(bytes.find(secret), std::string::npos) << entry.path();
    }
  }
}

TEST_F(AccountCommands, thePromptShowsNothingThatIsTyped) {
  ReaderRun run;
  run.arguments = {"login", "premium@lantern.example"};
  run.terminal = true;
  run.typeAfter = "Password: ";
  run.input = "lighthouse-7\n";
  const ReaderOutcome typed = reader_.run(run);
  EXPECT_EQ(typed.status, 0) << typed.error;
  EXPECT_EQ(typed.out.find("lighthouse"), std::string::npos);
  EXPECT_NE(typed.out.find("Logged in"), std::string::npos) << typed.out;
}

TEST_F(AccountCommands, aDamagedAccountFileIsNobodyLoggedIn) {
  for (const char* damage :
       {"", "{", "[1]", R"({"accessToken": 1, "refreshToken": "r"})", "\xff"}) {
    std::ofstream(file(), std::ios::trunc) << damage;
    EXPECT_EQ(outcome({"account"}), "");
    EXPECT_EQ(last_.status, 0) << last_.error;
    EXPECT_NE(last_.out.find("\"loggedIn\": false"), std::string::npos);
  }
  std::filesystem::remove(file());
  std::filesystem::create_directory(file());
  EXPECT_EQ(reader_.run({"article", "articles/harbour-barrier-vote"}).status, 0);
}

}  // namespace
}  // namespace paperloom
