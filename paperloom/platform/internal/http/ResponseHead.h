#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "paperloom/platform/HTTPHeaders.h"

namespace paperloom::internal {

// Reads the header of one HTTP answer, line by line as the transport hands them over, from an
// untrusted server. Interim answers (1xx) are skipped, but count against the limits: 64 KB a line,
// 256 KB and 1,000 fields in all. A field that says where the body ends must not be folded: libcurl
// takes such a field for what its first line says.
class ResponseHead {
 public:
  enum class Progress {
    incomplete,
    complete,  // the header of the final answer has just ended
    tooLarge,
    malformed,
  };
  // `line` with its line end. After anything else than incomplete and complete nothing more may be
  // given.
  Progress add(std::string_view line);

  bool isComplete() const { return complete_; }
  // In bytes, interim answers included.
  std::size_t size() const { return bytes_; }
  int statusCode() const { return statusCode_; }
  HTTPHeaders& fields() { return fields_; }

  // Whether the status line is one of HTTP/1. Only where HTTP/2 was spoken may it be another.
  bool isHTTP1() const { return isHTTP1_; }

  // How the body ends (RFC 9112 section 6.3), asked once complete. Malformed when there are
  // differing or impossible lengths, or a transfer coding other than chunked. In HTTP/2, which has
  // no transfer codings, a body without a length counts as one that ends with the connection.
  struct Framing {
    bool malformed = false;
    std::optional<std::int64_t> length;  // announced
    bool chunked = false;
    bool endsWithConnection = false;  // neither length nor chunks tell where the body ends
    bool lengthAndChunks = false;     // the chunks count; the connection is not to be trusted
  };
  Framing framing(bool hasBody) const;

 private:
  Progress addStatusLine(std::string_view line);
  Progress addField(std::string_view line);
  Progress endHeader();

  std::size_t bytes_ = 0;
  std::size_t fieldCount_ = 0;
  bool inHeader_ = false;
  bool complete_ = false;
  bool isHTTP1_ = true;
  int statusCode_ = 0;
  HTTPHeaders fields_;
  std::optional<HTTPHeaders::Field> lastField_;  // not added yet: a folded line may follow
};

}  // namespace paperloom::internal
