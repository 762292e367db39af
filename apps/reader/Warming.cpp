#include "apps/reader/Warming.h"

#include <fmt/format.h>

#include <filesystem>

#include "apps/reader/FrontPage.h"
#include "apps/reader/RecordJSON.h"
#include "apps/reader/Renditions.h"
#include "apps/reader/Signals.h"
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
    if (!result.data) {
      return {"success", error ? error->localizedDescription : "cut short", {}, {}, true};
    }
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
    return {"networkError", error ? error->localizedDescription : "no answer", {}, {}, true};
  }

  std::optional<URLError> error;
};

std::string jsonLine(const URL& url, const Report& report) {
  return dump({{"url", url.absoluteString()},
               {"result", report.alternative},
               {"statusCode", report.statusCode ? JSON(*report.statusCode) : JSON()},
               {"bytes", report.data ? JSON(report.data->size()) : JSON()},
               {"reason", report.failed ? JSON(report.words) : JSON()}},
              true);
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
  auto fetch = std::make_shared<Fetch>(Fetch{url, isArticle});
  fetch->task = host_.content().cacheWarmerDataCoordinator()->saveToCache(
      url, force_, [self = self_, fetch](CacheWarmerRequestResult result) {
        Host::later([self, fetch, result = std::move(result)] {
          if (*self != nullptr) (*self)->take(*fetch, result);
        });
      });
}

void Warming::take(const Fetch& fetch, const CacheWarmerRequestResult& result) {
  const Report report =
      std::visit(Reporter{fetch.task ? fetch.task->error() : std::nullopt}, result);
  const URL& url = fetch.url;
  host_.waitsForTheNext();
  ++done_;
  if (report.failed) ++failed_;
  if (report.alternative == "successFromCache") ++alreadyCached_;
  if (report.alternative == "success" && !report.failed) fetched_.push_back(url);
  if (report.data) bytes_ += static_cast<std::int64_t>(report.data->size());
  if (fetch.isArticle && report.data) addPicturesOf(*report.data);

  const std::string text = printableText(url.absoluteString());
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

// A document is kept when the copy that is found offline, redirects or not, is on the disk.
std::vector<URL> Warming::lookForLosses() const {
  std::set<std::string> onDisk;
  for (const URLCache::Entry& entry : host_.sessionManager()->contentSessionCache()->entries()) {
    if (entry.onDisk) onDisk.insert(entry.response.response.url.absoluteString());
  }
  std::vector<URL> losses;
  for (const URL& url : fetched_) {
    const auto copy = host_.sessionManager()->offlineCopy(url);
    if (!copy || !onDisk.contains(copy->response.url.absoluteString())) losses.push_back(url);
  }
  return losses;
}

std::string Warming::reasonFor(const std::vector<URL>& losses) const {
  constexpr std::uintmax_t little = 1'000'000;
  const auto& cache = host_.sessionManager()->contentSessionCache();
  std::error_code error;
  const auto space = std::filesystem::space(cache->diskFile().parent_path(), error);
  if (!error && space.available < little) return "the disk is full";
  for (const URL& url : losses) {
    if (host_.sessionManager()->offlineCopy(url)) return "the disk cannot be written";
  }
  const bool isFull = cache->currentDiskUsage() > cache->diskCapacity() * 9 / 10;
  return isFull ? "the cache is full" : "the others may not be stored";
}

std::string Warming::finish() {
  try {
    host_.waitUntil([this] { return done_ == seen_.size(); }, host_.nameOf(host_.contentURL()));
  } catch (const Interrupted&) {
    printSum();
    host_.output().flush();
    throw;
  }
  return printSum();
}

std::string Warming::printSum() {
  progress_.reset();
  const std::vector<URL> losses = lookForLosses();
  const std::string reason = losses.empty() ? "" : reasonFor(losses);
  if (host_.json()) {
    for (const URL& url : losses) {
      host_.output().line(
          dump({{"url", url.absoluteString()}, {"result", "notKept"}, {"reason", reason}}, true));
    }
  } else {
    const std::size_t missing = seen_.size() - done_;
    host_.output().sentence(
        fmt::format("{} fetched, {} kept{}{}; {} in the cache already; {} in all{}.",
                    count(fetched_.size(), "document"), fetched_.size() - losses.size(),
                    losses.empty() ? "" : ": ", reason, alreadyCached_, byteSize(bytes_),
                    missing == 0 ? "" : fmt::format("; {} not fetched yet", missing)));
  }
  std::string trouble;
  if (failed_ > 0) trouble = fmt::format("{} could not be fetched", count(failed_, "document"));
  if (reason.starts_with("the disk")) {
    if (!trouble.empty()) trouble += ", ";
    trouble += fmt::format("{} not kept: {}", count(losses.size(), "document"), reason);
  }
  return trouble;
}

}  // namespace paperloom::reader
