#include "paperloom/network/FrontPageWarmer.h"

#include <algorithm>
#include <deque>
#include <filesystem>
#include <set>
#include <thread>
#include <utility>

#include "paperloom/model/ArticleParser.h"
#include "paperloom/model/Renditions.h"
#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/network/DataCoordinator.h"
#include "paperloom/network/internal/OfflineCopy.h"
#include "paperloom/platform/BodyLimit.h"
#include "paperloom/platform/Callback.h"
#include "paperloom/platform/DispatchQueue.h"
#include "paperloom/platform/Events.h"
#include "paperloom/platform/Mutex.h"

namespace paperloom {
namespace {

using Clock = std::chrono::steady_clock;
using End = WarmingSum::End;

// A time that is too far away to be added up is as good as none.
Clock::time_point deadlineAfter(std::chrono::milliseconds time) {
  return Clock::now() + std::clamp(time, std::chrono::milliseconds(0),
                                   std::chrono::milliseconds(std::chrono::hours(24 * 365)));
}

const Data* bodyOf(const CacheWarmerRequestResult& result) {
  if (const auto* fetched = std::get_if<cachewarmer::Success>(&result)) {
    return fetched->data ? &*fetched->data : nullptr;
  }
  const auto* found = std::get_if<cachewarmer::SuccessFromCache>(&result);
  return found != nullptr && found->data ? &*found->data : nullptr;
}

// What is found offline, redirects or not, is on the disk or lost.
class Losses {
 public:
  explicit Losses(const ContentSessionManagerProtocol& manager)
      : cache_(manager.contentSessionCache()),
        own_(dynamic_cast<const ContentSessionManager*>(&manager)) {}

  std::vector<URL> among(const std::vector<URL>& fetched) const {
    std::set<std::string> onDisk;
    for (const URLCache::Entry& entry : cache_->entries()) {
      if (entry.onDisk) onDisk.insert(entry.response.response.url.absoluteString());
    }
    std::vector<URL> lost;
    for (const URL& url : fetched) {
      const auto copy = copyOf(url);
      if (!copy || !onDisk.contains(copy->response.url.absoluteString())) lost.push_back(url);
    }
    return lost;
  }

  std::string reasonFor(const std::vector<URL>& lost) const {
    constexpr std::uintmax_t little = 1'000'000;
    std::error_code error;
    const auto space = std::filesystem::space(cache_->diskFile().parent_path(), error);
    if (!error && space.available < little) return "the disk is full";
    if (std::any_of(lost.begin(), lost.end(), [&](const URL& url) { return copyOf(url); })) {
      return "the disk cannot be written";
    }
    const bool isFull = cache_->currentDiskUsage() > cache_->diskCapacity() * 9 / 10;
    return isFull ? "the cache is full" : "the others may not be stored";
  }

 private:
  std::optional<CachedURLResponse> copyOf(const URL& url) const {
    return own_ != nullptr ? own_->offlineCopy(url) : offlineCopy(*cache_, URLRequest(url));
  }

  const std::shared_ptr<URLCache> cache_;
  const ContentSessionManager* const own_;
};

}  // namespace

// The thread and what it shares: mutex_ guards whether it is to end, and the answer that it waits
// for. All else is the thread's own.
class FrontPageWarmer::Work {
 public:
  Work(DataCoordinator& coordinator, WarmingPlan plan, Progress progress, Completion completion)
      : coordinator_(coordinator),
        warmer_(coordinator.cacheWarmerDataCoordinator()),
        plan_(std::move(plan)),
        progress_(std::move(progress)),
        completion_(std::move(completion)),
        deadline_(deadlineAfter(plan_.maximumTime)),
        thread_([this] { run(); }) {}

  ~Work() {
    told_.cancel();
    cancel();
    thread_.join();
  }
  Work(const Work&) = delete;
  Work& operator=(const Work&) = delete;

  void cancel() {
    {
      const MutexLock lock(mutex_);
      cancelled_ = true;
      changed_.notifyAll();
    }
    asking_.cancel();
  }

 private:
  struct Document {
    URL url;
    bool isArticle = false;
  };

  void run() {
    for (const URL& url : plan_.documents) add(url, false);
    if (plan_.frontPage) addCardsOf(*plan_.frontPage);
    if (plan_.frontPage || !plan_.sections || askForFrontPage()) warmAll();
    sum_.leftOut += waiting_.size();
    const Losses losses(*coordinator_.sessionManager());
    sum_.lost = losses.among(fetched_);
    if (!sum_.lost.empty()) sum_.reason = losses.reasonFor(sum_.lost);
    // Copies: a callback may be the end of this.
    tell([completion = completion_, sum = sum_] { call(completion, sum); });
  }

  template <class F>
  void tell(F f) {
    DispatchQueue::main().async(told_(std::move(f)));
  }

  bool askForFrontPage() {
    const auto stream = News(coordinator_, asking_).stream(*plan_.sections).get();
    if (!stream) {
      sum_.end = isCancelled() ? End::cancelled : End::noFrontPage;
      sum_.failure = stream.error();
      return false;
    }
    addCardsOf(*stream->record);
    return true;
  }

  void addCardsOf(const StreamProtocol& stream) {
    for (const auto& section : stream.sections()) addCards(section->articleHeaders());
    addCards(stream.sponsoredArticles());
  }

