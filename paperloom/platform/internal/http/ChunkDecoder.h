#pragma once

#include <cstdint>
#include <string_view>

namespace paperloom::internal {

// Takes a chunked body apart (RFC 9112 section 7.1) as it arrives from an untrusted server.
//
// libcurl finds the same boundaries but lets much pass, "5g" for 5 among it. Here a size is 1 to 16
// hexadecimal digits below 2^63; blanks may follow it, and extensions without control characters.
// A line feed alone ends a line, too. A line has at most 4,000 bytes, all extensions and trailer
// fields together 64 KB, and there are at most 1,000 trailer fields; all are dropped.
class ChunkDecoder {
 public:
  // The next run of content, for which `bytes` loses what has been read. Nothing once they are used
  // up, once the body has ended, and after what is malformed.
  std::string_view next(std::string_view& bytes);

  bool hasEnded() const { return state_ == State::ended; }
  bool isMalformed() const { return state_ == State::malformed; }

 private:
  enum class State {
    size,
    blank,  // behind the size
    extension,
    content,
    contentEnd,
    trailer,
    ended,
    malformed,
  };
  void take(char c);
  void takeSizeDigit(char c);
  void endLine();
  bool countLineByte();

  State state_ = State::size;
  std::uint64_t left_ = 0;  // of the chunk
  int digits_ = 0;
  bool afterReturn_ = false;
  int lineBytes_ = 0;
  int droppedBytes_ = 0;
  int trailers_ = 0;
};

}  // namespace paperloom::internal
