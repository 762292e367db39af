#pragma once

#include <chrono>
#include <string>

#include "paperloom/platform/internal/caching/CachePlan.h"
#include "paperloom/platform/internal/caching/Serving.h"
#include "paperloom/platform/internal/caching/Storing.h"

namespace paperloom::test {

inline const Date noon{std::chrono::sys_days(std::chrono::year(2024) / 3 / 1) +
                       std::chrono::hours(12)};

inline URL articleURL() { return *URL::parse("http://news.example/articles/1?page=2"); }

inline URLRequest requestWith(HTTPHeaders headers, std::string method = "GET") {
  URLRequest request(articleURL());
  request.headers = std::move(headers);
  request.method = std::move(method);
  return request;
}

inline HTTPURLResponse answerWith(HTTPHeaders headers, int status = 200) {
  return {articleURL(), status, std::move(headers)};
}

// Stored at noon, after a request that took no time.
inline CachedURLResponse storedWith(HTTPHeaders headers, int status = 200) {
  return {answerWith(std::move(headers), status), Data("0123456789"), noon, noon};
}

}  // namespace paperloom::test
