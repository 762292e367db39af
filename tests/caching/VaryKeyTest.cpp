#include "paperloom/platform/internal/caching/VaryKey.h"

#include <gtest/gtest.h>

namespace paperloom::test {
namespace {

using internal::varyKey;
using internal::VaryMatcher;

TEST(VaryKeyTest, fitsTheRequestsThatSayTheSameInTheFieldsThatVaryNames) {
  const struct {
    const char* vary;
    HTTPHeaders storedFor, askedWith;
    bool fits;
  } cases[] = {
      {"", {{"A", "1"}}, {{"A", "2"}}, true},
      {"A", {{"A", "1"}}, {{"A", "1"}}, true},
      {"A", {{"A", "1"}}, {{"A", "2"}}, false},
      {"A", {{"A", "1"}}, {}, false},
      {"A", {{"A", ""}}, {}, false},
      {"A", {}, {}, true},
      {"A", {{"B", "1"}}, {{"B", "2"}}, true},
      {"*", {}, {}, true},
      {"A, *", {{"A", "1"}}, {{"A", "2"}}, true},
      {"*", {{"Authorization", "mine"}}, {{"Authorization", "yours"}}, false},
      {"a , b", {{"B", "2"}, {"A", "1"}}, {{"a", "1"}, {"b", "2"}}, true},
      {"A", {{"A", "1,2"}}, {{"A", " 1 ,  2 "}}, true},
      {"A", {{"A", "1, 2"}}, {{"A", "1"}, {"a", "2"}}, true},
      {"A", {{"A", "1, 2"}}, {{"A", "2, 1"}}, false},
      {"A", {{"A", "x"}}, {{"A", "X"}}, false},
      {"A", {{"A", "\"1,2\""}}, {{"A", "\"1, 2\""}}, false},
      {"A, B", {{"A", "12"}, {"B", "3"}}, {{"A", "1"}, {"B", "23"}}, false},
      {"A, B", {{"A", "1"}}, {{"B", "1"}}, false},
      {"A, B", {{"A", "1, 2"}, {"B", "3"}}, {{"A", "1"}, {"B", "2, 3"}}, false},
      {"Accept-Language",
       {{"Accept-Language", "de, en;q=0.5"}},
       {{"Accept-Language", "EN; q=0.5,DE"}},
       true},
      {"Accept-Language", {{"Accept-Language", "de"}}, {{"Accept-Language", "en"}}, false},
      {"Accept", {{"Accept", "a/b, c/d"}}, {{"Accept", "c/d,\tA/B"}}, true},
      {"Accept-Charset", {{"Accept-Charset", "a, b"}}, {{"Accept-Charset", "b, a"}}, true},
      {"Accept-Encoding", {{"Accept-Encoding", "a, b"}}, {{"Accept-Encoding", "b, a"}}, true},
      {"Accept-Encodings", {{"Accept-Encodings", "a, b"}}, {{"Accept-Encodings", "b, a"}}, false},
      {"B, a, A", {{"A", "1"}, {"B", "2"}}, {{"B", "2"}, {"A", "1"}}, true},
      {"", {{"Authorization", "mine"}}, {{"authorization", "mine"}}, true},
      {"", {{"Authorization", "mine"}}, {{"Authorization", "yours"}}, false},
      {"", {{"Authorization", "mine"}}, {}, false},
      {"", {}, {{"Authorization", "mine"}}, true},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(testing::Message() << &each - cases << " " << each.vary);
    const auto key = varyKey({{"Vary", each.vary}}, each.storedFor);
    ASSERT_TRUE(key);
    VaryMatcher matcher(each.askedWith);
    for (int again = 0; again < 2; ++again) {
      EXPECT_EQ(matcher.matches(key->names, key->digest), each.fits);
      EXPECT_FALSE(matcher.matches("other", key->digest));
      EXPECT_FALSE(matcher.matches("other", ""));
    }
  }
}

}  // namespace
}  // namespace paperloom::test
