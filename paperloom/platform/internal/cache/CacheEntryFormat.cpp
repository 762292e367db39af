#include "paperloom/platform/internal/cache/CacheEntryFormat.h"

#include <algorithm>
#include <utility>

#include "paperloom/platform/internal/base/Checksum.h"

namespace paperloom::internal {
namespace {

constexpr std::size_t fixedSize = 4 * 8 + 4;
constexpr std::size_t lengthSize = 4;
constexpr std::size_t texts = 4;

// The years 1 to 9999, so that no later sum of times can overflow.
constexpr std::int64_t firstTime = -62135596800000;
constexpr std::int64_t lastTime = 253402300799999;

// Little endian, whatever the machine: a home folder may be carried to another.
void put(std::string& to, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) to += static_cast<char>((value >> (8 * i)) & 0xff);
}

void putText(std::string& to, std::string_view text) {
  put(to, text.size(), lengthSize);
  to += text;
}

class Reader {
 public:
  explicit Reader(std::string_view bytes) : left_(bytes) {}

  bool read(std::uint64_t& value, std::size_t bytes) {
    if (left_.size() < bytes) return false;
    value = 0;
    for (std::size_t i = bytes; i-- > 0;) {
      value = value << 8 | static_cast<unsigned char>(left_[i]);
    }
    left_.remove_prefix(bytes);
    return true;
  }

  bool readText(std::string_view& text) {
    std::uint64_t size = 0;
    if (!read(size, lengthSize) || left_.size() < size) return false;
    text = left_.substr(0, size);
    left_.remove_prefix(size);
    return true;
  }

  bool readTime(Date& time) {
    std::uint64_t bits = 0;
    if (!read(bits, 8)) return false;
    const auto milliseconds = static_cast<std::int64_t>(bits);
    time = Date(std::chrono::milliseconds(milliseconds));
    return milliseconds >= firstTime && milliseconds <= lastTime;
  }

  std::string_view rest() const { return left_; }

 private:
  std::string_view left_;
};

std::uint64_t timeBits(Date time) {
  const std::int64_t milliseconds = time.time_since_epoch().count();
  return static_cast<std::uint64_t>(std::min(std::max(milliseconds, firstTime), lastTime));
}

std::string_view withoutFragment(std::string_view url) { return url.substr(0, url.find('#')); }

// Where the answer came from; nothing when that is the key itself, which is nearly always.
std::string_view storedURL(const CacheKey& key, const CachedURLResponse& response) {
  const std::string& url = response.response.url.absoluteString();
  return url == key.url ? std::string_view() : std::string_view(url);
}

}  // namespace

CacheKey cacheKey(const URL& url) {
  return cacheKey(std::string(withoutFragment(url.absoluteString())));
}

CacheKey cacheKey(std::string url) {
  CacheKey key{std::move(url), 0};
  // A block of ids for each address, so that one range of the table holds all its variants.
  key.firstId = static_cast<std::int64_t>(checksum(key.url, 0) >> 5) * variantsPerURL;
  return key;
}

std::size_t encodedHeadSize(const CacheKey& key, const VaryKey& vary,
                            const CachedURLResponse& response) {
  std::size_t size = fixedSize + texts * lengthSize + key.url.size() +
                     storedURL(key, response).size() + vary.names.size() + vary.digest.size();
  for (const auto& [name, value] : response.response.headers) {
    size += 2 * lengthSize + name.size() + value.size();
  }
  return size;
}

std::string encodeHead(const CacheKey& key, const VaryKey& vary,
                       const CachedURLResponse& response) {
  std::string head;
  head.reserve(encodedHeadSize(key, vary, response));
  put(head, checksum(response.data.view(), 0), 8);
  put(head, response.data.size(), 8);
  put(head, timeBits(response.requestTime), 8);
  put(head, timeBits(response.responseTime), 8);
  put(head, static_cast<std::uint32_t>(response.response.statusCode), 4);
  putText(head, key.url);
  putText(head, storedURL(key, response));
  putText(head, vary.names);
  putText(head, vary.digest);
  for (const auto& [name, value] : response.response.headers) {
    putText(head, name);
    putText(head, value);
  }
  return head;
}

std::optional<CacheHead> CacheHead::parse(std::string_view bytes) {
  Reader reader(bytes);
  CacheHead head;
  std::uint64_t status = 0;
  const bool complete = reader.read(head.bodyChecksum, 8) && reader.read(head.bodySize, 8) &&
                        reader.readTime(head.requestTime) && reader.readTime(head.responseTime) &&
                        reader.read(status, 4) && reader.readText(head.url) &&
                        reader.readText(head.responseURL) && reader.readText(head.varyNames) &&
                        reader.readText(head.varyDigest);
  if (!complete || status > 999) return std::nullopt;
  head.statusCode = static_cast<int>(status);
  head.fields = reader.rest();
  return head;
}

bool CacheHead::fitsBody(std::string_view body) const {
  return body.size() == bodySize && checksum(body, 0) == bodyChecksum;
}

std::optional<CachedURLResponse> CacheHead::answer(const URL* known) const {
  const std::string_view text = responseURL.empty() ? url : responseURL;
  std::optional<URL> parsed;
  if (known != nullptr && known->absoluteString() == text) {
    parsed = *known;
  } else {
    parsed = URL::parse(text);
  }
  if (!parsed) return std::nullopt;
  CachedURLResponse result{{std::move(*parsed), statusCode, {}}, Data(), requestTime, responseTime};
  Reader reader(fields);
  while (!reader.rest().empty()) {
    std::string_view name;
    std::string_view value;
    if (!reader.readText(name) || !reader.readText(value)) return std::nullopt;
    result.response.headers.add(std::string(name), std::string(value));
  }
  return result;
}

}  // namespace paperloom::internal
