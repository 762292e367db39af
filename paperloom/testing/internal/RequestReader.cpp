#include "paperloom/testing/internal/RequestReader.h"

#include <strings.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <new>
#include <string_view>
#include <utility>

namespace paperloom::sample {
namespace {

constexpr std::size_t headLimit = std::size_t{1} << 16;
constexpr std::size_t bodyLimit = std::size_t{1} << 16;
constexpr std::array<std::string_view, 7> methods = {"GET",   "HEAD",   "POST",   "PUT",
                                                     "PATCH", "DELETE", "OPTIONS"};

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

template <class Number>
std::optional<Number> number(std::string_view digits, int base) {
  Number value{};
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return value;
}

std::string decoded(std::string_view text, bool plusIsSpace) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto code = text[i] == '%' && i + 2 < text.size()
                          ? number<unsigned char>(text.substr(i + 1, 2), 16)
                          : std::nullopt;
    if (code) {
      bytes += static_cast<char>(*code);
      i += 2;
    } else {
      bytes += plusIsSpace && text[i] == '+' ? ' ' : text[i];
    }
  }
  return bytes;
}

void splitTarget(HttpRequest& request) {
  const std::string_view target =
      std::string_view(request.target).substr(0, request.target.find('#'));
  const auto mark = target.find('?');
  request.path = decoded(target.substr(0, mark), false);
  if (mark == target.npos) return;
  std::string_view items = target.substr(mark + 1);
  while (!items.empty()) {
    const std::string_view item = items.substr(0, items.find('&'));
    items.remove_prefix(std::min(items.size(), item.size() + 1));
    const auto equals = item.find('=');
    const auto value = equals == item.npos ? std::string_view() : item.substr(equals + 1);
    if (item.empty()) continue;
    request.query.emplace(decoded(item.substr(0, equals), true), decoded(value, true));
  }
}

bool namesGzip(const std::string& acceptEncoding) {
  const auto at = acceptEncoding.find("gzip");
  if (at == std::string::npos) return false;
  const std::string rest = acceptEncoding.substr(at + 4, acceptEncoding.find(',', at) - at - 4);
  const auto quality = rest.find("q=");
  return quality == std::string::npos || std::strtod(rest.c_str() + quality + 2, nullptr) > 0;
}

// Reads a request piece by piece; each piece is the status of a refusal, or 0, or -1 when the
// connection has ended.
class Reader {
 public:
  explicit Reader(SocketStream& stream) : stream_(stream) {}

  std::optional<IncomingRequest> read() {
    int status = readHead();
    if (status == 0) status = readBody();
    if (status < 0) return std::nullopt;
    if (status > 0) incoming_.refusal = status;
    return std::move(incoming_);
  }

 private:
  // The next line without its end; nothing when `left_` does not suffice or the connection ends.
  std::optional<std::string> line() {
    std::string text;
    while (left_ > 0) {
      const auto byte = stream_.read();
      if (!byte) break;
      --left_;
      if (*byte == '\n') {
        if (!text.empty() && text.back() == '\r') text.pop_back();
        return text;
      }
      text += *byte;
    }
    return std::nullopt;
  }
  int failure(int whenTooLong) const { return left_ == 0 ? whenTooLong : -1; }

  int readHead() {
    auto first = line();
    if (first && first->empty()) first = line();  // RFC 9112 section 2.2
    if (!first) return failure(414);
    HttpRequest& request = incoming_.request;
    const auto space = first->find(' ');
    const auto second = first->rfind(' ');
    if (space == std::string::npos || second <= space + 1) return 400;
    const std::string version = first->substr(second + 1);
    request.method = first->substr(0, space);
    request.target = first->substr(space + 1, second - space - 1);
    if (std::find(methods.begin(), methods.end(), request.method) == methods.end()) return 400;
    if (version != "HTTP/1.1" && version != "HTTP/1.0") return 400;
    splitTarget(request);
    for (auto field = line();; field = line()) {
      if (!field) return failure(431);
      if (field->empty()) break;
      const auto colon = field->find(':');
      if (colon == std::string::npos || colon == 0) return 400;
      request.headers.emplace_back(field->substr(0, colon),
                                   trimmed(std::string_view(*field).substr(colon + 1)));
    }
    const auto connection = request.header("Connection");
    incoming_.closes =
        version == "HTTP/1.0" || (connection && strcasecmp(connection->c_str(), "close") == 0);
    request.acceptsGzip = namesGzip(request.header("Accept-Encoding").value_or(""));
    return 0;
  }

  int readBody() {
    const HttpRequest& request = incoming_.request;
    const auto coding = request.header("Transfer-Encoding");
    const auto length = request.header("Content-Length");
    if (!coding && !length) return 0;
    std::optional<std::size_t> size = 0;
    if (coding) {
      if (length || strcasecmp(coding->c_str(), "chunked") != 0) return 400;
    } else {
      size = number<std::size_t>(*length, 10);
      if (!size) return 400;
      if (*size > bodyLimit) return 413;
    }
    const auto expected = request.header("Expect");
    if (expected && strcasecmp(expected->c_str(), "100-continue") == 0) {
      stream_.output() = "HTTP/1.1 100 Continue\r\n\r\n";
      if (!stream_.flush()) return -1;
    }
    return coding ? readChunks() : take(*size);
  }

  int take(std::size_t count) {
    for (; count > 0; --count) {
      const auto byte = stream_.read();
      if (!byte) return -1;
      incoming_.request.body += *byte;
    }
    return 0;
  }

  int readChunks() {
    for (;;) {
      left_ = headLimit;
      const auto head = line();
      if (!head) return failure(400);
      const auto size = number<std::size_t>(trimmed(head->substr(0, head->find(';'))), 16);
      if (!size) return 400;
      if (*size > bodyLimit - incoming_.request.body.size()) return 413;
      if (*size == 0) break;
      if (const int status = take(*size)) return status;
      const auto end = line();
      if (!end || !end->empty()) return end ? 400 : failure(400);
    }
    for (auto trailer = line(); !trailer || !trailer->empty(); trailer = line()) {
      if (!trailer) return failure(431);
    }
    return 0;
  }

  SocketStream& stream_;
  std::size_t left_ = headLimit;
  IncomingRequest incoming_;
};

}  // namespace

std::optional<IncomingRequest> readRequest(SocketStream& stream) { return Reader(stream).read(); }

std::string gzipped(const std::string& text) {
  z_stream stream{};
  constexpr int gzipFraming = 16;
  if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, gzipFraming + MAX_WBITS,
                   MAX_MEM_LEVEL, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::bad_alloc();
  }
  std::string bytes(deflateBound(&stream, static_cast<uLong>(text.size())), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(bytes.data());
  stream.avail_out = static_cast<uInt>(bytes.size());
  deflate(&stream, Z_FINISH);
  bytes.resize(stream.total_out);
  deflateEnd(&stream);
  return bytes;
}

}  // namespace paperloom::sample
