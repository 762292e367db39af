#include "paperloom/platform/internal/http/ContentDecoder.h"

#include <cstdint>
#include <utility>

#include "paperloom/platform/internal/http/HTTPFieldSyntax.h"

namespace paperloom::internal {
namespace {

// RFC 1950 section 2.2: method 8, a window up to 32 KB, and a multiple of 31. A bare deflate stream
// cannot look so: its low four bits would be a stored block with a padding bit set.
bool isZlibHeader(std::string_view bytes) {
  const auto method = static_cast<unsigned char>(bytes[0]);
  const auto flags = static_cast<unsigned char>(bytes[1]);
  return (method & 15) == 8 && (method >> 4) <= 7 && (method * 256 + flags) % 31 == 0;
}

}  // namespace

std::optional<ContentCoding> contentCoding(const HTTPHeaders& fields) {
  const auto value = fields.combined("Content-Encoding");
  if (!value) return ContentCoding::identity;
  const std::string_view name = trimmed(*value);
  if (name.empty() || equalsIgnoringCase(name, "identity")) return ContentCoding::identity;
  // RFC 9110 section 8.4.1.3: x-gzip is its old name.
  if (equalsIgnoringCase(name, "gzip") || equalsIgnoringCase(name, "x-gzip")) {
    return ContentCoding::gzip;
  }
  if (equalsIgnoringCase(name, "deflate")) return ContentCoding::deflate;
  if (equalsIgnoringCase(name, "br")) return ContentCoding::brotli;
  return std::nullopt;
}

ContentDecoder::ContentDecoder(ContentCoding coding) : coding_(coding) {}

ContentDecoder::~ContentDecoder() {
  if (open_) inflateEnd(&stream_);
  if (brotli_ != nullptr) BrotliDecoderDestroyInstance(brotli_);
}

// RFC 9110 section 8.4.1.2 means a zlib stream by deflate; many servers send a bare one.
bool ContentDecoder::open(std::string_view firstBytes) {
  constexpr int gzipFormat = 16;
  int window = MAX_WBITS + gzipFormat;
  if (coding_ == ContentCoding::deflate) window = isZlibHeader(firstBytes) ? MAX_WBITS : -MAX_WBITS;
  open_ = inflateInit2(&stream_, window) == Z_OK;
  return open_;
}

ContentDecoder::Status ContentDecoder::decode(std::string_view bytes, BodyBuffer& out) {
  if (bytes.empty()) return Status::ok;
  if (coding_ == ContentCoding::identity) {
    return out.append(bytes) ? Status::ok : Status::tooLarge;
  }
  if (coding_ == ContentCoding::brotli) return decompressBrotli(bytes, out);
  if (open_) return inflateAll(bytes, out);
  head_.append(bytes);
  if (head_.size() < 2) return Status::ok;
  const std::string start = std::move(head_);
  head_.clear();
  return open(start) ? inflateAll(start, out) : Status::malformed;
}

ContentDecoder::Status ContentDecoder::inflateAll(std::string_view bytes, BodyBuffer& out) {
  // zlib takes the input through a pointer to non-const and never writes to it.
  stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream_.avail_in = static_cast<uInt>(bytes.size());
  do {
    if (ended_) {
      if (stream_.avail_in == 0) break;
      // RFC 1952 section 2.2: a gzip file may have several members.
      if (coding_ != ContentCoding::gzip || inflateReset(&stream_) != Z_OK) {
        return Status::malformed;
      }
      ended_ = false;
    }
    stream_.next_out = reinterpret_cast<Bytef*>(buffer_.data());
    stream_.avail_out = static_cast<uInt>(buffer_.size());
    const int result = inflate(&stream_, Z_NO_FLUSH);
    if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) {
      return Status::malformed;
    }
    const std::size_t produced = buffer_.size() - stream_.avail_out;
    if (!out.append({buffer_.data(), produced})) return Status::tooLarge;
    ended_ = result == Z_STREAM_END;
    if (result == Z_BUF_ERROR) break;
  } while (stream_.avail_in > 0 || (stream_.avail_out == 0 && !ended_));
  return Status::ok;
}

ContentDecoder::Status ContentDecoder::decompressBrotli(std::string_view bytes, BodyBuffer& out) {
  if (brotli_ == nullptr) brotli_ = BrotliDecoderCreateInstance(nullptr, nullptr, nullptr);
  if (brotli_ == nullptr || ended_) return Status::malformed;
  const auto* input = reinterpret_cast<const std::uint8_t*>(bytes.data());
  std::size_t left = bytes.size();
  for (;;) {
    auto* output = reinterpret_cast<std::uint8_t*>(buffer_.data());
    std::size_t room = buffer_.size();
    const auto result =
        BrotliDecoderDecompressStream(brotli_, &left, &input, &room, &output, nullptr);
    if (result == BROTLI_DECODER_RESULT_ERROR) return Status::malformed;
    if (!out.append({buffer_.data(), buffer_.size() - room})) return Status::tooLarge;
    if (result == BROTLI_DECODER_RESULT_NEEDS_MORE_INPUT) return Status::ok;
    ended_ = result == BROTLI_DECODER_RESULT_SUCCESS;
    if (ended_) return left == 0 ? Status::ok : Status::malformed;
  }
}

}  // namespace paperloom::internal
