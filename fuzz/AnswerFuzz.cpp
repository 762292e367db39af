#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "paperloom/platform/internal/http/ResponseBody.h"
#include "paperloom/platform/internal/http/ResponseHead.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

// The lines of a header; gives what follows it.
std::string_view readHead(std::string_view bytes, paperloom::internal::ResponseHead& head) {
  using Progress = paperloom::internal::ResponseHead::Progress;
  while (!bytes.empty() && !head.isComplete()) {
    const auto end = bytes.find('\n');
    const std::string_view line = bytes.substr(0, end == bytes.npos ? end : end + 1);
    bytes.remove_prefix(line.size());
    const auto progress = head.add(line);
    if (progress != Progress::incomplete && progress != Progress::complete) break;
  }
  return bytes;
}

}  // namespace

// An answer from an untrusted server: its header, and its body in pieces.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace paperloom::internal;
  ResponseHead head;
  std::string_view body = readHead({reinterpret_cast<const char*>(bytes), size}, head);
  if (!head.isComplete()) return 0;
  require(head.statusCode() >= 200 && head.statusCode() <= 999);
  require(head.fields().size() <= 1000);
  for (const auto& [name, value] : head.fields()) {
    require(!name.empty() && value.find_first_of(std::string_view("\r\n\0", 3)) == value.npos);
  }
  const auto framing = head.framing(true);
  require(!framing.length || *framing.length >= 0);

  const auto coding = contentCoding(head.fields());
  if (!coding) return 0;
  constexpr std::int64_t limit = 1 << 20;
  ResponseBody content(framing, *coding, limit);
  std::size_t piece = 1;
  while (!body.empty()) {
    const auto status = content.add(body.substr(0, piece));
    require(content.received() <= static_cast<std::int64_t>(size));
    if (status != ResponseBody::Status::ok) break;
    body.remove_prefix(std::min(piece, body.size()));
    piece *= 3;
  }
  content.end();
  require(static_cast<std::int64_t>(content.take().size()) <= limit);
  return 0;
}
