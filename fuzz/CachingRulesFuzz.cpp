#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "paperloom/platform/internal/caching/CachePlan.h"
#include "paperloom/platform/internal/caching/Freshness.h"
#include "paperloom/platform/internal/caching/Serving.h"
#include "paperloom/platform/internal/caching/Storing.h"
#include "paperloom/platform/internal/http/CacheControl.h"
#include "paperloom/platform/internal/http/HTTPDate.h"

// Header fields and dates of any shape into the caching decisions. The input is three times, then
// lines: "> name: value" for the request, "< name: value" for the answer, "= status" for its
// status, and anything else as the answer's body.
namespace {

using namespace paperloom;
using namespace paperloom::internal;

void require(bool holds) {
  if (!holds) std::abort();
}

std::int64_t takeInteger(std::string_view& input) {
  std::int64_t value = 0;
  if (input.size() < sizeof value) return 0;
  std::memcpy(&value, input.data(), sizeof value);
  input.remove_prefix(sizeof value);
  return value;
}

struct Exchange {
  URLRequest request{*URL::parse("http://news.example/articles/1")};
  CachedURLResponse stored{{request.url, 200, {}}, {}, {}, {}};
  Date now;
};

void takeLine(Exchange& exchange, std::string_view line) {
  if (line.size() > 2 && line[0] == '=') {
    exchange.stored.response.statusCode = std::atoi(std::string(line.substr(2)).c_str());
    return;
  }
  const std::size_t colon = line.find(": ");
  if (line.size() < 2 || colon == std::string_view::npos || (line[0] != '<' && line[0] != '>')) {
    exchange.stored.data = Data(std::string(line));
    return;
  }
  HTTPHeaders& headers =
      line[0] == '<' ? exchange.stored.response.headers : exchange.request.headers;
  headers.add(std::string(line.substr(2, colon > 2 ? colon - 2 : 0)),
              std::string(line.substr(colon + 2)));
}

Exchange exchangeFrom(std::string_view input) {
  Exchange exchange;
  exchange.stored.requestTime = Date(std::chrono::milliseconds(takeInteger(input)));
  exchange.stored.responseTime = Date(std::chrono::milliseconds(takeInteger(input)));
  exchange.now = Date(std::chrono::milliseconds(takeInteger(input)));
  while (!input.empty()) {
    const std::size_t end = input.find('\n');
    takeLine(exchange, input.substr(0, end));
    input.remove_prefix(end == std::string_view::npos ? input.size() : end + 1);
  }
  return exchange;
}

bool isFresh(const Exchange& exchange) {
  const CurrentAge age = currentAge(exchange.stored, exchange.now);
  return age.isReliable &&
         age.value <
             freshnessLifetime(exchange.stored.response, exchange.stored.responseTime).value;
}

void checkPlan(const Exchange& exchange) {
  const CacheControl asked(exchange.request.headers);
  const CacheControl directed(exchange.stored.response.headers);
  const CachePlan plan = planRequest(exchange.request, &exchange.stored, exchange.now);
  require(!plan.reason.empty() && plan.age && plan.age->count() >= 0);
  if (plan.action == CachePlan::Action::serveStored) {
    require(plan.stale == !isFresh(exchange));
    require(!asked.has("no-store") && !asked.has("no-cache"));
    require(!directed.hasUnqualified("no-cache"));
    if (plan.stale) {
      require(!directed.has("must-revalidate"));
      require(asked.has("max-stale") || directed.has("stale-while-revalidate"));
    }
  }
  if (mayServeStaleOnError(exchange.request, exchange.stored, exchange.now, std::nullopt)) {
    require(isFresh(exchange) || !directed.has("must-revalidate"));
  }
  require(planRequest(exchange.request, nullptr, exchange.now).action !=
          CachePlan::Action::serveStored);
}

void checkAnswers(const Exchange& exchange) {
  const CachedURLResponse& stored = exchange.stored;
  const StoredAnswer answer = answerFromStored(exchange.request, stored, exchange.now);
  require(stored.data.view().find(answer.data.view()) != std::string_view::npos);
  require(answer.response.headers.all("Age").size() == 1);
  if (mayStore(exchange.request, stored.response, true)) {
    const CacheControl control(stored.response.headers);
    require(!control.has("no-store") || control.has("must-understand"));
    require(!CacheControl(exchange.request.headers).has("no-store"));
    const auto entry = entryToStore(stored.response, stored.data, stored.requestTime, exchange.now);
    require(!entry.response.headers.contains("Transfer-Encoding"));
  }
  const auto updated =
      entryAfterValidation(stored, stored.response, stored.responseTime, exchange.now);
  require(updated.data == stored.data);
  require(updated.response.headers.combined("ETag") == stored.response.headers.combined("ETag"));
  effectOfHead(stored, stored.response);
  URLRequest unsafe = exchange.request;
  unsafe.method = "POST";
  for (const URL& url : invalidatedURLs(unsafe, stored.response)) {
    require(url.origin() == unsafe.url.origin());
  }
}

void checkDate(std::string_view text, Date now) {
  if (const auto date = parseHTTPDate(text, now)) {
    require(parseHTTPDate(formatHTTPDate(*date), now) == date);
  }
  formatHTTPDate(now);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const Exchange exchange = exchangeFrom(input);
  checkPlan(exchange);
  checkAnswers(exchange);
  for (const auto& [name, value] : exchange.stored.response.headers) {
    checkDate(value, exchange.now);
  }
  return 0;
}
