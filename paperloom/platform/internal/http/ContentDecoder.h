#pragma once

#include <zlib.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "paperloom/platform/HTTPHeaders.h"

namespace paperloom::internal {

// The coding of a body (RFC 9110 section 8.4.1).
enum class ContentCoding { identity, gzip, deflate };

// Nothing when Content-Encoding names another coding, or more than one.
std::optional<ContentCoding> contentCoding(const HTTPHeaders& fields);

// Decodes one gzip body (RFC 1952, several members too) or deflate body (RFC 1950, or the bare
// RFC 1951 that some servers send) from untrusted bytes as they arrive. Memory is one window and
// one buffer, whatever the ratio. Bytes after the end of the stream are malformed.
class ContentDecoder {
 public:
  explicit ContentDecoder(ContentCoding coding);
  ~ContentDecoder();
  ContentDecoder(const ContentDecoder&) = delete;
  ContentDecoder& operator=(const ContentDecoder&) = delete;

  enum class Status { ok, malformed, tooLarge };
  // Appends to `out`, which never grows beyond `limit` bytes.
  Status decode(std::string_view bytes, std::string& out, std::int64_t limit);

  // Whether the stream came to its proper end, check sums included.
  bool hasEnded() const { return ended_; }
  bool isUntouched() const { return untouched_ && head_.empty(); }

 private:
  bool open(std::string_view firstBytes);
  Status inflateAll(std::string_view bytes, std::string& out, std::int64_t limit);

  const ContentCoding coding_;
  z_stream stream_{};
  bool open_ = false;
  bool ended_ = false;
  bool untouched_ = true;
  std::string head_;  // the first byte of a deflate body, until the second tells its format
  std::array<char, 64 * 1024> buffer_;
};

}  // namespace paperloom::internal
