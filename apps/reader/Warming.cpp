#include "apps/reader/Warming.h"

#include <fmt/format.h>
#include <poll.h>

#include <limits>

#include "apps/reader/RecordJSON.h"
#include "apps/reader/Signals.h"
#include "apps/reader/Text.h"
#include "paperloom/platform/DispatchQueue.h"

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
    : host_(host), warmer_(host.content()), self_(std::make_shared<Warming*>(this)) {
  if (!host_.json()) progress_.emplace(host_.output());
  plan_.forceRefresh = force;
  plan_.maximumBytes = std::numeric_limits<std::int64_t>::max();
  plan_.maximumTime = std::chrono::hours(24);
  plan_.resolve = [&host](const URL& address) { return host.resolveIfPossible(address); };
}

void Warming::take(const WarmedDocument& document) {
  const Report report = std::visit(Reporter{document.error}, document.result);
  host_.waitsForTheNext();
  const auto size = report.data ? static_cast<std::int64_t>(report.data->size()) : 0;
  bytes_ += size;
  if (!progress_) {
    host_.output().line(jsonLine(document.url, report));
    host_.output().flush();
    return;
  }
  progress_->setTotal(document.total);
  const std::string text = printableText(document.url.absoluteString());
  const std::string failure = fmt::format("{}: {}", report.words, text);
  if (report.failed && host_.output().terminal().interactive) {
    progress_->note(failure);
    progress_->step({});
  } else {
    progress_->step(report.failed ? failure
                                  : fmt::format("{}, {}: {}", report.words, byteSize(size), text));
  }
}

std::string Warming::finish() {
  // What is still queued when this object goes away finds nobody.
  const auto later = [self = std::weak_ptr<Warming*>(self_)](auto work) {
    Host::later([self, work] {
      if (const auto warming = self.lock()) work(**warming);
    });
  };
  warmer_.start(
      plan_,
      [later](const WarmedDocument& document) {
        later([document](Warming& warming) { warming.take(document); });
      },
      [later](const WarmingSum& sum) { later([sum](Warming& warming) { warming.sum_ = sum; }); });
  try {
    host_.waitUntil([this] { return sum_.has_value(); }, host_.nameOf(host_.contentURL()));
  } catch (const Interrupted&) {
    warmer_.cancel();
    DispatchQueue& queue = DispatchQueue::main();
    while (queue.runPending(), !sum_) {
      pollfd work{queue.fileDescriptor(), POLLIN, 0};
      ::poll(&work, 1, -1);
    }
    printSum();
    host_.output().flush();
    throw;
  }
  return printSum();
}

std::string Warming::printSum() {
  progress_.reset();
  if (!plan_.keepAs.empty()) return printSet();
  if (host_.json()) {
    for (const URL& url : sum_->lost) {
      host_.output().line(dump(
          {{"url", url.absoluteString()}, {"result", "notKept"}, {"reason", sum_->reason}}, true));
    }
  } else {
    const std::size_t left = sum_->leftOut;
    host_.output().sentence(
        fmt::format("{} fetched, {} kept{}{}; {} in the cache already; {} in all{}.",
                    count(sum_->fetched, "document"), sum_->fetched - sum_->lost.size(),
                    sum_->lost.empty() ? "" : ": ", sum_->reason, sum_->cachedAlready,
                    byteSize(bytes_), left == 0 ? "" : fmt::format("; {} not fetched yet", left)));
  }
  std::string trouble;
  if (sum_->end == WarmingSum::End::outOfBytes) trouble = "the bytes allowed do not suffice";
  if (sum_->end == WarmingSum::End::outOfTime) trouble = "the time allowed does not suffice";
  if (sum_->failed > 0) {
    if (!trouble.empty()) trouble += ", ";
    trouble += fmt::format("{} could not be fetched", count(sum_->failed, "document"));
  }
  if (sum_->reason.starts_with("the disk")) {
    if (!trouble.empty()) trouble += ", ";
    trouble += fmt::format("{} not kept: {}", count(sum_->lost.size(), "document"), sum_->reason);
  }
  return trouble;
}

std::string Warming::printSet() {
  if (!sum_->set) {
    const bool staysThere = plan_.offlineSets->set(plan_.keepAs).has_value();
    return fmt::format("{} is not kept{}: {}", printableText(plan_.keepAs),
                       staysThere ? " anew, the old one stays" : "", sum_->setTrouble);
  }
  const OfflineSet& set = *sum_->set;
  if (host_.json()) {
    host_.output().line(dump(toJSON(set), true));
  } else {
    host_.output().sentence(fmt::format(
        "{}: {}, {}{}.", printableText(set.name), count(set.urls.size(), "document"),
        byteSize(set.bytes),
        set.missing.empty() ? ""
                            : fmt::format("; {} left out, which the service does not give",
                                          count(set.missing.size(), "document"))));
  }
  return {};
}

}  // namespace paperloom::reader
