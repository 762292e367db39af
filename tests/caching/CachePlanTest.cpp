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
using Action = CachePlan::Action;

const std::string noonText = "Fri, 01 Mar 2024 12:00:00 GMT";
const std::string hourAgo = "Fri, 01 Mar 2024 11:00:00 GMT";
const std::string hourLater = "Fri, 01 Mar 2024 13:00:00 GMT";
constexpr seconds year = std::chrono::hours(24 * 365);

CachePlan planAfter(seconds elapsed, const HTTPHeaders& stored, const HTTPHeaders& asked = {},
                    int status = 200) {
  const CachedURLResponse entry = storedWith(stored, status);
  return planRequest(requestWith(asked), &entry, noon + elapsed);
}

TEST(Freshness, followsTheFieldsOfTheAnswer) {
  struct Case {
    HTTPHeaders fields;
    seconds elapsed;
    bool fresh;
    int status = 200;
  };
  const std::string cc = "Cache-Control";
  const Case cases[] = {
      {{{cc, "max-age=60"}}, seconds(59), true},
      {{{cc, "max-age=60"}}, seconds(60), false},
      {{{cc, "x, MAX-age=\"60\""}, {"Expires", "0"}}, seconds(30), true},
      {{{cc, "max-age=0"}, {"Expires", hourLater}}, seconds(0), false},
      {{{cc, "s-maxage=600, max-age=60"}}, seconds(70), false},
      {{{cc, "s-maxage=0, max-age=60"}}, seconds(30), true},
      {{{cc, "max-age=99999999999999999999"}}, year, true},
      {{{cc, "max-age=60, max-age=060"}}, seconds(30), true},
      {{{cc, "max-age=60"}, {cc, "max-age=600"}}, seconds(1), false},
      {{{cc, "x=\"max-age=600\", max-age=1"}}, seconds(2), false},
      {{{cc, "x=\"open, max-age=60"}}, seconds(30), true},
      {{{"Expires", hourLater}, {"Date", noonText}}, seconds(3599), true},
      {{{"Expires", hourLater}, {"Date", noonText}}, seconds(3600), false},
      {{{"Expires", hourLater}, {"Date", "foo"}}, seconds(3599), true},
      {{{"Expires", hourLater}, {"Expires", hourAgo}}, seconds(0), false},
      {{{"Expires", "Fri, 01 Mar 2094 12:00:00 EST"}}, seconds(0), false},
      // A fast server clock, then a slow one.
      {{{"Expires", hourLater}, {"Date", hourLater}}, seconds(0), false},
      {{{cc, "max-age=60"}, {"Date", hourLater}}, seconds(59), true},
      {{{cc, "max-age=60"}, {"Date", hourAgo}}, seconds(0), false},
      // Heuristics: a tenth of an hour, of a century a day; only for the statuses that allow it.
      {{{"Last-Modified", hourAgo}}, seconds(359), true},
      {{{"Last-Modified", hourAgo}}, seconds(360), false},
      {{{"Last-Modified", "Thu, 01 Mar 1924 11:00:00 GMT"}}, seconds(86400), false},
      {{{"Last-Modified", hourLater}}, seconds(0), false},
      {{{"Last-Modified", hourAgo}}, seconds(1), true, 404},
      {{{"Last-Modified", hourAgo}}, seconds(1), false, 503},
      {{{"Last-Modified", hourAgo}, {cc, "public"}}, seconds(1), true, 503},
      {{}, seconds(0), false},
      // Our own clock: forward by years, back by a moment, back by years.
      {{{cc, "max-age=60"}}, 20 * year, false},
      {{{cc, "max-age=60"}}, seconds(-60), true},
      {{{cc, "max-age=60"}}, seconds(-61), false},
      {{{cc, "max-age=60"}}, -20 * year, false},
  };
  for (const Case& c : cases) {
    const auto plan = planAfter(c.elapsed, c.fields, {}, c.status);
    EXPECT_EQ(plan.action == Action::serveStored, c.fresh) << plan.reason;
  }
  for (const char* malformed : {"max-age", "max-age=", "max-age=-60", "max-age='60'", "max-age=a60",
                                "max-age=60a", "max-age=60.0", "max-age =60", "max-age= 60"}) {
    EXPECT_EQ(planAfter(seconds(0), {{cc, malformed}, {"Expires", hourLater}}).action, Action::send)
        << malformed;
  }
}

