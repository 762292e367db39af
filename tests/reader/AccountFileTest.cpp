#include <fcntl.h>
#include <sys/stat.h>

#include <future>

#include "paperloom/testing/ScriptedServer.h"
#include "tests/reader/AccountFixture.h"

// The account's file, which several commands share and which may be met in any state.

namespace paperloom::test {
namespace {

class AccountFileTest : public AccountFixture {
 protected:
  void write(const std::string& content) const {
    std::ofstream(file(), std::ios::trunc | std::ios::binary) << content;
  }

  // The names of the files that hold tokens.
  std::vector<std::string> filesWithSecrets() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(reader_.folder())) {
      if (!entry.is_regular_file()) continue;
      const std::string content = contentOf(entry.path());
      if (content.find("refreshToken\"") == std::string::npos) continue;
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

  std::size_t refreshesSent() const {
    std::size_t count = 0;
    for (const auto& request : service_->requests()) {
      count += request.target == "/identity/refreshToken" ? 1 : 0;
    }
    return count;
  }

  // Runs a command over another identity service.
  ReaderOutcome runAt(const ScriptedServer& service, ReaderRun run) const {
    run.arguments.insert(run.arguments.begin(),
                         {"--data-dir", reader_.folder().string(), "--content-url",
                          service_->baseURL(), "--identity-url", service.url("").absoluteString()});
    return test::runReader(run);
  }

  // Runs a command and does the deed while its first request waits for this answer.
  ReaderOutcome runMeanwhile(const std::string& command, const Script& answer,
                             const std::function<void()>& deed) const {
    ScriptedServer service([&](const auto& request) {
      Script script = {test::awaitRelease()};
      const auto& then =
          request.indexOnConnection == 1 && request.connection == 1 ? answer : test::answer("{}");
      script.insert(script.end(), then.begin(), then.end());
      return script;
    });
    ReaderRun run;
    run.arguments = {command};
    auto running = std::async(std::launch::async, [&] { return runAt(service, run); });
    while (service.requests().empty()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    deed();
    service.release();
    return running.get();
  }
};

const Script newTokens =
    test::answer(R"({"accessToken": "a2", "refreshToken": "r2", "idToken": "i2"})");

TEST_F(AccountFileTest, keepsTheLoginThroughRefreshesOfSeveralProcesses) {
  loginAsPremium();
  for (int round = 0; round < 6; ++round) {
    std::vector<std::future<ReaderOutcome>> running;
    for (const char* command : {"refresh", "entitlement", "refresh"}) {
      running.push_back(
          std::async(std::launch::async, [=, this] { return reader_.run({command}); }));
    }
    for (auto& each : running) EXPECT_EQ(each.get().error, "");
  }
  EXPECT_EQ(outcome({"refresh"}), "success");
}

TEST_F(AccountFileTest, anAnswerDoesNotUndoWhatAnotherCommandHasDoneMeanwhile) {
  const std::string other = loginAsReader();
  for (const char* command : {"entitlement", "refresh"}) {
    const std::string before = loginAsPremium();
    runMeanwhile(command, newTokens,
                 [&] { EXPECT_EQ(reader_.run({"logout"}).out, "Logged out.\n"); });
    EXPECT_FALSE(std::filesystem::exists(file())) << command;
    write(before);
    runMeanwhile(command, newTokens, [&] { write(other); });
    EXPECT_EQ(contentOf(file()), other) << command;
  }
}

TEST_F(AccountFileTest, aRefusedTokenThatAnotherLoginHasReplacedIsNotTheEnd) {
  const std::string good = loginAsPremium();
  JSON old = JSON::parse(good);
  old["refreshToken"] = "old";
  write(old.dump());
  const auto refused = test::answer("", "", "401 Unauthorized");
  EXPECT_EQ(runMeanwhile("refresh", refused, [&] { write(good); }).error, "");
  EXPECT_EQ(stored()["refreshToken"], JSON::parse(good)["refreshToken"]);
}

TEST_F(AccountFileTest, aRefreshIsNotBegunWithoutRoomForItsTokens) {
  const std::string before = loginAsPremium();
  service_->clearRequests();
  ReaderRun run{.arguments = {"refresh"}, .largestFile = before.size() + 100};
  const ReaderOutcome outcome = reader_.run(run);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.error, "error: cannot write " + file().string() + ": File too large\n");
  EXPECT_EQ(refreshesSent(), 0U);
  EXPECT_EQ(contentOf(file()), before);
  EXPECT_EQ(this->outcome({"refresh"}), "success");

  run.arguments = {"register", "new@lantern.example", "--first-name", "A", "--last-name", "L"};
  run.input = "tide-mill-1";
  EXPECT_EQ(reader_.run(run).error, "error: the account is made, but " + outcome.error.substr(7));
  EXPECT_EQ(this->outcome({"refresh"}), "success") << "the old account is whole";
}

TEST_F(AccountFileTest, aRefreshUnderWayIsKeptInSpiteOfControlC) {
  loginAsPremium();
  ScriptedServer service([](const auto& request) -> Script {
    if (request.method == "GET") return {test::hang()};
    Script script = {test::wait(std::chrono::milliseconds(300))};
    script.insert(script.end(), newTokens.begin(), newTokens.end());
    return script;
  });
  const ReaderRun run{.arguments = {"refresh"},
                      .interruptWhen = [&] { return !service.requests().empty(); }};
  EXPECT_EQ(runAt(service, run).status, 130);
  EXPECT_EQ(stored()["refreshToken"], "r2");
}

TEST_F(AccountFileTest, noEndByForceLeavesASecondFileOrHalfAnAccount) {
  const std::string password = (reader_.folder() / "password").string();
  std::ofstream(password) << "lighthouse-7";
  const std::string before = loginAsReader();
  const std::vector<std::string> login = {"login", "premium@lantern.example", "--password-file",
                                          password};
  const struct {
    std::vector<std::string> command;
    bool isLoggedIn;  // before it
    int leastOperations;
  } rows[] = {{login, true, 8}, {login, false, 4}, {{"refresh"}, true, 12}, {{"logout"}, true, 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.command[0]);
    int operation = 0;
    for (bool killed = true; killed; ++operation) {
      row.isLoggedIn ? write(before) : static_cast<void>(std::filesystem::remove(file()));
      if (row.command[0] == "refresh") loginAsReader();  // the token goes with each
      killed = reader_.runUntil(row.command, operation, "account.");
      const auto files = filesWithSecrets();
      EXPECT_TRUE(files.empty() || files == std::vector<std::string>{"account.json"})
          << operation << ": " << ::testing::PrintToString(files);
      const ReaderOutcome account = reader_.run({"--json", "account"});
      const bool loggedIn = JSON::parse(account.out)["loggedIn"];
      EXPECT_TRUE(loggedIn || !row.isLoggedIn || row.command[0] == "logout") << operation;
    }
    EXPECT_GT(operation, row.leastOperations);
  }
}

TEST_F(AccountFileTest, holdsTheLastTextThatIsWhole) {
  const std::string premium = loginAsPremium();
  const std::string reader = loginAsReader();
  const std::string gap(3, '\n');
  const struct {
    std::string content;
    std::string identifier;  // none: nobody is logged in
  } rows[] = {
      {"", ""},
      {"{", ""},
      {"[1]", ""},
      {R"({"accessToken": 1, "refreshToken": "r"})", ""},
      {"\xff", ""},
      {std::string(100, '\0'), ""},
      {premium + gap + reader, "reader@lantern.example"},
      {premium.substr(0, 50) + reader.substr(50) + gap + premium, "premium@lantern.example"},
      {premium + gap + reader.substr(0, 200), "premium@lantern.example"},
      {premium + gap + reader.substr(0, 200) + std::string(99, '\0'), "premium@lantern.example"},
      {"{\"a\": \n\n" + premium + gap + "{", "premium@lantern.example"},
      {premium + std::string(5000, '\n'), "premium@lantern.example"},
  };
  for (const auto& row : rows) {
    write(row.content);
    const ReaderOutcome account = reader_.run({"--json", "account"});
    EXPECT_EQ(account.status, 0) << account.error;
    EXPECT_EQ(JSON::parse(account.out).value("identifier", ""), row.identifier) << row.content;
    if (row.identifier.empty()) continue;
    EXPECT_EQ(reader_.run({"entitlement"}).error, "") << row.content;
    EXPECT_EQ(stored()["identifier"], row.identifier) << "is tidy again";
  }
}

TEST_F(AccountFileTest, whatAnEndByForceOnceLeftIsRemoved) {
  const auto leave = [&] {
    for (const char* name : {".paperloom-Ab3xYz", ".paperloom-000000", "demo-account.json"}) {
      std::ofstream(reader_.folder() / name) << R"({"refreshToken": "r"})";
    }
  };
  leave();
  std::ofstream(reader_.folder() / ".paperloom-notes") << "somebody's own";
  loginAsPremium();
  EXPECT_EQ(filesWithSecrets(), std::vector<std::string>{"account.json"});
  leave();
  EXPECT_EQ(reader_.run({"logout"}).status, 0);
  EXPECT_EQ(filesWithSecrets(), std::vector<std::string>{});
  EXPECT_TRUE(std::filesystem::exists(reader_.folder() / ".paperloom-notes"));
}

TEST_F(AccountFileTest, isForItsOwnerAloneWhateverItWasBefore) {
  write("{}");
  ::chmod(file().c_str(), 0644);
  loginAsPremium();
  struct stat status {};
  ASSERT_EQ(::stat(file().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  std::filesystem::create_hard_link(file(), reader_.folder() / "link");
  const std::string error = reader_.run({"refresh"}).error;
  EXPECT_EQ(error, "error: cannot write " + file().string() + ": it is not this user's alone\n");
}

TEST_F(AccountFileTest, isARegularFileAsIsEveryOtherOfTheReader) {
  const Reader embedded;  // which remembers a port
  const struct {
    std::string file;
    const Reader& reader;
    std::vector<std::vector<std::string>> commands;
  } rows[] = {
      {"account.json",
       reader_,
       {{"account"}, {"entitlement"}, {"logout"}, {"login", "premium@lantern.example"}}},
      {"account.lock", reader_, {{"logout"}, {"login", "premium@lantern.example"}}},
      {"front-page", reader_, {{"article", "1"}}},
      {"sample-port", embedded, {{"config"}}},
  };
  const std::pair<std::string, std::function<void(const std::string&)>> kinds[] = {
      {"it is not a regular file", [](const auto& path) { ::mkfifo(path.c_str(), 0600); }},
      {"it is not a regular file", [](const auto& path) { ::mkdir(path.c_str(), 0700); }},
      {"it is not a regular file",
       [](const auto& path) { std::filesystem::create_symlink("/dev/zero", path); }},
      {"it is larger than 1 MB",
       [](const auto& path) {
         std::ofstream(path) << "x";
         std::filesystem::resize_file(path, (1 << 20) + 1);
       }},
  };
  for (const auto& row : rows) {
    const std::string path = (row.reader.folder() / row.file).string();
    for (const auto& [reason, make] : kinds) {
      for (const auto& command : row.commands) {
        std::filesystem::remove_all(path);
        make(path);
        const ReaderOutcome outcome = row.reader.run(command, "lighthouse-7");
        const bool removes =
            command[0] == "logout" && row.file == "account.json" &&
            (std::filesystem::symlink_status(path).type() == std::filesystem::file_type::not_found);
        if (removes) continue;  // what has the name goes, unless it is somebody's folder
        EXPECT_EQ(outcome.status, 1) << command[0] << " " << path;
        EXPECT_NE(outcome.error.find(path + ": " + reason), std::string::npos) << outcome.error;
      }
    }
    std::filesystem::remove_all(path);
  }
  std::filesystem::create_directory(file());
  EXPECT_EQ(reader_.run({"article", "articles/harbour-barrier-vote"}).status, 0);
}

TEST_F(AccountFileTest, aLockThatIsNotLetGoEndsTheWaitWithASentence) {
  loginAsPremium();
  const std::string lock = (reader_.folder() / "account.lock").string();
  const int held = ::open(lock.c_str(), O_RDWR | O_CLOEXEC);
  struct flock whole {};
  whole.l_type = F_WRLCK;
  ASSERT_EQ(::fcntl(held, F_OFD_SETLK, &whole), 0);
  const std::string error = reader_.run({"logout"}).error;
  EXPECT_EQ(error, "error: another paperloom holds " + lock + "; try again when it has ended\n");
  ::close(held);
  EXPECT_EQ(reader_.run({"logout"}).error, "");
}

}  // namespace
}  // namespace paperloom::test
