#include "paperloom/network/ContentSessionManager.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "paperloom/network/internal/OfflineCopy.h"
#include "paperloom/network/internal/TaskCounter.h"
#include "paperloom/platform/CacheExplanation.h"
#include "paperloom/platform/FatalError.h"
#include "paperloom/platform/Mutex.h"
#include "paperloom/platform/OfflineSets.h"

namespace paperloom {
namespace {

Provenance::Source sourceOf(const URLSessionTaskMetrics& metrics) {
  switch (metrics.source) {
    case URLSessionTaskMetrics::Source::network:
      return Provenance::Source::network;
    case URLSessionTaskMetrics::Source::cache:
      return Provenance::Source::cache;
    case URLSessionTaskMetrics::Source::revalidated:
      return Provenance::Source::revalidated;
    case URLSessionTaskMetrics::Source::stale:
      return Provenance::Source::stale;
  }
  return {};
}

URLSessionConfiguration withCache(URLSessionConfiguration configuration,
                                  std::shared_ptr<URLCache> cache) {
  configuration.urlCache = std::move(cache);
  return configuration;
}

URLSessionConfiguration withSomeCache(URLSessionConfiguration configuration) {
  if (!configuration.urlCache) configuration.urlCache = std::make_shared<URLCache>();
  return configuration;
}

PaperloomError networkError(std::string details, const std::optional<URLError>& error) {
  if (error) details.append(" : ").append(error->localizedDescription);
  return PaperloomError::networkError(std::move(details));
}

}  // namespace

// What has been parsed of answers to URLs that more than one request is under way to, so that those
// that share an answer parse it once. Safe from any thread.
class ContentSessionManager::SharedParses {
 public:
  using Parsed = tl::expected<std::any, ParserError>;

  void begin(const URL& url) {
    const MutexLock lock(mutex_);
    ++underWay_[url.absoluteString()].requests;
  }

  void end(const URL& url) {
    UnderWay gone;
    const MutexLock lock(mutex_);
    const auto found = underWay_.find(url.absoluteString());
    if (--found->second.requests > 0) return;
    gone = std::move(found->second);
    underWay_.erase(found);
  }

  // As parser(data). Those that share an answer ask one after the other.
  Parsed parse(const URL& url, const Data& data, const ErasedParser& parser) {
    if (auto known = find(url, data, parser)) return *std::move(known);
    Parsed parsed = parser(data);
    const MutexLock lock(mutex_);
    auto& entry = underWay_.at(url.absoluteString());
    if (entry.requests > 1 && parser.parser) entry.parses.push_back({data, parser.parser, parsed});
    return parsed;
  }

 private:
  struct Parse {
    Data data;  // keeps the address its own
    std::shared_ptr<const void> parser;
    Parsed parsed;
  };
  struct UnderWay {
    int requests = 0;
    std::vector<Parse> parses{};
  };

  std::optional<Parsed> find(const URL& url, const Data& data, const ErasedParser& parser) {
    const MutexLock lock(mutex_);
    for (const Parse& parse : underWay_.at(url.absoluteString()).parses) {
      const bool isSame = parse.data.view().data() == data.view().data() &&
                          parse.data.size() == data.size() && parse.parser == parser.parser;
      if (isSame) return parse.parsed;
    }
    return std::nullopt;
  }

  Mutex mutex_;
  std::unordered_map<std::string, UnderWay> underWay_ PAPERLOOM_GUARDED_BY(mutex_);
};

// One GET from its start to its completion. Its body is parsed once: beside the callback queue, for
// the store filter or for the completion, whichever asks first.
struct ContentSessionManager::Get {
  using Parsed = SharedParses::Parsed;

  std::optional<URL> url;
  std::shared_ptr<SharedParses> parses;
  ErasedParser parser;
  ErasedCompletion completion;
  std::shared_ptr<URLCache> cache;
  std::shared_ptr<TaskCounter> counter;
  std::shared_ptr<OfflineSets> sets;
  std::shared_ptr<URLSessionTask> task;   // until it has finished
  std::optional<CachedURLResponse> kept;  // by the sets
  std::optional<Parsed> parsedFresh;
  std::optional<Parsed> parsedCopy;
  std::optional<HTTPURLResponse> copied;  // once it has finished
  bool inFlight = true;