TEST(Freshness, countsTheFirstAgeThatAnAnswerArrivesWithAndIgnoresWhatIsNone) {
  struct Case {
    std::vector<const char*> lines;
    bool fresh;
  };
  for (const Case& c : {Case{{"3599"}, true},    {{"3600"}, false},
                        {{"7200, 0"}, false},    {{"7200 ,0"}, false},
                        {{"0, 7200"}, true},     {{"0, 0"}, true},
                        {{"0, abc"}, true},      {{", 7200"}, true},
                        {{"7200", "0"}, false},  {{"0", "7200"}, true},
                        {{"abc", "7200"}, true}, {{"2147483647"}, false},
                        {{"2147483648"}, false}, {{"99999999999999999999"}, false},
                        {{"abc"}, true},         {{"-7200"}, true},
                        {{"7200.0"}, true},      {{"7200;a=1"}, true},
                        {{"\"7200\""}, true},    {{""}, true}}) {
    HTTPHeaders fields{{"Cache-Control", "max-age=3600"}};
    for (const char* line : c.lines) fields.add("Age", line);
    const auto plan = planAfter(seconds(0), fields);
    EXPECT_EQ(plan.action == Action::serveStored, c.fresh) << c.lines.front() << plan.reason;
  }
  CachedURLResponse slow = storedWith({{"Cache-Control", "max-age=60"}, {"Age", "20"}});
  slow.requestTime = noon - seconds(30);
  EXPECT_EQ(planRequest(requestWith({}), &slow, noon + seconds(5)).age, seconds(55));
}

TEST(Plan, obeysTheDirectivesOfBothSides) {
  struct Case {
    const char* asked;
    const char* directed;
    seconds elapsed;
    Action action;
    bool stale = false;
  };
  const Case cases[] = {
      {"max-age=10", "max-age=60", seconds(9), Action::serveStored},
      {"max-age=10", "max-age=60", seconds(10), Action::revalidate},
      {"max-age=x", "max-age=60", seconds(0), Action::revalidate},
      {"max-age=0", "max-age=60, immutable", seconds(9), Action::serveStored},
      {"max-age=0", "max-age=60, immutable", seconds(60), Action::revalidate},
      {"no-cache", "max-age=60, immutable", seconds(9), Action::revalidate},
      {"min-fresh=20", "max-age=60", seconds(40), Action::serveStored},
      {"min-fresh=20", "max-age=60", seconds(41), Action::revalidate},
      {"max-stale=10", "max-age=60", seconds(70), Action::serveStored, true},
      {"max-stale=10", "max-age=60", seconds(71), Action::revalidate},
      {"max-stale=-1", "max-age=60", seconds(70), Action::revalidate},
      {"max-stale", "max-age=60, must-revalidate", seconds(61), Action::revalidate},
      {"max-stale", "max-age=60, proxy-revalidate", seconds(61), Action::serveStored, true},
      {"max-stale", "max-age=60, no-cache", seconds(1), Action::revalidate},
      {"max-stale", "max-age=60, no-cache=\"set-cookie\"", seconds(1), Action::serveStored},
      {"max-stale", "max-age=60, no-cache=\"\"", seconds(1), Action::revalidate},
      {"only-if-cached", "max-age=60", seconds(1), Action::serveStored},
      {"only-if-cached, no-store", "max-age=60", seconds(1), Action::gatewayTimeout},
      {"x", "max-age=60, stale-while-revalidate=9", seconds(68), Action::serveStored, true},
      {"x", "max-age=60, stale-while-revalidate=9", seconds(69), Action::revalidate},
      {"max-age=99", "max-age=60, stale-while-revalidate=9", seconds(61), Action::revalidate},
      {"x", "max-age=1, stale-while-revalidate=9, must-revalidate", seconds(2), Action::revalidate},
  };
  for (const Case& c : cases) {
    const auto plan = planAfter(c.elapsed, {{"Cache-Control", c.directed}, {"ETag", "\"a\""}},
                                {{"Cache-Control", c.asked}});
    EXPECT_EQ(plan.action, c.action) << c.asked << " | " << c.directed << " | " << plan.reason;
    EXPECT_EQ(plan.stale, c.stale) << plan.reason;
  }
}

