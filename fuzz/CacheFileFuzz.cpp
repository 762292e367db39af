#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "paperloom/platform/URLCache.h"
#include "paperloom/platform/internal/cache/CacheEntryFormat.h"

// A cache file of any bytes is opened, read, written and cleared. The first byte says how the rest
// becomes the file: as it stands; as the head of one entry alone; or as changes to a file with two
// sound entries, three bytes each: where (two bytes) and what.
namespace {

using namespace paperloom;

constexpr std::int64_t megabyte = 1'048'576;

void require(bool holds) {
  if (!holds) std::abort();
}

const std::filesystem::path& folder() {
  static const std::filesystem::path path = [] {
    const char* shared = std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp";
    std::string name = std::string(shared) + "/paperloom-fuzz-XXXXXX";
    require(::mkdtemp(name.data()) != nullptr);
    static const std::string kept = name;
    std::atexit([] { std::filesystem::remove_all(kept); });
    return std::filesystem::path(name);
  }();
  return path;
}

URLRequest requestFor(const char* url) { return URLRequest(*URL::parse(url)); }

CachedURLResponse answer(std::size_t size) {
  return {{*URL::parse("http://a/"), 200, {{"ETag", "\"1\""}}},
          Data(std::string(size, 'x')),
          Date(),
          Date()};
}

const std::string& soundFile() {
  static const std::string bytes = [] {
    {
      URLCache cache(0, megabyte, folder());
      cache.storeCachedResponse(answer(100), requestFor("http://a/"));
      cache.storeCachedResponse(answer(5'000), requestFor("http://b/"));
    }
    std::ifstream in(folder() / "cache.sqlite", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }();
  return bytes;
}

void readHead(std::string_view bytes) {
  const auto head = internal::CacheHead::parse(bytes);
  if (!head) return;
  head->fitsBody(bytes);
  const auto read = head->answer();
  if (!read) return;
  // What can be read can be written, and says the same again.
  const internal::VaryKey vary{std::string(head->varyNames), std::string(head->varyDigest)};
  const internal::CacheKey key = internal::cacheKey(std::string(head->url));
  const std::string written = internal::encodeHead(key, vary, *read);
  require(written.size() == internal::encodedHeadSize(key, vary, *read));
  const auto again = internal::CacheHead::parse(written);
  require(again && again->answer() && again->answer()->response.headers == read->response.headers);
}

void useFile(const std::string& bytes) {
  for (const char* name : {"cache.sqlite", "cache.sqlite-wal", "cache.sqlite-shm"}) {
    std::filesystem::remove(folder() / name);
  }
  std::ofstream(folder() / "cache.sqlite", std::ios::binary) << bytes;
  URLCache cache(0, megabyte, folder());
  for (const char* url : {"http://a/", "http://b/"}) {
    const auto found = cache.cachedResponse(requestFor(url));
    if (found) require(found->data.view().find_first_not_of('x') == std::string_view::npos);
  }
  cache.entries();
  cache.storeCachedResponse(answer(20'000), requestFor("http://c/"));
  cache.removeCachedResponse(requestFor("http://a/"));
  cache.setDiskCapacity(megabyte / 2);
  cache.removeAllCachedResponses();
  require(cache.entries().empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 3) {
    case 0:
      useFile(std::string(rest));
      break;
    case 1:
      readHead(rest);
      break;
    default: {
      std::string bytes = soundFile();
      for (std::size_t i = 0; i + 3 <= rest.size(); i += 3) {
        const auto at =
            static_cast<unsigned char>(rest[i]) * 256U + static_cast<unsigned char>(rest[i + 1]);
        bytes[at % bytes.size()] = rest[i + 2];
      }
      useFile(bytes);
    }
  }
  return 0;
}
