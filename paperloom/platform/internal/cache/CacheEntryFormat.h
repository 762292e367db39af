#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "paperloom/platform/URL.h"
#include "paperloom/platform/URLResponse.h"
#include "paperloom/platform/internal/caching/VaryKey.h"

// The bytes of a cache entry on disk, as docs/cache-format.md describes them: a head with
// everything but the body, and the body. Pure functions for bytes that nobody vouches for.
namespace paperloom::internal {

// The most variants kept of one URL.
constexpr int variantsPerURL = 16;

// What an answer is kept under: the URL without its fragment.
struct CacheKey {
  std::string url;
  // The first of the row ids that the variants of this URL share with the few other URLs that
  // happen to have the same checksum.
  std::int64_t firstId = 0;

  std::int64_t lastId() const { return firstId + variantsPerURL - 1; }
};
CacheKey cacheKey(const URL& url);
// For a text that has no fragment.
CacheKey cacheKey(std::string url);

// One kept answer, wherever it is.
struct CacheEntry {
  VaryKey vary;
  CachedURLResponse response;
  std::int64_t id = 0;    // its row; 0 when it is not on disk
  std::int64_t size = 0;  // of key, header and body
};

std::string encodeHead(const CacheKey& key, const VaryKey& vary, const CachedURLResponse& response);
// The size of what encodeHead() gives.
std::size_t encodedHeadSize(const CacheKey& key, const VaryKey& vary,
                            const CachedURLResponse& response);

// A head read in place: the views point into its bytes.
struct CacheHead {
  std::string_view url;
  std::string_view responseURL;  // empty when it is `url`
  std::string_view varyNames;
  std::string_view varyDigest;
  std::string_view fields;
  std::uint64_t bodyChecksum = 0;
  std::uint64_t bodySize = 0;
  int statusCode = 0;
  Date requestTime;
  Date responseTime;

  // Nothing for bytes that encodeHead() cannot have written; `fields` is not looked at.
  static std::optional<CacheHead> parse(std::string_view bytes);

  bool fitsBody(std::string_view body) const;
  // The answer, still without its body. Nothing when the URL or the fields make no sense. A
  // `known` URL equal to the entry's saves parsing it.
  std::optional<CachedURLResponse> answer(const URL* known = nullptr) const;
};

}  // namespace paperloom::internal
