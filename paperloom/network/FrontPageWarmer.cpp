#include "paperloom/network/FrontPageWarmer.h"

#include <algorithm>
#include <deque>
#include <filesystem>
#include <set>
#include <thread>
#include <utility>

#include "paperloom/model/ArticleParser.h"
#include "paperloom/model/DocumentParsers.h"
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

// The server says that there is no such document, or none for us, and will say so again.
bool isRefusal(const CacheWarmerRequestResult& result) {
  const auto* failed = std::get_if<cachewarmer::FailedStatusCode>(&result);
  if (failed == nullptr) return false;
  const int status = failed->statusCode;
  return status >= 400 && status < 500 && status != 408 && status != 425 && status != 429;
}

std::string whyFailed(const CacheWarmerRequestResult& result,
                      const std::optional<URLError>& error) {
  if (const auto* failed = std::get_if<cachewarmer::FailedStatusCode>(&result)) {
    return "the server answers with status " + std::to_string(failed->statusCode);
  }
  return error ? error->localizedDescription : "no answer";
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
  using Kind = OfflineSet::Root::Kind;
  struct Document {
    URL url;
    Kind kind = Kind::document;
    bool isRoot = false;
  };

  void run() {
    for (const URL& url : plan_.documents) add(url, Kind::document, true);
    for (const URL& url : plan_.articles) add(url, Kind::article, true);
    for (const URL& url : plan_.frontPages) add(url, Kind::frontPage, true);
    if (keeps()) addWhatIsKeptOf();
    if (plan_.frontPage) addCardsOf(*plan_.frontPage);
    const bool isThere = plan_.frontPage || !plan_.sections || keeps() || askForFrontPage();
    if (isThere && (!keeps() || beginSet())) warmAll();
    sum_.leftOut += waiting_.size();
    if (keeps()) endSet();
    const Losses losses(*coordinator_.sessionManager());
    if (!keeps()) sum_.lost = losses.among(fetched_);
    if (!sum_.lost.empty()) sum_.reason = losses.reasonFor(sum_.lost);
    // Copies: a callback may be the end of this.
    tell([completion = completion_, sum = sum_] { call(completion, sum); });
  }

  template <class F>
  void tell(F f) {
    DispatchQueue::main().async(told_(std::move(f)));
  }

  bool keeps() const { return plan_.offlineSets && !plan_.keepAs.empty(); }

  // A front page is kept like every other document, under the address that it is asked for by.
  void addWhatIsKeptOf() {
    if (!plan_.sections || plan_.frontPage) return;
    if (const auto url = coordinator_.appMetadataURL()) add(*url, Kind::document, true);
    if (const auto url = coordinator_.streamURL(*plan_.sections)) add(*url, Kind::frontPage, true);
  }

  bool beginSet() {
    std::vector<OfflineSet::Root> roots;
    for (const Document& document : waiting_) {
      if (document.isRoot) roots.push_back({document.kind, document.url});
    }
    if (waiting_.empty()) return failSet("there is nothing to keep");
    auto begun = plan_.offlineSets->write(plan_.keepAs, std::move(roots));
    if (!begun) return failSet(std::move(begun.error()));
    set_.emplace(*std::move(begun));
    return true;
  }

  bool failSet(std::string trouble) {
    sum_.setTrouble = std::move(trouble);
    end(End::notKept);
    return false;
  }

  // False when nothing is to come of the set any more.
  bool keep(const Document& document, const CacheWarmerRequestResult& result,
            const std::shared_ptr<URLSessionTask>& task, const std::optional<URLError>& error) {
    const std::string address = Events::withoutSecrets(document.url).absoluteString();
    const Data* const body = bodyOf(result);
    const auto response = task ? task->response() : std::nullopt;
    if (error && error->code == URLError::Code::dataLengthExceedsMaximum) {
      end(End::outOfBytes);
      return false;
    }
    if (body == nullptr || !response) {
      if (document.isRoot || !isRefusal(result)) {
        return failSet(address + ": " + whyFailed(result, error));
      }
      set_->addMissing(document.url);
      return true;
    }
    // What a captive portal sends takes nobody's place.
    const bool isWanted = document.isRoot && document.kind == Kind::document;
    const bool isReadable = document.kind != Kind::frontPage || StreamParser().parse(*body);
    if (!isReadable || (isWebPage(response->headers) && !isWanted)) {
      return failSet(address + ": something else came in its place");
    }
    const Date now = currentDate();
    const auto added = set_->add(document.url, {*response, *body, now, now});
    if (!added) return failSet(added.error());
    const bool isForbidden = *added == OfflineSets::Writer::Added::forbidden;
    return isForbidden && document.isRoot ? failSet(address + ": the server forbids to keep it")
                                          : true;
  }

  void endSet() {
    if (sum_.end == End::complete) {
      auto made = set_->commit();
      if (made) {
        sum_.set = *std::move(made);
      } else {
        failSet(std::move(made.error()));
      }
    }
    set_.reset();
    if (sum_.end == End::outOfBytes) sum_.setTrouble = "it needs more bytes than are allowed";
    if (sum_.end == End::outOfTime) sum_.setTrouble = "it takes longer than is allowed";
    if (sum_.end == End::cancelled) sum_.setTrouble = "cancelled";
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
    const double width = plan_.cardPictureWidth.value_or(plan_.pictureWidth);
    for (const auto& card : cards) {
      addAddress(card->URL(), Kind::article);
      if (card->cardAsset()) addPicture(*card->cardAsset(), width);
    }
  }

  void addPicture(const Asset& asset, double width) {
    const auto* rendition = renditionFor(asset, width, plan_.pixelDensity);
    if (rendition != nullptr) addAddress(rendition->url, Kind::document);
  }

  void addAddress(const URL& address, Kind kind) {
    const auto url = plan_.resolve ? plan_.resolve(address) : std::optional(address);
    if (url) add(*url, kind, false);
  }

  void add(const URL& url, Kind kind, bool isRoot) {
    if (seen_.insert(url.absoluteString()).second) waiting_.push_back({url, kind, isRoot});
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
    const auto error = task ? task->error() : std::nullopt;
    const bool goesOn = !set_ || keep(document, **answer, task, error);
    take(document, **answer, error);
    if (!goesOn) waiting_.pop_front();
    return goesOn;
  }

  std::shared_ptr<URLSessionTask> ask(
      const Document& document,
      const std::shared_ptr<std::optional<CacheWarmerRequestResult>>& answer) {
    const BodyLimit whatIsLeft(plan_.maximumBytes - sum_.bytes);
    return warmer_->saveToCache(document.url, plan_.forceRefresh || keeps(),
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
      if (sum_.end == End::complete) end(End::outOfBytes);
    } else if (body == nullptr) {
      ++sum_.failed;
    } else if (std::holds_alternative<cachewarmer::Success>(result)) {
      ++sum_.fetched;
      fetched_.push_back(document.url);
    } else {
      ++sum_.cachedAlready;
    }
    if (body != nullptr) addWhatItLeadsTo(document.kind, *body);
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

  void addWhatItLeadsTo(Kind kind, const Data& body) {
    if (kind == Kind::article) {
      const auto article = ArticleParser().parse(body);
      if (!article) return;
      for (const Asset& asset : assetsOf(**article)) addPicture(asset, plan_.pictureWidth);
    } else if (kind == Kind::frontPage) {
      if (const auto stream = StreamParser().parse(body)) addCardsOf(**stream);
    }
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
  std::optional<OfflineSets::Writer> set_;  // while it is made

  Mutex mutex_;
  ConditionVariable changed_;
  bool cancelled_ PAPERLOOM_GUARDED_BY(mutex_) = false;

  Subscription asking_;  // whose requests end with cancel()
  Subscription told_;    // whose callbacks end with this
  std::thread thread_;
};

WarmingPlan refreshPlan(const OfflineSet& set) {
  WarmingPlan plan;
  plan.keepAs = set.name;
  for (const auto& [kind, url] : set.roots) {
    using Kind = OfflineSet::Root::Kind;
    auto& urls = kind == Kind::article     ? plan.articles
                 : kind == Kind::frontPage ? plan.frontPages
                                           : plan.documents;
    urls.push_back(url);
  }
  return plan;
}

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
