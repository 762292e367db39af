#include "paperloom/platform/UserDefaults.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <thread>
#include <vector>

#include "paperloom/platform/ApplicationDirectories.h"
#include "paperloom/testing/FullDisk.h"
#include "paperloom/testing/TemporaryFolder.h"
#include "tests/support/ChildProcess.h"

namespace paperloom::test {
namespace {

class UserDefaultsTest : public testing::Test {
 protected:
  TemporaryFolder folder_;
  const std::filesystem::path file_ = folder_.path() / "settings" / "defaults.sqlite";
};

TEST_F(UserDefaultsTest, synchronizedValuesAreThereForTheNextProcessAndAKilledOneLosesNone) {
  ChildProcess child([&] {
    UserDefaults defaults(file_);
    defaults.setDouble(1234567890.125, "time");
    defaults.setString("ä\n\"'", "name");
    defaults.setDouble(7, "gone");
    EXPECT_TRUE(defaults.synchronize());
    defaults.removeObject("gone");
    EXPECT_TRUE(defaults.synchronize());
    defaults.setDouble(1, "unsynchronized");
    if (!HasFailure()) ::raise(SIGKILL);
  });
  EXPECT_EQ(child.wait(), SIGKILL);
  const UserDefaults defaults(file_);
  EXPECT_EQ(defaults.doubleForKey("time"), 1234567890.125);
  EXPECT_EQ(defaults.stringForKey("name"), "ä\n\"'");
  EXPECT_EQ(defaults.doubleForKey("name"), 0.0);
  EXPECT_EQ(defaults.stringForKey("time"), std::nullopt);
  EXPECT_EQ(defaults.doubleForKey("gone"), 0.0);
  EXPECT_EQ(defaults.doubleForKey("unsynchronized"), 0.0);
  struct stat info {};
  ASSERT_EQ(::stat(file_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600U);
}

TEST_F(UserDefaultsTest, aRelativeFileStaysWhereItWasWhenTheProgramMoves) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.path());
  UserDefaults defaults("defaults.sqlite");
  std::filesystem::current_path(before);
  defaults.setDouble(1, "one");
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(UserDefaults(folder_.path() / "defaults.sqlite").doubleForKey("one"), 1.0);
}

TEST_F(UserDefaultsTest, writersInSeveralThreadsAndProcessesKeepEachOthersValues) {
  std::vector<ChildProcess> children;
  for (int process = 0; process < 3; ++process) {
    children.emplace_back([&] {
      std::vector<std::thread> threads;
      for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&, thread] {
          UserDefaults defaults(file_);
          for (int i = 0; i < 5; ++i) {
            const int number = process * 100 + thread * 10 + i;
            defaults.setDouble(number, std::to_string(number));
            EXPECT_TRUE(defaults.synchronize());
          }
        });
      }
      for (auto& thread : threads) thread.join();
    });
  }
  for (ChildProcess& child : children) EXPECT_EQ(child.wait(), 0);
  const UserDefaults defaults(file_);
  for (int number = 0; number < 300; ++number) {
    const bool written = number % 100 < 30 && number % 10 < 5;
    EXPECT_EQ(defaults.doubleForKey(std::to_string(number)), written ? number : 0.0);
  }
}

TEST_F(UserDefaultsTest, aChangeOfAnotherStoreIsSeenAtTheNextRead) {
  UserDefaults first(file_);
  UserDefaults second(file_);
  first.setDouble(1, "key");
  ASSERT_TRUE(first.synchronize());
  EXPECT_EQ(second.doubleForKey("key"), 1);
  second.setDouble(2, "key");
  ASSERT_TRUE(second.synchronize());
  EXPECT_EQ(first.doubleForKey("key"), 2);
}

TEST_F(UserDefaultsTest, aDamagedFileIsAnEmptyStoreAndIsSetAside) {
  std::string good;
  {
    UserDefaults defaults(file_);
    for (int i = 0; i < 300; ++i) defaults.setDouble(42, "key" + std::to_string(i));
    ASSERT_TRUE(defaults.synchronize());
    std::ifstream in(file_, std::ios::binary);
    good.assign(std::istreambuf_iterator<char>(in), {});
  }
  const std::pair<const char*, std::string> cases[] = {
      {"text", "not a database at all, but long enough to be read as one"},
      {"zero header", std::string(100, '\0') + good.substr(100)},
      {"cut", good.substr(0, good.size() / 2)},
      {"page overwritten", good.substr(0, 4096) + std::string(4096, '\x5a') + good.substr(8192)},
      {"schema overwritten", good.substr(0, 100) + std::string(3996, '\x5a') + good.substr(4096)},
  };
  for (const auto& [name, bytes] : cases) {
    SCOPED_TRACE(name);
    std::filesystem::remove(file_.string() + ".damaged");
    std::ofstream(file_, std::ios::binary | std::ios::trunc) << bytes;
    UserDefaults defaults(file_);
    EXPECT_EQ(defaults.doubleForKey("key299"), 0.0);
    defaults.setDouble(3, "new");
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_EQ(UserDefaults(file_).doubleForKey("new"), 3);
    std::ifstream in(file_.string() + ".damaged", std::ios::binary);
    EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(in), {}) == bytes);
  }
}