  // The count falls before a parser runs.
  void land() {
    if (std::exchange(inFlight, false)) counter->decrement();
  }

  // What was stored before the request and may take the place of its answer.
  std::optional<CachedURLResponse> copy() const {
    auto stored = task->storedResponse();
    if (stored && !isOfflineCopy(stored->response)) stored.reset();
    const bool isNewer = kept && (!stored || stored->responseTime < kept->responseTime);
    return isNewer ? kept : stored;
  }

  // What waits for a disk is done beside the callback queue, and only where the server has failed.
  void lookIntoSets(const std::optional<HTTPURLResponse>& response) {
    if (sets && !(response && isOfflineCopy(*response))) {
      kept = sets->copy(task->originalRequest().url);
    }
  }

  void parse(const std::optional<Data>& data, const std::optional<HTTPURLResponse>& response) {
    land();
    if (response && isOfflineCopy(*response)) {
      if (data && !parsedFresh) parsedFresh = parses->parse(*url, *data, parser);
    } else if (const auto stored = copy(); stored && !parsedCopy) {
      parsedCopy = parses->parse(*url, stored->data, parser);
    }
  }

  bool isWorthStoring(const HTTPURLResponse& response, const Data& data) {
    // Behind an answer that has been given: a parse has effects that belong to an answer.
    if (!task) return isOfflineCopy(response, copied ? &*copied : nullptr);
    if (!isOfflineCopy(response)) return false;
    parse(data, response);
    return parsedFresh->has_value();
  }

  void finish(const std::optional<Data>& data, const std::optional<HTTPURLResponse>& response,
              const std::optional<URLError>& error) {
    parse(data, response);
    parses->end(*url);
    auto stored = copy();
    const URLSessionTaskMetrics metrics = task->metrics();
    const URLRequest request = std::exchange(task, nullptr)->originalRequest();
    if (stored) copied = stored->response;
    Provenance provenance{.error = error};
    if (response) provenance.statusCode = response->statusCode;
    if (!response || !isOfflineCopy(*response)) return fallBack(stored, std::move(provenance));
    provenance.source = sourceOf(metrics);
    provenance.fromCache = metrics.serverFailed;
    provenance.age = metrics.age;
    provenance.fetchedAt = metrics.fetchedAt;
    if (metrics.serverFailed) {
      provenance.statusCode = metrics.failedStatusCode;
      provenance.error = metrics.failure;
    }
    const bool wasStored = provenance.source != Provenance::Source::network;
    if (parsedFresh && !*parsedFresh && wasStored && stored)
      demandValidation(*std::move(stored), request);
    answer(std::move(parsedFresh), error, provenance);
  }

  void fallBack(const std::optional<CachedURLResponse>& stored, Provenance provenance) {
    provenance.source = Provenance::Source::cache;
    provenance.fromCache = true;
    if (stored) {
      const auto age =
          std::chrono::floor<std::chrono::seconds>(currentDate() - stored->responseTime);
      provenance.age = std::max(age, std::chrono::seconds(0));
      provenance.fetchedAt = stored->responseTime;
    }
    answer(std::move(parsedCopy), provenance.error, provenance);
  }

  void answer(std::optional<Parsed> parsed, const std::optional<URLError>& error,
              const Provenance& provenance) {
    if (!parsed) {
      completion(tl::unexpected(networkError("no network error", error)), provenance);
    } else if (*parsed) {
      completion(std::move(**parsed), provenance);
    } else {
      completion(tl::unexpected(asPaperloomError(std::move(parsed->error()))), provenance);
    }
  }

