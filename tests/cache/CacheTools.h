#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "paperloom/platform/URLCache.h"

namespace paperloom::test {

inline std::string url(int i) { return "http://host/" + std::to_string(i); }

inline URLRequest request(const std::string& url, HTTPHeaders headers = {}) {
  URLRequest made(*URL::parse(url));
  made.headers = std::move(headers);
  return made;
}

inline CachedURLResponse answer(const std::string& body, HTTPHeaders headers = {},
                                std::int64_t second = 1'700'000'000) {
  const Date time{std::chrono::seconds(second)};
  return {{*URL::parse("http://host/answer"), 200, std::move(headers)},
          Data(body),
          time,
          time + std::chrono::milliseconds(5)};
}

// The body kept for the URL; "(none)" without one.
inline std::string bodyOf(const URLCache& cache, const std::string& url, HTTPHeaders headers = {}) {
  const auto kept = cache.cachedResponse(request(url, std::move(headers)));
  return kept ? std::string(kept->data.view()) : "(none)";
}

// The same as far as it can be told at once; "(unknown)" where it cannot.
inline std::string toldAtOnce(const URLCache& cache, const std::string& url) {
  const auto known = cache.cachedResponseAtOnce(request(url));
  if (!known) return "(unknown)";
  return known->response ? std::string(known->response->data.view()) : "(none)";
}

// A body whose every part tells which URL and version it belongs to, so that a mixed-up or torn one
// is noticed.
inline std::string bodyFor(const std::string& url, int version, std::size_t size) {
  std::string body = url + "#" + std::to_string(version) + ":";
  std::size_t number = std::hash<std::string>{}(body);
  while (body.size() < size) {
    number = number * 6364136223846793005U + 1442695040888963407U;
    body += std::to_string(number >> 20) + ",";
  }
  body.resize(size);
  return body;
}

// All bytes of all files below the folder.
inline std::string bytesBelow(const std::filesystem::path& folder) {
  std::string all;
  for (const auto& each : std::filesystem::recursive_directory_iterator(folder)) {
    if (!each.is_regular_file()) continue;
    std::ifstream in(each.path(), std::ios::binary);
    all.append(std::istreambuf_iterator<char>(in), {});
  }
  return all;
}

constexpr std::int64_t megabyte = 1'048'576;

}  // namespace paperloom::test
