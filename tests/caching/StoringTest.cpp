#include <gtest/gtest.h>

#include "tests/caching/CachingFixture.h"

namespace paperloom::test {
namespace {

using namespace internal;
using std::chrono::seconds;

TEST(StoringTest, dependsOnMethodStatusAndDirectives) {
  struct Case {
    const char* directives;
    int status;
    bool stored;
    const char* asked = "x";
  };
  for (const Case& c :
       {Case{"max-age=0", 302, true}, Case{"private", 201, true}, Case{"public", 201, true},
        Case{"s-maxage=60", 503, false}, Case{"max-age=60", 599, true},
        Case{"max-age=60", 206, false}, Case{"max-age=60", 304, false},
        Case{"max-age=60", 100, false}, Case{"max-age=60, No-Store", 200, false},
        Case{"no-store, must-understand", 200, true},
        Case{"max-age=60, must-understand", 599, false},
        Case{"max-age=60", 200, false, "no-store"}}) {
    EXPECT_EQ(mayStore(requestWith({{"Cache-Control", c.asked}}),
                       answerWith({{"Cache-Control", c.directives}}, c.status), true),
              c.stored)
        << c.directives << " " << c.status;
  }
  EXPECT_TRUE(mayStore(requestWith({}), answerWith({{"Expires", "0"}}, 302), true));
  EXPECT_FALSE(mayStore(requestWith({}), answerWith({}), false));
  EXPECT_FALSE(mayStore(requestWith({}, "HEAD"), answerWith({}), true));
  for (const auto& [location, stored] : {std::pair{"?page=2", true}, std::pair{"/other", false}}) {
    const HTTPHeaders fields{{"Content-Location", location}, {"Cache-Control", "max-age=60"}};
    EXPECT_EQ(mayStore(requestWith({}, "POST"), answerWith(fields), true), stored);
  }
}

TEST(StoringTest, knowsTheStatusesThatMayBeGuessedAboutAndThoseThatItUnderstands) {
  std::string guessed;
  std::string understood;
  const HTTPHeaders mustUnderstand{{"Cache-Control", "max-age=9, must-understand"}};
  for (int status = 0; status < 1200; ++status) {
    const std::string text = std::to_string(status) + " ";
    if (mayStore(requestWith({}), answerWith({}, status), true)) guessed += text;
    if (mayStore(requestWith({}), answerWith(mustUnderstand, status), true)) understood += text;
  }
  EXPECT_EQ(guessed, "200 203 204 300 301 308 404 405 410 414 501 ");
  EXPECT_EQ(understood,
            "200 201 202 203 204 205 300 301 302 303 305 307 308 400 401 402 403 "
            "404 405 406 407 408 409 410 411 412 413 414 415 416 417 421 422 426 500 501 502 503 "
            "504 505 ");
}

TEST(StoringTest, leavesOutWhatBelongsToTheConnection) {
  const auto entry = entryToStore(answerWith({{"Connection", "a, B"},
                                              {"A", "1"},
                                              {"b", "2"},
                                              {"Keep-Alive", "x"},
                                              {"Transfer-Encoding", "chunked"},
                                              {"Proxy-Authenticate", "x"},
                                              {"Set-Cookie", "c=1"},
                                              {"Set-Cookie", "d=2"}}),
                                  Data("x"), noon, noon);
  EXPECT_EQ(entry.response.headers, (HTTPHeaders{{"Set-Cookie", "c=1"},
                                                 {"Set-Cookie", "d=2"},
                                                 {"Date", "Fri, 01 Mar 2024 12:00:00 GMT"}}));
}

TEST(ValidationTest, updatesEveryFieldButThoseOfTheStoredBytes) {
  const CachedURLResponse stored = storedWith({{"Age", "9"},
                                               {"Cache-Control", "max-age=1"},
                                               {"Content-Length", "10"},
                                               {"ETag", "\"a\""},
                                               {"Kept", "1"},
                                               {"Link", "1"},
                                               {"Link", "2"}});
  const auto entry = entryAfterValidation(stored,
                                          answerWith({{"cache-control", "max-age=60"},
                                                      {"Connection", "kept"},
                                                      {"Kept", "2"},
                                                      {"Content-Length", "0"},
                                                      {"Content-Encoding", "gzip"},
                                                      {"ETag", "\"b\""},
                                                      {"Link", "3"},
                                                      {"Link", "4"}},
                                                     304),
                                          noon + seconds(99), noon + seconds(100));
  EXPECT_EQ(entry.response.headers, (HTTPHeaders{{"Content-Length", "10"},
                                                 {"ETag", "\"a\""},
                                                 {"Kept", "1"},
                                                 {"Date", "Fri, 01 Mar 2024 12:01:40 GMT"},
                                                 {"cache-control", "max-age=60"},
                                                 {"Link", "3"},
                                                 {"Link", "4"}}));
  EXPECT_EQ(entry.data, stored.data);
  EXPECT_EQ(planRequest(requestWith({}), &entry, noon + seconds(150)).age, seconds(51));
}

TEST(ValidationTest, confirmsNoOtherAnswerThanTheOneThatItNames) {
  const HTTPHeaders both{{"ETag", "\"a\""}, {"Last-Modified", "x"}};
  const HTTPHeaders weak{{"ETag", "W/\"a\""}};
  const HTTPHeaders dated{{"Last-Modified", "x"}};
  struct Case {
    HTTPHeaders kept;
    HTTPHeaders received;
    bool toThePlansConditions;
    bool toTheCallersOwn;
  };
  for (const Case& c :
       {Case{both, {{"ETag", " \"a\""}}, true, true}, Case{both, {{"ETag", "\"b\""}}, false, false},
        Case{both, {{"ETag", "W/\"a\""}}, true, true},
        Case{both, {{"ETag", "W/\"b\""}}, false, false},
        Case{both, {{"ETag", "\"b\""}, {"Last-Modified", "x"}}, false, false},
        Case{both, {{"Last-Modified", "x"}}, true, true},
        Case{both, {{"Last-Modified", "y"}}, true, false}, Case{both, {}, true, false},
        Case{weak, {{"ETag", "\"a\""}}, true, true}, Case{weak, {{"ETag", "\"b\""}}, false, false},
        Case{dated, {{"ETag", "\"b\""}}, false, false},
        Case{dated, {{"ETag", "\"b\""}, {"Last-Modified", "x"}}, true, true}}) {
    CachePlan plan;
    const CachedURLResponse stored = storedWith(c.kept);
    const HTTPURLResponse notModified = answerWith(c.received, 304);
    const std::string row = c.received.empty() ? "nothing" : c.received.begin()->second;
    EXPECT_EQ(confirmsStored(plan, stored, notModified), c.toTheCallersOwn) << row;
    plan.action = CachePlan::Action::revalidate;
    EXPECT_EQ(confirmsStored(plan, stored, notModified), c.toThePlansConditions) << row;
  }
}

TEST(HeadTest, updatesTheStoredAnswerItDescribesAndRemovesAnother) {
  const CachedURLResponse stored = storedWith({{"ETag", "\"a\""}, {"Content-Length", "10"}});
  struct Case {
    HTTPHeaders fields;
    int status;
    HeadEffect effect;
  };
  for (const Case& c :
       {Case{{}, 200, HeadEffect::update},
        Case{{{"etag", "\"a\""}, {"Content-Length", "10"}}, 200, HeadEffect::update},
        Case{{{"ETag", "\"b\""}}, 200, HeadEffect::invalidate},
        Case{{{"Last-Modified", "x"}}, 200, HeadEffect::invalidate},
        Case{{{"Content-Length", "11"}}, 200, HeadEffect::invalidate},
        Case{{{"Cache-Control", "no-store"}}, 200, HeadEffect::invalidate},
        Case{{{"ETag", "\"b\""}}, 503, HeadEffect::none}}) {
    EXPECT_EQ(effectOfHead(stored, answerWith(c.fields, c.status)), c.effect);
  }
}

TEST(UnsafeRequestTest, invalidatesItsURLAndThoseOfTheSameOriginItNames) {
  struct Case {
    const char* method;
    int status;
    HTTPHeaders fields;
    std::vector<std::string> urls;
  };
  const std::string own = articleURL().absoluteString();
  for (const Case& c :
       {Case{"GET", 200, {}, {}}, Case{"POST", 400, {}, {}}, Case{"M-SEARCH", 204, {}, {own}},
        Case{"PUT",
             301,
             {{"Location", "../x"}, {"Content-Location", "http://NEWS.example:80/y"}},
             {own, "http://news.example/x", "http://NEWS.example:80/y"}},
        Case{"DELETE", 200, {{"Location", "https://news.example/x"}}, {own}},
        Case{
            "POST", 200, {{"Location", "//other.example/x"}, {"Content-Location", "%%"}}, {own}}}) {
    std::vector<std::string> urls;
    for (const URL& url :
         invalidatedURLs(requestWith({}, c.method), answerWith(c.fields, c.status)))
      urls.push_back(url.absoluteString());
    EXPECT_EQ(urls, c.urls) << c.method;
  }
}

TEST(StoredAnswerTest, carriesItsAgeAndHidesFieldsThatNeedValidation) {
  const auto stored = storedWith(
      {{"Age", "5"}, {"Cache-Control", "max-age=60, no-cache=\"set-cookie, b\""}, {"B", "1"}});
  const auto answer = answerFromStored(requestWith({}), stored, noon + seconds(30));
  EXPECT_EQ(answer.response.headers.all("Age"), std::vector<std::string_view>{"35"});
  EXPECT_FALSE(answer.response.headers.contains("B"));
  EXPECT_TRUE(answerFromStored(requestWith({}), stored, noon, true).response.headers.contains("B"));
  EXPECT_TRUE(answerFromStored(requestWith({}, "HEAD"), stored, noon).data.empty());
}

TEST(StoredAnswerTest, fitsTheCallersConditionsAndRange) {
  const std::string modified = "Fri, 01 Mar 2024 11:00:00 GMT";
  const std::string earlier = "Fri, 01 Mar 2024 10:59:59 GMT";
  const std::string laterAsAsctime = "Fri Mar  1 11:00:01 2024";
  const CachedURLResponse stored = storedWith(
      {{"ETag", "\"a\""}, {"Last-Modified", modified}, {"Date", "Fri, 01 Mar 2024 12:00:00 GMT"}});
  struct Case {
    HTTPHeaders asked;
    int status;
    const char* body;
    const char* range = "";
  };
  for (const Case& c : {
           Case{{{"If-None-Match", "\"x\", W/\"a\""}}, 304, ""},
           Case{{{"If-None-Match", "*"}}, 304, ""},
           Case{{{"If-None-Match", "\"x\""}, {"If-Modified-Since", modified}}, 200, "0123456789"},
           Case{{{"If-Modified-Since", laterAsAsctime}}, 304, ""},
           Case{{{"If-Modified-Since", earlier}}, 200, "0123456789"},
           Case{{{"If-Modified-Since", "soon"}}, 200, "0123456789"},
           Case{{{"Range", "bytes=2-4"}}, 206, "234", "bytes 2-4/10"},
           Case{{{"Range", "Bytes=8-99"}}, 206, "89", "bytes 8-9/10"},
           Case{{{"Range", "bytes=-3"}}, 206, "789", "bytes 7-9/10"},
           Case{{{"Range", "bytes=-99"}}, 206, "0123456789", "bytes 0-9/10"},
           Case{{{"Range", "bytes=10-"}}, 416, "", "bytes */10"},
           Case{{{"Range", "bytes=-0"}}, 416, "", "bytes */10"},
           Case{{{"Range", "bytes=4-2"}}, 200, "0123456789"},
           Case{{{"Range", "bytes=99999999999999999999-"}}, 200, "0123456789"},
           Case{{{"Range", "bytes=0-0"}, {"If-Range", "\"a\""}}, 206, "0", "bytes 0-0/10"},
           Case{{{"Range", "bytes=0-0"}, {"If-Range", "W/\"a\""}}, 200, "0123456789"},
           Case{{{"Range", "bytes=0-0"}, {"If-Range", modified}}, 206, "0", "bytes 0-0/10"},
           Case{{{"Range", "bytes=0-0"}, {"If-Range", laterAsAsctime}}, 200, "0123456789"},
       }) {
    const auto answer = answerFromStored(requestWith(c.asked), stored, noon);
    EXPECT_EQ(answer.response.statusCode, c.status) << c.asked.begin()->second;
    EXPECT_EQ(answer.data.view(), c.body) << c.asked.begin()->second;
    EXPECT_EQ(answer.response.headers.first("Content-Range").value_or(""), c.range);
  }
  const auto gone = storedWith({{"ETag", "\"a\""}}, 404);
  EXPECT_EQ(answerFromStored(requestWith({{"If-None-Match", "*"}}), gone, noon).response.statusCode,
            404);
}

}  // namespace
}  // namespace paperloom::test