  // From now on the stored answer is asked after before it is used, however fresh it calls itself:
  // its document could not be read. It stays for those who can read it.
  void demandValidation(CachedURLResponse stored, URLRequest key) {
    stored.response.headers.set("Cache-Control", "no-cache");
    key.url = stored.response.url;
    cache->storeCachedResponse(stored, key);
  }
};

URLSessionConfiguration ContentSessionManager::defaultConfiguration() {
  URLSessionConfiguration configuration;
  configuration.timeoutIntervalForRequest = std::chrono::seconds(20);
  configuration.urlCache = std::make_shared<URLCache>(8 * megabyte, 100 * megabyte, "url-cache");
  return configuration;
}

ContentSessionManager::ContentSessionManager() : ContentSessionManager(defaultConfiguration()) {}

ContentSessionManager::ContentSessionManager(std::shared_ptr<URLCache> cache)
    : ContentSessionManager(withCache(
          defaultConfiguration(), required(std::move(cache), "a session manager needs a cache"))) {}

ContentSessionManager::ContentSessionManager(URLSessionConfiguration configuration)
    : taskCounter_(std::make_shared<TaskCounter>()),
      parses_(std::make_shared<SharedParses>()),
      session_(withSomeCache(std::move(configuration))) {
  contentSessionCache_ = session_.configuration().urlCache;
}

ContentSessionManager::~ContentSessionManager() = default;

std::int64_t ContentSessionManager::taskCount() const { return taskCounter_->value(); }

void ContentSessionManager::setOfflineSets(std::shared_ptr<OfflineSets> sets) {
  offlineSets_.set(std::move(sets));
}

std::optional<CachedURLResponse> ContentSessionManager::offlineCopy(const URL& url) const {
  return paperloom::offlineCopy(*contentSessionCache_,
                                session_.withDefaultHeaders(URLRequest(url)));
}

std::optional<ContentSessionManager::FreshCopy> ContentSessionManager::freshCopyAtOnce(
    const URL& url) const {
  const URLRequest request = session_.withDefaultHeaders(URLRequest(url));
  auto known = contentSessionCache_->cachedResponseAtOnce(request);
  if (!known || !known->response || known->response->response.statusCode != 200) {
    return std::nullopt;
  }
  const auto plan = explainCaching(request, known->response, currentDate());
  const bool isFresh = plan.outcome == CacheExplanation::Outcome::answeredFromCache && !plan.stale;
  if (!isFresh) return std::nullopt;
  return FreshCopy{*std::move(known->response), plan.age};
}

std::shared_ptr<URLSessionTask> ContentSessionManager::getData(const URL& url, ErasedParser parser,
                                                               ErasedCompletion completion,
                                                               Parsing parsing) {
  return getDataFor(URLRequest(url), std::move(parser), std::move(completion), parsing);
}

std::shared_ptr<URLSessionTask> ContentSessionManager::getDataFor(URLRequest request,
                                                                  ErasedParser parser,
                                                                  ErasedCompletion completion,
                                                                  Parsing parsing) {
  auto get = std::make_shared<Get>();
  get->url = request.url;
  get->parses = parses_;
  get->parser = std::move(parser);
  get->completion = std::move(completion);
  get->cache = contentSessionCache_;
  get->counter = taskCounter_;
  URLSession::Preparation preparation;
  get->sets = offlineSets_.get();
  if (parsing == Parsing::beside || get->sets) {
    preparation = [get, parsing](const auto& data, const auto& response, const auto& /*error*/) {
      get->lookIntoSets(response);
      if (parsing == Parsing::beside) get->parse(data, response);
    };
  }
  request.sharesAnswer = true;
  parses_->begin(request.url);
  auto task = session_.dataTask(
      std::move(request),
      [get](const auto& data, const auto& response, const auto& error) {
        get->finish(data, response, error);
      },
      [get](const HTTPURLResponse& response, const Data& data) {
        return get->isWorthStoring(response, data);
      },
      std::move(preparation));
  get->task = task;
  taskCounter_->increment();
  task->resume();
  return task;
}

std::shared_ptr<URLSessionTask> ContentSessionManager::postJSONData(
    const URL& url, Data body, std::function<void(PostRequestResult)> completion) {
  URLRequest request(url);
  request.method = "POST";
  request.headers.add("Content-Type", "application/json");
  request.headers.add("Accept", "application/json");
  request.body = std::move(body);
  request.staysAtOrigin = true;  // what another origin says is no answer to it
  const auto neverStored = [](const HTTPURLResponse&, const Data&) {
    return false;  // the answer may hold secrets
  };
  auto task = session_.dataTask(
      std::move(request),
      [completion = std::move(completion), counter = taskCounter_](
          const auto& data, const auto& response, const auto& error) {
        counter->decrement();
        if (!completion) return;
        if (response && data && !error) {
          completion(PostSuccess{response->statusCode, *data});
        } else {
          completion(networkError("Error:", error));
        }
      },
      neverStored);
  taskCounter_->increment();
  task->resume();
  return task;
}

}  // namespace paperloom
