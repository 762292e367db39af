#pragma once

#include <brotli/decode.h>
#include <zlib.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "paperloom/platform/HTTPHeaders.h"
#include "paperloom/platform/internal/http/BodyBuffer.h"

namespace paperloom::internal {

// The coding of a body (RFC 9110 section 8.4.1).
enum class ContentCoding { identity, gzip, deflate, brotli };

// Nothing when Content-Encoding names another coding, or more than one.
std::optional<ContentCoding> contentCoding(const HTTPHeaders& fields);

// Decodes one gzip body (RFC 1952, several members too), deflate body (RFC 1950, or the bare
// RFC 1951 that some servers send) or brotli body (RFC 7932, windows up to 16 MB) from untrusted
// bytes as they arrive. Memory is one window and one buffer, whatever the ratio. Bytes after the
// end of the stream are malformed.
class ContentDecoder {
 public:
  explicit ContentDecoder(ContentCoding coding);
  ~ContentDecoder();
  ContentDecoder(const ContentDecoder&) = delete;
  ContentDecoder& operator=(const ContentDecoder&) = delete;

  enum class Status { ok, malformed, tooLarge };
  // Appends to `out`; too large is what does not fit into it.
  Status decode(std::string_view bytes, BodyBuffer& out);

  // Whether the stream came to its proper end, check sums included.
  bool hasEnded() const { return ended_; }

 private:
  bool open(std::string_view firstBytes);
  Status inflateAll(std::string_view bytes, BodyBuffer& out);
  Status decompressBrotli(std::string_view bytes, BodyBuffer& out);

  const ContentCoding coding_;
  z_stream stream_{};
  BrotliDecoderState* brotli_ = nullptr;
  bool open_ = false;
  bool ended_ = false;
  std::string head_;  // the first byte of a deflate body, until the second tells its format
  std::array<char, 64 * 1024> buffer_;
};

}  // namespace paperloom::internal