  void addCards(const ArticleHeaderList& cards) {
    for (const auto& card : cards) {
      addAddress(card->URL(), true);
      if (card->cardAsset()) addPicture(*card->cardAsset());
    }
  }

  void addPicture(const Asset& asset) {
    const auto* rendition = renditionFor(asset, plan_.pictureWidth, plan_.pixelDensity);
    if (rendition != nullptr) addAddress(rendition->url, false);
  }

  void addAddress(const URL& address, bool isArticle) {
    const auto url = plan_.resolve ? plan_.resolve(address) : std::optional(address);
    if (url) add(*url, isArticle);
  }

  void add(const URL& url, bool isArticle) {
    if (seen_.insert(url.absoluteString()).second) waiting_.push_back({url, isArticle});
  }

  void warmAll() {
    while (!waiting_.empty()) {
      if (isCancelled()) return end(End::cancelled);
      if (Clock::now() >= deadline_) return end(End::outOfTime);
      if (sum_.bytes >= plan_.maximumBytes) return end(End::outOfBytes);
      const Document document = waiting_.front();
      if (!warm(document)) return;
      waiting_.pop_front();
    }
  }

  void end(End how) { sum_.end = how; }

  // False when it was given up, and the rest with it.
  bool warm(const Document& document) {
    const auto answer = std::make_shared<std::optional<CacheWarmerRequestResult>>();
    const auto task = ask(document, answer);
    const bool isThere = waitFor(*answer);
    if (task && !isThere) task->cancel();
    if (task) sum_.bytes += task->countOfBytesReceived();
    if (!isThere) {
      end(isCancelled() ? End::cancelled : End::outOfTime);
      return false;
    }
    take(document, **answer, task ? task->error() : std::nullopt);
    return true;
  }

  std::shared_ptr<URLSessionTask> ask(
      const Document& document,
      const std::shared_ptr<std::optional<CacheWarmerRequestResult>>& answer) {
    const BodyLimit whatIsLeft(plan_.maximumBytes - sum_.bytes);
    return warmer_->saveToCache(document.url, plan_.forceRefresh,
                                asking_([this, answer](CacheWarmerRequestResult result) {
                                  const MutexLock lock(mutex_);
                                  *answer = std::move(result);
                                  changed_.notifyAll();
                                }));
  }

  bool waitFor(const std::optional<CacheWarmerRequestResult>& answer) {
    const MutexLock lock(mutex_);
    while (!answer && !cancelled_) {
      if (!changed_.waitUntil(mutex_, deadline_)) break;
    }
    return answer.has_value();
  }

  void take(const Document& document, CacheWarmerRequestResult& result,
            const std::optional<URLError>& error) {
    const Data* const body = bodyOf(result);
    if (body == nullptr && error && error->code == URLError::Code::dataLengthExceedsMaximum) {
      ++sum_.leftOut;
      end(End::outOfBytes);
    } else if (body == nullptr) {
      ++sum_.failed;
    } else if (std::holds_alternative<cachewarmer::Success>(result)) {
      ++sum_.fetched;
      fetched_.push_back(document.url);
    } else {
      ++sum_.cachedAlready;
    }
    if (document.isArticle && body != nullptr) addPicturesOf(*body);
    ++done_;
    Events::tell([&] {
      return event::WarmingProgress{Events::withoutSecrets(document.url), body != nullptr, done_,
                                    seen_.size(), sum_.bytes};
    });
    tell([progress = progress_, told = WarmedDocument{document.url, std::move(result), error, done_,
                                                      seen_.size(), sum_.bytes}] {
      call(progress, told);
    });
  }

  void addPicturesOf(const Data& article) {
    const auto parsed = ArticleParser().parse(article);
    if (!parsed) return;
    for (const Asset& asset : assetsOf(**parsed)) addPicture(asset);
  }

  bool isCancelled() {
    const MutexLock lock(mutex_);
    return cancelled_;
  }

  DataCoordinator& coordinator_;
  const std::shared_ptr<CacheWarmerDataCoordinatorProtocol> warmer_;
  const WarmingPlan plan_;
  const std::function<void(const WarmedDocument&)> progress_;
  const std::function<void(const WarmingSum&)> completion_;
  const Clock::time_point deadline_;

  std::set<std::string> seen_;
  std::deque<Document> waiting_;
  std::vector<URL> fetched_;
  std::size_t done_ = 0;
  WarmingSum sum_;

  Mutex mutex_;
  ConditionVariable changed_;
  bool cancelled_ PAPERLOOM_GUARDED_BY(mutex_) = false;

  Subscription asking_;  // whose requests end with cancel()
  Subscription told_;    // whose callbacks end with this
  std::thread thread_;
};

FrontPageWarmer::FrontPageWarmer(DataCoordinator& coordinator) : coordinator_(coordinator) {}

FrontPageWarmer::~FrontPageWarmer() = default;

void FrontPageWarmer::start(WarmingPlan plan, Progress progress, Completion completion) {
  if (work_) return;
  work_ = std::make_unique<Work>(coordinator_, std::move(plan), std::move(progress),
                                 std::move(completion));
}

void FrontPageWarmer::cancel() {
  if (work_) work_->cancel();
}

}  // namespace paperloom
