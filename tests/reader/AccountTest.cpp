#include <sys/stat.h>

#include "tests/reader/AccountFixture.h"

namespace paperloom::test {
namespace {

using AccountTest = AccountFixture;

TEST_F(AccountTest, outcomesAreTheOperationsOwn) {
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
      {{"unlink", "email"}, "", "", 2},  // which address?
      {{"login", "reader@lantern.example"}, "breakwater-3\n", "loggedInAndNotPremium", 0},
      {{"entitlement"}, "", "notPremium", 0},
      {{"refresh"}, "", "success", 0},
      {{"unlink", "google"}, "", "success", 0},
      {{"unlink", "google"}, "", "networkError", 1},  // no such link any more
      {{"unlink", "google", "--email", "a@b"}, "", "", 2},
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

TEST_F(AccountTest, theWallOpensForThoseEntitledAndAfterLogoutNoMore) {
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

TEST_F(AccountTest, secretsAreNowhereButInTheAccountFile) {
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
      EXPECT_EQ(contentOf(entry.path()).find(secret), std::string::npos) << entry.path();
    }
  }
}

TEST_F(AccountTest, thePromptShowsNothingThatIsTyped) {
  const ReaderRun run{.arguments = {"login", "premium@lantern.example"},
                      .input = "lighthouse-7\n",
                      .terminal = true,
                      .typeAfter = "Password: "};
  const ReaderOutcome typed = reader_.run(run);
  EXPECT_EQ(typed.status, 0) << typed.error;
  EXPECT_EQ(typed.out.find("lighthouse"), std::string::npos);
  EXPECT_NE(typed.out.find("Logged in"), std::string::npos) << typed.out;
}

TEST_F(AccountTest, aPasswordIsTheFirstLineOfWhatIsGiven) {
  for (const char* input :
       {"lighthouse-7", "lighthouse-7\nmore", "lighthouse-7\r\n\n", "\xEF\xBB\xBFlighthouse-7\n"}) {
    ReaderRun run;
    run.arguments = {"login", "premium@lantern.example"};
    run.input = input;
    run.inputStaysOpen = run.input.find('\n') != std::string::npos;
    EXPECT_EQ(reader_.run(run).error, "") << input;
  }
}

TEST_F(AccountTest, failuresSayWhatIsTrueAndWhatToDo) {
  const struct {
    std::vector<std::string> arguments;
    std::string faults;
    std::string error;
  } rows[] = {
      {{"login", "answer-500@lantern.example"}, "", "the login failed; nothing has changed"},
      {{"register", "garbled@lantern.example", "--first-name", "A", "--last-name", "L"},
       "",
       "failed: the service gave no usable answer; the account may or may not be made"},
      {{"login", "expired@lantern.example"}, "", ""},
      {{"unlink", "google"},
       "",
       "networkError: Response code 401, the access token is no longer accepted; refresh first"},
      {{"entitlement"},
       "status=/identity/entitlement:500",
       "otherFailure: the entitlement could not be learned; what was known stays"},
      {{"refresh"},
       "status=/identity/entitlement:500",
       "otherFailure: the tokens are new, but the entitlement could not be learned"},
      {{"refresh"}, "", ""},  // with these tokens
      {{"refresh"},
       "status=/identity/refreshToken:500",
       "otherFailure: the tokens could not be refreshed"},
  };
  for (const auto& row : rows) {
    service_->setFaults(*sample::FaultPlan::parse(row.faults));
    const ReaderOutcome outcome = reader_.run(row.arguments, "lowtide-5\n");
    EXPECT_EQ(outcome.error, row.error.empty() ? "" : "error: " + row.error + "\n");
  }
}

}  // namespace
}  // namespace paperloom::test
