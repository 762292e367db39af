#include "paperloom/platform/internal/http/ResponseBody.h"

#include <algorithm>

namespace paperloom::internal {
namespace {

// What a server announces is not believed for more than this before it has sent it.
constexpr std::int64_t maximumReservation = 4 * 1024 * 1024;

// No coding makes a body much larger; what does is made to keep us busy, such as gzip members
// without content.
std::int64_t codedLimit(std::int64_t limit) {
  constexpr std::int64_t slack = 64 * 1024;
  return limit > INT64_MAX / 2 ? INT64_MAX : limit + limit / 8 + slack;
}

}  // namespace

ResponseBody::ResponseBody(const ResponseHead::Framing& framing, ContentCoding coding,
                           std::int64_t limit)
    : length_(framing.length), limit_(limit), content_(limit) {
  if (framing.chunked) chunks_.emplace();
  if (coding != ContentCoding::identity) decoder_ = std::make_unique<ContentDecoder>(coding);
  content_.reserve(std::min({length_.value_or(0), limit, maximumReservation}));
}

ResponseBody::Status ResponseBody::add(std::string_view bytes) {
  if (!chunks_) return addContent(bytes);
  while (true) {
    const std::string_view content = chunks_->next(bytes);
    if (content.empty()) break;
    const Status status = addContent(content);
    if (status != Status::ok) return status;
  }
  if (!bytes.empty()) hasExcess_ = true;
  return chunks_->isMalformed() ? Status::badFraming : Status::ok;
}

std::int64_t ResponseBody::effort() const {
  constexpr std::int64_t ofAPiece = 64;  // a chunk
  return received_ + pieces_ * ofAPiece + static_cast<std::int64_t>(content_.view().size());
}

ResponseBody::Status ResponseBody::addContent(std::string_view bytes) {
  ++pieces_;
  received_ += static_cast<std::int64_t>(bytes.size());
  if (!decoder_) return content_.append(bytes) ? Status::ok : Status::tooLarge;
  if (received_ > codedLimit(limit_)) return Status::tooLarge;
  switch (decoder_->decode(bytes, content_)) {
    case ContentDecoder::Status::ok:
      return Status::ok;
    case ContentDecoder::Status::tooLarge:
      return Status::tooLarge;
    case ContentDecoder::Status::malformed:
      break;
  }
  return Status::badCoding;
}

ResponseBody::End ResponseBody::end() const {
  if (length_.value_or(received_) != received_) return End::cut;
  if (chunks_ && !chunks_->hasEnded()) return End::cut;
  if (decoder_ && !decoder_->hasEnded() && length_ != 0) return End::codingCut;
  return End::proper;
}

}  // namespace paperloom::internal
