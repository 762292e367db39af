#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <vector>

#include "tests/caching/CachingFixture.h"
#include "tests/support/Split.h"

namespace paperloom::test {
namespace {

using internal::CachePlan;
using internal::mayServeStaleOnError;
using internal::planRequest;
using std::chrono::seconds;

std::string textOf(const CachePlan& plan) {
  constexpr const char* actions[] = {"serve", "revalidate", "send", "504", "none"};
  std::string text = actions[static_cast<std::size_t>(plan.action)];
  if (plan.stale) text += " stale";
  if (plan.revalidateInBackground) text += " and refresh";
  text += ": " + plan.reason;
  std::string_view where = plan.where;
  if (where.starts_with("RFC 9111 section ")) where.remove_prefix(17);
  if (!where.empty()) text += " (" + std::string(where) + ")";
  for (const auto& [name, value] : plan.conditions) text += "; " + name + ": " + value;
  return text;
}

// "word; word; Name: value": the words and the fields.
struct Parts {
  explicit Parts(const std::string& text) {
    for (std::size_t from = 0; from < text.size();) {
      const std::size_t end = std::min(text.find("; ", from), text.size());
      const std::string part = text.substr(from, end - from);
      const std::size_t colon = part.find(": ");
      if (colon == std::string::npos) words.push_back(part);
      if (colon != std::string::npos) fields.add(part.substr(0, colon), part.substr(colon + 2));
      from = end + 2;
    }
    words.resize(2);
  }
  std::vector<std::string> words;
  HTTPHeaders fields;
};

// Each line: the request with its policy, the stored answer with the seconds since, the plan.
TEST(CachePlanTest, saysWhyAndByWhichTextOfTheRules) {
  using Policy = URLRequestCachePolicy;
  const std::map<std::string, Policy> policies = {
      {"", Policy::useProtocolCachePolicy},
      {"reloadIgnoring", Policy::reloadIgnoringLocalCacheData},
      {"reloadRevalidating", Policy::reloadRevalidatingCacheData},
      {"elseLoad", Policy::returnCacheDataElseLoad},
      {"dontLoad", Policy::returnCacheDataDontLoad}};
  std::ifstream lines(PAPERLOOM_PLANS);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    if (line.starts_with('#')) continue;
    const auto columns = split(line);
    ASSERT_EQ(columns.size(), 3U) << line;
    const Parts asked(columns[0]);
    URLRequest request = requestWith(asked.fields, asked.words[0]);
    const std::string older = "ifOlderThan=";
    if (asked.words[1].starts_with(older)) {
      request.refreshIfOlderThan = seconds(std::atoi(asked.words[1].c_str() + older.size()));
    } else {
      request.cachePolicy = policies.at(asked.words[1]);
    }
    const Parts kept(columns[1]);
    const CachedURLResponse entry = storedWith(kept.fields, std::atoi(kept.words[0].c_str()));
    const seconds elapsed(kept.words[1].empty() ? 5 : std::atoi(kept.words[1].c_str()));
    const auto* stored = columns[1] == "-" ? nullptr : &entry;
    EXPECT_EQ(textOf(planRequest(request, stored, noon + elapsed)), columns[2]) << line;
  }
  EXPECT_GT(count, 100);
}

TEST(CachePlanTest, countsTheTimeThatARequestTook) {
  CachedURLResponse slow = storedWith({{"Cache-Control", "max-age=60"}, {"Age", "20"}});
  slow.requestTime = noon - seconds(30);
  EXPECT_EQ(planRequest(requestWith({}), &slow, noon + seconds(5)).age, seconds(55));
}

TEST(StaleAnswerTest, standsInForAFailureOnlyWhereTheDirectivesAllowIt) {
  struct Case {
    const char* asked;
    const char* directed;
    std::optional<int> status;
    bool allowed;
  };
  for (const Case& c : {Case{"x", "max-age=60, stale-if-error=40", std::nullopt, true},
                        Case{"x", "max-age=60, stale-if-error=39", 503, false},
                        Case{"stale-if-error=40", "max-age=60", std::nullopt, true},
                        Case{"max-stale=40", "max-age=60", std::nullopt, true},
                        Case{"min-fresh=1", "max-age=60, stale-if-error=40", 503, false},
                        Case{"no-cache", "max-age=60, stale-if-error=40", 503, false},
                        Case{"x", "max-age=60, stale-if-error=40, must-revalidate", 503, false},
                        Case{"x", "max-age=60", std::nullopt, false}}) {
    const CachedURLResponse entry = storedWith({{"Cache-Control", c.directed}});
    EXPECT_EQ(mayServeStaleOnError(requestWith({{"Cache-Control", c.asked}}), entry,
                                   noon + seconds(100), c.status),
              c.allowed)
        << c.asked << " | " << c.directed;
  }
  const CachedURLResponse entry = storedWith({{"Cache-Control", "max-age=1, stale-if-error=99"}});
  const URLRequest account = requestWith({{"Authorization", "t"}});
  std::string errors;
  for (int status = 200; status < 600; ++status) {
    if (!mayServeStaleOnError(requestWith({}), entry, noon + seconds(9), status)) continue;
    errors += std::to_string(status) + " ";
  }
  EXPECT_EQ(errors, "500 502 503 504 ");
  EXPECT_TRUE(mayServeStaleOnError(requestWith({}), entry, noon, std::nullopt));
  EXPECT_FALSE(mayServeStaleOnError(account, entry, noon + seconds(9), 503));
  EXPECT_FALSE(mayServeStaleOnError(requestWith({}, "POST"), entry, noon, 503));
}

}  // namespace
}  // namespace paperloom::test
