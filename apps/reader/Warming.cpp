#include "apps/reader/Warming.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "apps/reader/FrontPage.h"
#include "apps/reader/Renditions.h"
#include "apps/reader/Text.h"
#include "paperloom/model/ArticleParser.h"

namespace paperloom::reader {
namespace {

// What there is to say of one result, whichever alternative it is.
struct Report {
  std::string alternative;
  std::string words;
  std::optional<int> statusCode;
  std::optional<Data> data;
  bool failed = false;
};

struct Reporter {
  // Success is a matter of the status alone; a body that was cut off is not handed over.
  Report operator()(const cachewarmer::Success& result) const {
    if (!result.data) return {"success", "cut short", {}, {}, true};
    return {"success", "fetched", {}, result.data, false};
  }
  Report operator()(const cachewarmer::SuccessFromCache& result) const {
    return {"successFromCache", "cached already", {}, result.data, false};
  }
  Report operator()(const cachewarmer::FailedStatusCode& result) const {
    return {"failedStatusCode",
            fmt::format("failed with status {}", result.statusCode),
            result.statusCode,
            {},
            true};
  }
  Report operator()(const cachewarmer::NetworkError&) const {
    return {"networkError", "no answer", {}, {}, true};
  }
};

std::string jsonLine(const URL& url, const Report& report) {
  nlohmann::ordered_json json;
  json["url"] = url.absoluteString();
  json["result"] = report.alternative;
  json["statusCode"] = report.statusCode ? nlohmann::ordered_json(*report.statusCode) : nullptr;
  json["bytes"] = report.data ? nlohmann::ordered_json(report.data->size()) : nullptr;
  return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace

Warming::Warming(Host& host, bool force)
    : host_(host), force_(force), self_(std::make_shared<Warming*>(this)) {
  if (!host_.json()) progress_.emplace(host_.output());
}

Warming::~Warming() { *self_ = nullptr; }

void Warming::add(const URL& url) { start(url, false); }

void Warming::addStream(const StreamProtocol& stream) {
  for (const auto& card : cardsOf(stream)) {
    addAddress(card->URL(), true);
    if (card->cardAsset()) addAddress(pictureOf(*card->cardAsset()), false);
  }
}

void Warming::start(const URL& url, bool isArticle) {
  if (!seen_.insert(url.absoluteString()).second) return;
  if (progress_) progress_->setTotal(seen_.size());
  host_.content().cacheWarmerDataCoordinator()->saveToCache(
      url, force_, [self = self_, url, isArticle](CacheWarmerRequestResult result) {
        DispatchQueue::main().async([self, url, isArticle, result = std::move(result)] {
          if (*self != nullptr) (*self)->take(url, isArticle, result);
        });
      });
}

void Warming::take(const URL& url, bool isArticle, const CacheWarmerRequestResult& result) {
  const Report report = std::visit(Reporter(), result);
  ++done_;
  if (report.failed) ++failed_;
  if (report.alternative == "successFromCache") ++alreadyCached_;
  if (report.data) bytes_ += static_cast<std::int64_t>(report.data->size());
  if (isArticle && report.data) addPicturesOf(*report.data);

  const std::string text = printableLine(url.absoluteString());
  if (!progress_) {
    host_.output().line(jsonLine(url, report));
    host_.output().flush();
  } else if (report.failed && host_.output().terminal().interactive) {
    progress_->note(fmt::format("{}: {}", report.words, text));
    progress_->step({});
  } else {
    const auto size = report.data ? static_cast<std::int64_t>(report.data->size()) : 0;
    progress_->step(report.failed ? fmt::format("{}: {}", report.words, text)
                                  : fmt::format("{}, {}: {}", report.words, byteSize(size), text));
  }
}

void Warming::addPicturesOf(const Data& article) {
  const auto parsed = ArticleParser().parse(article);
  if (!parsed) return;
  for (const Asset& asset : assetsOf(**parsed)) addAddress(pictureOf(asset), false);
}

void Warming::addAddress(const URL& address, bool isArticle) {
  if (const auto url = host_.resolveIfPossible(address)) start(*url, isArticle);
}

std::size_t Warming::finish() {
  host_.waitUntil([this] { return done_ == seen_.size(); });
  progress_.reset();
  if (!host_.json()) {
    host_.output().line(fmt::format("{} in the cache, {} of them already; {} in all.",
                                    count(done_ - failed_, "document"), alreadyCached_,
                                    byteSize(bytes_)));
  }
  return failed_;
}

}  // namespace paperloom::reader