TEST_F(UserDefaultsTest, noChangedBitGivesAWrongValueOrKeepsLaterOnesFromBeingStored) {
  const auto key = [](int i) { return "key" + std::to_string(i); };
  {
    UserDefaults defaults(file_);
    for (int i = 1; i < 9; ++i) defaults.setDouble(i, key(i)), defaults.setString(key(i), key(-i));
    ASSERT_TRUE(defaults.synchronize());
  }
  std::ifstream in(file_, std::ios::binary);
  const std::string good(std::istreambuf_iterator<char>(in), {});
  // All of the header that says how to read and write the file, and some of everything else.
  std::vector<std::size_t> bits;
  for (const unsigned byte : {16U, 17U, 18U, 19U, 20U, 43U, 44U, 45U, 46U, 47U, 59U}) {
    for (unsigned bit = 0; bit < 8; ++bit) bits.push_back(byte * 8 + bit);
  }
  for (std::size_t bit = 0; bit < good.size() * 8; bit += 331) bits.push_back(bit);
  for (std::size_t byte = good.size() - 100; byte < good.size(); ++byte) bits.push_back(byte * 8);
  for (const std::size_t bit : bits) {
    SCOPED_TRACE(testing::Message() << "byte " << bit / 8 << " bit " << bit % 8);
    std::string bytes = good;
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << bit % 8));
    std::ofstream(file_, std::ios::binary | std::ios::trunc) << bytes;
    {
      UserDefaults defaults(file_);
      for (int i = 1; i < 9; ++i) {
        const double number = defaults.doubleForKey(key(i));
        EXPECT_TRUE(number == 0 || number == i) << number;
        EXPECT_EQ(defaults.stringForKey(key(-i)).value_or(key(i)), key(i));
      }
      defaults.setString(std::to_string(bit), "new");
      EXPECT_TRUE(defaults.synchronize());
    }
    EXPECT_EQ(UserDefaults(file_).stringForKey("new"), std::to_string(bit));
  }
}

TEST_F(UserDefaultsTest, aLinkIsNotFollowed) {
  UserDefaults other(folder_.path() / "other.sqlite");
  other.setDouble(1, "key");
  ASSERT_TRUE(other.synchronize());
  std::filesystem::create_directories(file_.parent_path());
  std::filesystem::create_symlink(folder_.path() / "other.sqlite", file_);
  UserDefaults defaults(file_);
  EXPECT_EQ(defaults.doubleForKey("key"), 0);
  defaults.setDouble(2, "key");
  EXPECT_FALSE(defaults.synchronize());
  EXPECT_EQ(defaults.doubleForKey("key"), 2);
  EXPECT_EQ(other.doubleForKey("key"), 1);
}

TEST_F(UserDefaultsTest, whatTheDiskRefusesStaysInMemoryAndIsWrittenLater) {
  // A file where the folder should be.
  std::ofstream(folder_.path() / "settings") << "in the way";
  UserDefaults defaults(file_);
  defaults.setDouble(5, "key");
  EXPECT_FALSE(defaults.synchronize());
  EXPECT_EQ(defaults.doubleForKey("key"), 5);
  std::filesystem::remove(folder_.path() / "settings");
  EXPECT_TRUE(defaults.synchronize());
  // The folder goes away under the open store.
  std::filesystem::remove_all(folder_.path() / "settings");
  defaults.setDouble(6, "key");
  EXPECT_TRUE(defaults.synchronize());
  {
    const FullDisk full(16384);
    defaults.setString(std::string(100000, 'x'), "long");
    EXPECT_FALSE(defaults.synchronize());
    EXPECT_EQ(defaults.doubleForKey("key"), 6);
    EXPECT_TRUE(defaults.stringForKey("long").has_value());
  }
  EXPECT_TRUE(defaults.synchronize());
  const UserDefaults next(file_);
  EXPECT_EQ(next.doubleForKey("key"), 6);
  EXPECT_EQ(next.stringForKey("long").value_or("").size(), 100000U);
}

TEST(ApplicationDirectoriesTest, liesBelowTheXdgFoldersUnlessTheHostSaysOtherwise) {
  const TemporaryFolder folder;
  const std::string root = folder.path();
  const struct {
    const char *xdg, *name, *chosen;
    std::string expected;
  } cases[] = {
      {"", "paperloom", "", root + "/home/.cache/paperloom"},
      {"relative", "news", "", root + "/home/.cache/news"},
      {"/xdg", "news", "", root + "/xdg/news"},
      {"/xdg", "news", "/own", root + "/own"},
      {"/xdg", "../up", "", root + "/xdg/news"},
      {"/xdg", "", "", root + "/xdg/news"},
  };
  ::setenv("HOME", (root + "/home").c_str(), 1);
  for (const auto& each : cases) {
    SCOPED_TRACE(each.expected);
    const std::string xdg = each.xdg;
    ::setenv("XDG_CACHE_HOME", (xdg.starts_with('/') ? root + xdg : xdg).c_str(), 1);
    ApplicationDirectories::setApplicationName(each.name);
    ApplicationDirectories::setCachesDirectory(*each.chosen != 0 ? root + each.chosen : "");
    EXPECT_EQ(ApplicationDirectories::cachesDirectory(), each.expected);
    struct stat info {};
    ASSERT_EQ(::stat(each.expected.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700U);
  }
  ApplicationDirectories::setCachesDirectory("");
}

}  // namespace
}  // namespace paperloom::test