TEST(Plan, guessesNoFreshnessAndServesNothingStaleWhereAnAccountIsConcerned) {
  const HTTPHeaders account{{"Authorization", "t"}};
  const HTTPHeaders impatient{{"Authorization", "t"}, {"Cache-Control", "max-stale"}};
  const HTTPHeaders guessed{{"Last-Modified", hourAgo}};
  const HTTPHeaders lasting{{"Cache-Control", "max-age=60, stale-while-revalidate=99"}};
  struct Case {
    HTTPHeaders asked;
    HTTPHeaders stored;
    seconds elapsed;
    bool served;
  };
  for (const Case& c : {Case{{}, guessed, seconds(1), true},
                        {account, guessed, seconds(1), false},
                        {account, lasting, seconds(1), true},
                        {{}, lasting, seconds(61), true},
                        {account, lasting, seconds(61), false},
                        {impatient, lasting, seconds(61), false}}) {
    const auto plan = planAfter(c.elapsed, c.stored, c.asked);
    EXPECT_EQ(plan.action == Action::serveStored, c.served) << plan.reason;
  }
  const CachedURLResponse entry = storedWith({{"Cache-Control", "max-age=1, stale-if-error=99"}});
  EXPECT_TRUE(mayServeStaleOnError(requestWith({}), entry, noon + seconds(9), 503));
  EXPECT_FALSE(mayServeStaleOnError(requestWith(account), entry, noon + seconds(9), 503));
}

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
TEST(Plan, saysWhyAndByWhichTextOfTheRules) {
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
    const auto columns = split(line);
    ASSERT_EQ(columns.size(), 3U) << line;
    const Parts asked(columns[0]);
    URLRequest request = requestWith(asked.fields, asked.words[0]);
    request.cachePolicy = policies.at(asked.words[1]);
    const Parts kept(columns[1]);
    const CachedURLResponse entry = storedWith(kept.fields, std::atoi(kept.words[0].c_str()));
    const seconds elapsed(kept.words[1].empty() ? 5 : std::atoi(kept.words[1].c_str()));
    const auto* stored = columns[1] == "-" ? nullptr : &entry;
    EXPECT_EQ(textOf(planRequest(request, stored, noon + elapsed)), columns[2]) << line;
  }
  EXPECT_EQ(count, 44);
}

TEST(StaleAnswer, standsInForAFailureOnlyWhereTheDirectivesAllowIt) {
  struct Case {
    const char* asked;
    const char* directed;
    std::optional<int> status;
    bool allowed;
  };
  for (const Case& c : {Case{"x", "max-age=60, stale-if-error=40", std::nullopt, true},
                        Case{"x", "max-age=60, stale-if-error=40", 503, true},
                        Case{"x", "max-age=60, stale-if-error=40", 404, false},
                        Case{"x", "max-age=60, stale-if-error=39", 503, false},
                        Case{"stale-if-error=40", "max-age=60", std::nullopt, true},
                        Case{"no-cache", "max-age=60, stale-if-error=40", 503, false},
                        Case{"x", "max-age=60, stale-if-error=40, must-revalidate", 503, false},
                        Case{"x", "max-age=60", std::nullopt, false}}) {
    const CachedURLResponse entry = storedWith({{"Cache-Control", c.directed}});
    EXPECT_EQ(mayServeStaleOnError(requestWith({{"Cache-Control", c.asked}}), entry,
                                   noon + seconds(100), c.status),
              c.allowed)
        << c.asked << " | " << c.directed;
  }
}

}  // namespace
}  // namespace paperloom::test
