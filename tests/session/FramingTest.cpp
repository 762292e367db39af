#include <brotli/encode.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <zlib.h>

#include <cstdio>
#include <fstream>
#include <list>
#include <mutex>

#include "paperloom/testing/Fetch.h"
#include "paperloom/testing/ScriptedServer.h"
#include "tests/support/Split.h"

namespace paperloom::test {
namespace {

using Code = URLError::Code;

std::string compressed(std::string_view text, int windowBits) {
  z_stream stream{};
  deflateInit2(&stream, 6, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY);
  std::string out(compressBound(text.size()) + 64, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}
std::string gzipped(std::string_view text) { return compressed(text, 31); }

std::string brotliOf(std::string_view text) {
  std::size_t size = BrotliEncoderMaxCompressedSize(text.size());
  std::string out(size, '\0');
  BrotliEncoderCompress(BROTLI_DEFAULT_QUALITY, BROTLI_DEFAULT_WINDOW, BROTLI_MODE_GENERIC,
                        text.size(), reinterpret_cast<const std::uint8_t*>(text.data()), &size,
                        reinterpret_cast<std::uint8_t*>(out.data()));
  out.resize(size);
  return out;
}

std::string head(std::string_view fields, std::string_view status = "200 OK") {
  return "HTTP/1.1 " + std::string(status) + "\r\n" + std::string(fields) + "\r\n";
}

std::string withLength(std::string_view fields, std::string_view body) {
  return head(std::string(fields) + "Content-Length: " + std::to_string(body.size()) + "\r\n") +
         std::string(body);
}

struct Case {
  const char* what;
  std::string bytes;  // then the connection is closed
  int status;         // 0 for none, -1 where libcurl's version decides
  std::optional<Code> error;
  std::string body = "no data";
};
Case good(const char* what, std::string bytes, std::string body) {
  return {what, std::move(bytes), 200, {}, std::move(body)};
}

void expectAll(const std::vector<Case>& cases, URLSessionConfiguration configuration = {},
               const char* method = "GET") {
  URLSession session(std::move(configuration));
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ScriptedServer server({send(c.bytes), closeConnection()});
    URLRequest request(server.url());
    request.method = method;
    const Answer answer = fetch(session, request);
    EXPECT_EQ(c.status < 0 ? c.status : answer.status(), c.status);
    EXPECT_EQ(answer.code(), c.error) << answer.errorText();
    EXPECT_EQ(answer.body(), c.body);
  }
}

std::string unescaped(std::string text) {
  for (const auto& [escape, byte] : {std::pair("\\r", "\r"), {"\\n", "\n"}, {"\\t", "\t"}}) {
    for (std::size_t at = 0; (at = text.find(escape)) != text.npos;) text.replace(at, 2, byte);
  }
  return text;
}

TEST(FramingTest, bodiesEndWhereTheHeaderSaysAndAmbiguousLengthsAreErrors) {
  std::ifstream file(PAPERLOOM_FRAMING);  // what, status, error, body and bytes of a case a line
  std::list<std::string> names;
  std::vector<Case> cases;
  for (std::string line; std::getline(file, line);) {
    auto part = split(line);
    part.resize(5);
    std::optional<Code> error;
    if (part[2] == "bad") error = Code::badServerResponse;
    if (part[2] == "lost") error = Code::networkConnectionLost;
    cases.push_back({names.emplace_back(part[0]).c_str(), unescaped(part[4]), std::stoi(part[1]),
                     error, part[3]});
  }
  EXPECT_EQ(cases.size(), 32U);
  expectAll(cases);
  expectAll({good("HEAD", head("Content-Length: 5\r\n"), "")}, {}, "HEAD");
}

TEST(FramingTest, chunksAreReadByTheirGrammarAndNothingElsePassesForThem) {
  const auto bad = Code::badServerResponse;
  const std::string chunked = head("Transfer-Encoding: chunked\r\n");
  const std::string rest = "\r\nhello\r\n0\r\n\r\n";
  const std::string longest(4'000, 'x');  // of the rests of a line
  std::string extensions;
  for (int i = 0; i < 16; ++i) extensions += "1;" + longest + "\r\na\r\n";
  extensions += "1;" + std::string(1'536, 'x');  // 64 KB in all
  std::vector<Case> cases;
  const auto sizes = split(R"(5|0005|5 |5;x|5;x="y"|5 ; x = y|5;;|0000000000000005)"
                           "|5\t ");
  const auto badSizes = split(
      "5g|5x;a|g|| 5|+5|-5|0x5|5 5|5,5|5.|5;\x01|5\r|5\r;|;5|5\x7f|5\v|00000000000000005|"
      "8000000000000000|ffffffffffffffff");
  for (const std::string& size : sizes) {
    cases.push_back(good(size.c_str(), chunked + size + rest, "hello"));
  }
  for (const std::string& size : badSizes) {
    cases.push_back({size.c_str(), chunked + size + rest, 200, bad});
  }
  for (const auto& [what, body] : std::initializer_list<std::pair<const char*, std::string>>{
           {"no line end behind the content", "5\r\nhello0\r\n\r\n"},
           {"content longer than its size", "4\r\nhello\r\n0\r\n\r\n"},
           {"two returns", "5\r\nhello\r\r\n0\r\n\r\n"},
           {"a trailer with a bare return", "5\r\nhello\r\n0\r\nA: b\rc\r\n\r\n"},
           {"an extension without end", "5;" + longest + "x" + rest},
           {"extensions without end", extensions + "x\r\na\r\n0\r\n\r\n"},
           {"a trailer without end", "5\r\nhello\r\n0\r\nA: " + longest + "\r\n\r\n"},
       }) {
    cases.push_back({what, chunked + body, 200, bad});
  }
  cases.push_back(good("a long extension", chunked + "5;" + longest + rest, "hello"));
  cases.push_back(
      good("long extensions", chunked + extensions + "\r\na\r\n0\r\n\r\n", std::string(17, 'a')));
  const std::string fifteen = "\r\n0123456789abcde\r\n";
  cases.push_back(good("hexadecimal sizes",
                       chunked + "f" + fifteen + "F" + fifteen + "0A\r\n0123456789\r\n0\r\n\r\n",
                       "0123456789abcde0123456789abcde0123456789"));
  cases.push_back(good("line feeds alone", chunked + "5\nhello\n0\nA: b\n\n", "hello"));
  expectAll(cases);
}

// libcurl before 8.3 would append the line to a field of the handle's former response.
TEST(FramingTest, aHeaderThatBeginsWithAFoldedLineIsMalformedAndTouchesNoOtherResponse) {
  ScriptedServer server([](const ScriptedServer::Request& request) -> Script {
    if (request.target == "/good") return answer("abc", "A: 1\r\nLast: 2\r\n");
    return {send(head(request.target.substr(1) == "tab" ? "\tA: 1\r\n" : "  A: 1\r\n"))};
  });
  URLSession session({});
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(fetch(session, URLRequest(server.url("/good"))).body(), "abc");
    for (const char* target : {"/blank", "/tab"}) {
      EXPECT_EQ(fetch(session, URLRequest(server.url(target))).code(), Code::badServerResponse);
    }
  }
}

TEST(FramingTest, headersBeyondTheLimitsEndTheRequest) {
  const auto fields = [](int count, std::size_t size) {
    std::string text;
    for (int i = 0; i < count; ++i) text += "X: " + std::string(size, 'v') + "\r\n";
    return text;
  };
  const auto bad = Code::badServerResponse;
  std::string hints;
  for (int i = 0; i < 50; ++i) hints += head(fields(1, 8000), "103 Early Hints");
  const std::string chunked = head("Transfer-Encoding: chunked\r\n") + "3\r\nabc\r\n0\r\n";
  expectAll({
      good("64 KB in a line", withLength(fields(1, 65'531), "abc"), "abc"),
      {"a line without end", "HTTP/1.1 200 OK\r\nX: " + std::string(900'000, 'v'), 0, bad},
      {"a byte more in a line", withLength(fields(1, 65'532), "abc"), 0, bad},
      good("256 KB in all", withLength(fields(3, 65'531) + fields(1, 65'493), "abc"), "abc"),
      {"a byte more in all", withLength(fields(3, 65'531) + fields(1, 65'494), "abc"), 0, bad},
      good("1000 fields", withLength(fields(999, 1), "abc"), "abc"),
      {"1001 fields", withLength(fields(1000, 1), "abc"), 0, bad},
      {"interim answers without end", hints + withLength("", "abc"), 0, bad},
      good("1000 trailers", chunked + fields(1000, 1) + "\r\n", "abc"),
      {"1001 trailers", chunked + fields(1001, 1) + "\r\n", 200, bad},
  });
}

TEST(FramingTest, fieldsAreHandedOverInOrderWithoutTrailersAndWithoutTheCoding) {
  const std::string body = gzipped("hello");
  ScriptedServer server({send(head("A: 1\r\nB:  two\r\n  lines \r\nA: 2\r\nTransfer-Encoding: "
                                   "chunked\r\nContent-Encoding: gzip\r\n") +
                              std::to_string(body.size()) + "\r\n"),
                         closeConnection()});
  ScriptedServer plain({send(head("A: 1\r\nB:  two\r\n  lines \r\nA: 2\r\nTransfer-Encoding: "
                                  "chunked\r\n") +
                             "2\r\nhi\r\n0\r\nTrailer: x\r\n\r\n")});
  URLSession session({});
  const Answer received = fetch(session, URLRequest(plain.url()));
  ASSERT_TRUE(received.response);
  EXPECT_EQ(
      received.response->headers,
      (HTTPHeaders{{"A", "1"}, {"B", "two lines"}, {"A", "2"}, {"Transfer-Encoding", "chunked"}}));
  ScriptedServer coded({send(withLength("Content-Encoding: gzip\r\nETag: \"x\"\r\n", body))});
  const Answer decoded = fetch(session, URLRequest(coded.url()));
  EXPECT_EQ(decoded.body(), "hello");
  EXPECT_EQ(decoded.response->headers, (HTTPHeaders{{"ETag", "\"x\""}}));
  EXPECT_EQ(decoded.metrics.countOfBytesReceived, static_cast<std::int64_t>(body.size()));
}

TEST(CodingTest, gzipDeflateAndBrotliAreDecodedAndNothingElse) {
  const auto coded = [](const char* name, std::string_view body) {
    return withLength("Content-Encoding: " + std::string(name) + "\r\n", body);
  };
  const auto broken = Code::cannotDecodeContentData;
  const std::string text(100'000, 'x');
  const std::string gzip = gzipped(text);
  std::string flipped = gzip;
  flipped[flipped.size() - 6] ^= 1;  // in the check sum
  expectAll({
      good("gzip", coded("gzip", gzip), text),
      good("x-gzip in capitals", coded("X-GZIP", gzip), text),
      good("two members", coded("gzip", gzipped("ab") + gzipped("cd")), "abcd"),
      good("deflate with the zlib frame", coded("deflate", compressed(text, 15)), text),
      good("bare deflate", coded("deflate", compressed(text, -15)), text),
      good("bare deflate that starts with a multiple of 31",
           coded("deflate", std::string("\x01\x17\0\xe8\xff", 5) + text.substr(0, 23)),
           text.substr(0, 23)),
      good("identity", coded("identity", "abc"), "abc"),
      good("no body at all", coded("gzip", ""), ""),
      {"wrong check sum", coded("gzip", flipped), 200, broken},
      {"garbage after the end", coded("gzip", gzip + "garbage"), 200, broken},
      {"not gzip", coded("gzip", "plain text"), 200, broken},
      good("brotli", coded("br", brotliOf(text)), text),
      good("a coding not known here", coded("zstd", "abc"), "abc"),
      {"garbage after the end of brotli", coded("br", brotliOf(text) + "x"), 200, broken},
      {"brotli after brotli", coded("br", brotliOf("a") + brotliOf("b")), 200, broken},
      {"not brotli", coded("br", "\xff\xff\xff"), 200, broken},
      {"two codings", coded("gzip, gzip", gzipped(gzip)), 200, broken},
  });
}

TEST(FramingTest, aFailureSaysWhatWasWrong) {
  const std::string chunked = "Transfer-Encoding: chunked\r\n";
  const std::string gzip = "Content-Encoding: gzip\r\n";
  const std::pair<const char*, std::string> rows[] = {
      {"the network connection was lost", ""},
      {"the server's answer is not valid HTTP", "SSH-2.0-OpenSSH_9.2\r\n"},
      {"the server's header is malformed", head("Bad name: x\r\n")},
      {"the server's header is too large", head("X: " + std::string(70'000, 'v') + "\r\n")},
      {"the server's answer has no unambiguous length", head("Content-Length: 3, 4\r\n")},
      {"the server's answer has malformed chunks", head(chunked) + "x\r\n"},
      {"the server's answer is too large", head("Content-Length: 99\r\n")},
      {"the server's answer is too large", head("") + "abcd"},
      {"the server's answer cannot be decoded", withLength(gzip, "abc")},
      {"the server's answer cannot be decoded to its end",
       withLength(gzip, std::string_view(gzipped("abc")).substr(0, 12))},
      {"the server used more than one content coding",
       withLength("Content-Encoding: a, b\r\n", "")},
  };
  URLSession session({.maximumBodySize = 3});
  for (const auto& [text, bytes] : rows) {
    ScriptedServer server({send(bytes), closeConnection()});
    EXPECT_EQ(fetch(session, URLRequest(server.url())).errorText(), text);
  }
}

TEST(CodingTest, aBodyCutAnywhereIsAnErrorAndNeverPassesAsWhole) {
  const std::string_view text = "The quick brown fox jumps over the lazy dog";
  const std::string chunked = "Transfer-Encoding: chunked\r\n";
  const auto chunk = [](std::string_view part) {
    char size[8];
    std::snprintf(size, sizeof size, "%zx\r\n", part.size());
    return part.empty() ? "" : size + std::string(part) + "\r\n";
  };
  struct Coded {
    const char* fields;
    std::string body;
  };
  const Coded codings[] = {{"", std::string(text)},
                           {"Content-Encoding: gzip\r\n", gzipped(text)},
                           {"Content-Encoding: deflate\r\n", compressed(text, 15)},
                           {"Content-Encoding: deflate\r\n", compressed(text, -15)},
                           {"Content-Encoding: br\r\n", brotliOf(text)}};
  std::mutex mutex;
  std::string bytes;
  ScriptedServer server([&](const ScriptedServer::Request&) {
    const std::lock_guard lock(mutex);
    return Script{send(bytes), closeConnection()};
  });
  const auto serve = [&](std::string_view script) {
    const std::lock_guard lock(mutex);
    bytes = script;
  };
  URLSession session({});
  const auto expectCut = [&](std::string_view whole, std::size_t cut) {
    serve(whole.substr(0, cut));
    const Answer received = fetch(session, URLRequest(server.url()));
    EXPECT_TRUE(received.error) << whole << " cut at " << cut;
    EXPECT_FALSE(received.data) << whole << " cut at " << cut;
    EXPECT_EQ(received.response.has_value(), cut >= whole.find("\r\n\r\n") + 4);
  };
  for (const auto& [fields, body] : codings) {
    const std::string byChunks =
        head(fields + chunked) + chunk(body.substr(0, 2)) + chunk(body.substr(2)) + "0\r\n\r\n";
    for (const std::string& whole : {withLength(fields, body), byChunks}) {
      for (std::size_t cut = 0; cut < whole.size(); ++cut) expectCut(whole, cut);
      serve(whole);
      EXPECT_EQ(fetch(session, URLRequest(server.url())).body(), text);
    }
    if (*fields == '\0') continue;
    // Where the framing is in order, or ends with the connection, the coding alone tells.
    for (std::size_t cut = 0; cut < body.size(); ++cut) {
      const std::string part = body.substr(0, cut);
      expectCut(head(fields + chunked) + chunk(part) + "0\r\n\r\n", std::string::npos);
      expectCut(head(fields) + part, std::string::npos);
      if (cut > 0) expectCut(withLength(fields, part), std::string::npos);
    }
  }
}

TEST(CodingTest, bodiesEndAtTheLimitWhateverTheirFramingOrRatio) {
  const std::string limitSized(1'000'000, 'x');
  const std::string tooLarge(1'000'001, 'x');
  const std::string bomb = gzipped(std::string(64 * 1024 * 1024, '\0'));
  const auto members = [empty = gzipped("")](int count) {  // of 20 bytes each
    std::string all;
    while (count-- > 0) all += empty;
    return all;
  };
  const auto error = Code::dataLengthExceedsMaximum;
  const std::string gzip = "Content-Encoding: gzip\r\n";
  const std::string brotli = "Content-Encoding: br\r\n";
  expectAll(
      {
          good("at the limit", withLength("", limitSized), limitSized),
          {"by length", head("Content-Length: 1000001\r\n"), 200, error},
          {"by a length beyond memory", head("Content-Length: 9223372036854775807\r\n"), 200,
           error},
          {"by end of connection", head("") + tooLarge, 200, error},
          good("coded at the limit", withLength(gzip, gzipped(limitSized)), limitSized),
          {"coded", withLength(gzip, gzipped(tooLarge)), 200, error},
          {"coded a thousand times smaller", withLength(gzip, bomb), 200, error},
          good("an eighth and 64 KB more on the way", withLength(gzip, members(59'526)), ""),
          good("brotli at the limit", withLength(brotli, brotliOf(limitSized)), limitSized),
          {"brotli", withLength(brotli, brotliOf(tooLarge)), 200, error},
          {"brotli a thousand times smaller",
           withLength(brotli, brotliOf(std::string(64 * 1024 * 1024, '\0'))), 200, error},
          {"more on the way", withLength(gzip, members(59'527)), 200, error},
      },
      {.maximumBodySize = 1'000'000});
}

#ifndef PAPERLOOM_SANITIZED
// In KB, from the process's own status.
long statusValue(std::string_view name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name)) return std::atol(line.c_str() + name.size() + 1);
  }
  return 0;
}

TEST(CodingTest, aBodyCostsNoMoreMemoryThanTheLimitAndAFewMegabytes) {
  constexpr std::size_t megabyte = 1024 * 1024;
  const auto zeros = [](std::size_t size) { return gzipped(std::string(size, '\0')); };
  for (const std::string& body : {zeros(64 * megabyte), zeros(24 * megabyte)}) {
    ScriptedServer server(answer(body, "Content-Encoding: gzip\r\n"));
    URLSession session({.maximumBodySize = std::int64_t{24 * megabyte}});
    ScriptedServer small(answer("x"));
    fetch(session, URLRequest(small.url()));  // what the threads and libcurl cost is no body's
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << "5";  // the peak starts anew
    const long before = statusValue("VmRSS:");
    fetch(session, URLRequest(server.url()));
    const long cost = statusValue("VmHWM:") - before;
    EXPECT_LE(cost, 32L * 1024);
  }
}
#endif

TEST(CodingTest, whatTheCallerNamesComesAsItIsUnlessItIsKnown) {
  URLSession session({});
  ScriptedServer server([](const ScriptedServer::Request& request) {
    if (request.target == "/gzip") return answer(gzipped("abc"), "Content-Encoding: gzip\r\n");
    return answer("\x0b\x01", "Content-Encoding: zstd, gzip\r\n");
  });
  URLRequest request(server.url("/zstd"));
  request.headers.add("Accept-Encoding", "zstd, gzip");
  const Answer raw = fetch(session, request);
  EXPECT_EQ(raw.body(), "\x0b\x01");
  EXPECT_TRUE(raw.response && raw.response->headers.contains("Content-Encoding"));
  request.url = server.url("/gzip");
  EXPECT_EQ(fetch(session, request).body(), "abc");
  EXPECT_EQ(server.requests().back().field("Accept-Encoding"), "zstd, gzip");
}

}  // namespace
}  // namespace paperloom::test
