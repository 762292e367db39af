#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "paperloom/platform/internal/http/BodyBuffer.h"
#include "paperloom/platform/internal/http/ChunkDecoder.h"
#include "paperloom/platform/internal/http/ContentDecoder.h"
#include "paperloom/platform/internal/http/ResponseHead.h"

namespace paperloom::internal {

// Puts a response's body together as it comes from the wire: chunks joined, the coding undone, and
// no more of it kept than the limit allows, whatever the server announces or packs.
class ResponseBody {
 public:
  ResponseBody(const ResponseHead::Framing& framing, ContentCoding coding, std::int64_t limit);

  enum class Status { ok, badFraming, badCoding, tooLarge };
  // The body as libcurl passes it on, with its chunks.
  Status add(std::string_view bytes);

  // How the body ends when nothing more comes: before its length, chunks or coding do, or properly.
  // Only where the length says that there is no body may a coding say nothing.
  enum class End { proper, cut, codingCut };
  End end() const;

  bool isCoded() const { return decoder_ != nullptr; }
  // Bytes of the body, without chunks and before decoding.
  std::int64_t received() const { return received_; }
  // Whether more has come behind the last chunk, which nobody has asked for.
  bool hasExcess() const { return hasExcess_; }

  // What it has cost so far, in bytes moved or what takes as long.
  std::int64_t effort() const;

  std::string take() { return content_.take(); }

 private:
  Status addContent(std::string_view bytes);

  const std::optional<std::int64_t> length_;
  const std::int64_t limit_;
  std::optional<ChunkDecoder> chunks_;
  std::unique_ptr<ContentDecoder> decoder_;
  BodyBuffer content_;
  std::int64_t received_ = 0;
  std::int64_t pieces_ = 0;
  bool hasExcess_ = false;
};

}  // namespace paperloom::internal
