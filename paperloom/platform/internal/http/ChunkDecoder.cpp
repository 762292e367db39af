#include "paperloom/platform/internal/http/ChunkDecoder.h"

#include <algorithm>

#include "paperloom/platform/internal/http/HTTPFieldSyntax.h"

namespace paperloom::internal {
namespace {

constexpr int maximumDigits = 16;
constexpr int maximumLineBytes = 4'000;  // libcurl takes 4,096
constexpr int maximumDroppedBytes = 64 * 1024;
constexpr int maximumTrailers = 1'000;

int hexadecimalValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }

}  // namespace

std::string_view ChunkDecoder::next(std::string_view& bytes) {
  while (!bytes.empty() && !hasEnded() && !isMalformed()) {
    if (state_ != State::content) {
      take(bytes.front());
      bytes.remove_prefix(1);
      continue;
    }
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(left_, bytes.size()));
    const std::string_view content = bytes.substr(0, size);
    bytes.remove_prefix(size);
    left_ -= size;
    if (left_ == 0) state_ = State::contentEnd;
    return content;
  }
  return {};
}

void ChunkDecoder::take(char c) {
  if (c == '\n') return endLine();
  if (afterReturn_) {
    state_ = State::malformed;
  } else if (c == '\r') {
    afterReturn_ = true;
  } else if (state_ == State::size) {
    takeSizeDigit(c);
  } else if (state_ == State::contentEnd || isControl(c) || !countLineByte()) {
    state_ = State::malformed;
  } else if (state_ == State::blank && !isBlank(c)) {
    state_ = c == ';' ? State::extension : State::malformed;
  }
}

void ChunkDecoder::takeSizeDigit(char c) {
  const int value = hexadecimalValue(c);
  if (value < 0) {
    const bool mayFollow = digits_ > 0 && (isBlank(c) || c == ';');
    state_ = !mayFollow ? State::malformed : c == ';' ? State::extension : State::blank;
    return;
  }
  left_ = left_ * 16 + static_cast<std::uint64_t>(value);
  if (++digits_ > maximumDigits || left_ >> 63 != 0) state_ = State::malformed;
}

bool ChunkDecoder::countLineByte() {
  return ++lineBytes_ <= maximumLineBytes && ++droppedBytes_ <= maximumDroppedBytes;
}

void ChunkDecoder::endLine() {
  const bool isEmpty = lineBytes_ == 0;
  afterReturn_ = false;
  lineBytes_ = 0;
  if (state_ == State::contentEnd) {
    state_ = State::size;
    digits_ = 0;
  } else if (state_ == State::trailer) {
    if (isEmpty) state_ = State::ended;
    if (!isEmpty && ++trailers_ > maximumTrailers) state_ = State::malformed;
  } else if (digits_ == 0) {
    state_ = State::malformed;
  } else {
    state_ = left_ > 0 ? State::content : State::trailer;
  }
}

}  // namespace paperloom::internal
