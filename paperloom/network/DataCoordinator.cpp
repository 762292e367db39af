#include "paperloom/network/DataCoordinator.h"

#include <string_view>
#include <utility>

#include "paperloom/model/ArticleParser.h"
#include "paperloom/model/CurrentAppMetadata.h"
#include "paperloom/model/DocumentParsers.h"
#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/network/MockSessionManager.h"
#include "paperloom/network/internal/DecodedImages.h"
#include "paperloom/network/internal/OfflineResource.h"
#include "paperloom/network/internal/RecordFetch.h"
#include "paperloom/platform/DispatchQueue.h"
#include "paperloom/platform/FatalError.h"
#include "paperloom/platform/FirstUse.h"

namespace paperloom {
namespace {

constexpr const char* withoutManager = "a data coordinator needs a session manager";

std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) {
    if (&text != &texts.front()) all += ',';
    all += text;
  }
  return all;
}

// One of each kind, so that requests that share an answer share its record.
template <class Parser>
std::shared_ptr<const Parser> theParser() {
  static const auto* const parser = new auto(std::make_shared<const Parser>());
  return *parser;
}

URL streamBelow(const URL& baseURL, const std::vector<std::string>& sections) {
  const auto url =
      baseURL.appendingPathComponent("stream").replacingQueryItems({{"uids", joined(sections)}});
  if (!url) fatalError("the stream URL cannot be built from the base URL");
  return *url;
}

// The owners that a request's answer is for; none when somebody else waits for it too. Without a
// callback a request is made for what the coordinator keeps.
template <class Success, class Failure>
std::vector<std::shared_ptr<Subscription::Token>> ownersOf(const Success& success,
                                                           const Failure& failure) {
  if ((success && !success.owner()) || (failure && !failure.owner())) return {};
  std::vector<std::shared_ptr<Subscription::Token>> owners;
  if (success) owners.push_back(success.owner());
  if (failure) owners.push_back(failure.owner());
  return owners;
}

using Parsing = ContentSessionManagerProtocol::Parsing;
using Owners = std::vector<std::shared_ptr<Subscription::Token>>;
template <class Item>
using Completion = std::function<void(Result<Item>, const Provenance&)>;

// A copy that was taken for its age alone, and could not be read, stands in nobody's way.
template <class Item>
Completion<Item> askingAgain(const std::shared_ptr<ContentSessionManagerProtocol>& manager,
                             const URL& url,
                             const std::shared_ptr<const ParserProtocol<Item>>& parser,
                             Completion<Item> completion, const Owners& owners, Parsing parsing) {
  return [=, manager = std::weak_ptr(manager)](Result<Item> result, const Provenance& from) {
    using Source = Provenance::Source;
    const bool isCopy =
        !from.fromCache && (from.source == Source::cache || from.source == Source::stale);
    const auto there = !result && isCopy ? manager.lock() : nullptr;
    if (!there) return completion(std::move(result), from);
    const auto task = there->template getDocument<Item>(url, parser, completion, parsing);
    cancelWithOwners(task, owners);
    task->resume();
  };
}

// Asks for the copy alone, and has the completion of what is asked of the server beside it told
// after that.
template <class Item>
Completion<Item> handingOverTheCopy(ContentSessionManagerProtocol& manager, URLRequest request,
                                    const std::shared_ptr<const ParserProtocol<Item>>& parser,
                                    Completion<Item> completion, const Owners& owners,
                                    Parsing parsing) {
  const auto isAnswered = std::make_shared<bool>(false);  // the callback queue's
  request.cachePolicy = URLRequestCachePolicy::returnCacheDataDontLoad;
  const auto task = manager.getDocument<Item>(
      std::move(request), parser,
      [isAnswered, completion](Result<Item> result, Provenance from) {
        if (!result || *isAnswered) return;
        from.isFollowed = true;
        from.fromCache = false;  // the server has not been asked yet
        from.error.reset();
        completion(std::move(result), from);
      },
      parsing);
  cancelWithOwners(task, owners);
  task->resume();
  return [isAnswered, completion = std::move(completion)](Result<Item> result,
                                                          const Provenance& from) {
    *isAnswered = true;
    completion(std::move(result), from);
  };
}

// One request of a coordinator's; the task is that of the server's answer, already started.
template <class Item>
std::shared_ptr<URLSessionTask> get(const std::shared_ptr<ContentSessionManagerProtocol>& manager,
                                    const URL& url, const std::optional<Refresh>& refresh,
                                    std::shared_ptr<const ParserProtocol<Item>> parser,
                                    Completion<Item> completion, Owners owners,
                                    Parsing parsing = Parsing::onCallbackQueue) {
  std::shared_ptr<URLSessionTask> task;
  if (!refresh) {
    task = manager->getDocument<Item>(url, std::move(parser), std::move(completion), parsing);
  } else {
    URLRequest request(url);
    request.refreshIfOlderThan = refresh->maximumAge();
    if (request.refreshIfOlderThan) {
      completion = askingAgain<Item>(manager, url, parser, std::move(completion), owners, parsing);
    } else {
      completion = handingOverTheCopy<Item>(*manager, request, parser, std::move(completion),
                                            owners, parsing);
      request.cachePolicy = URLRequestCachePolicy::reloadRevalidatingCacheData;
    }
    task = manager->getDocument<Item>(std::move(request), std::move(parser), std::move(completion),
                                      parsing);
  }
  cancelWithOwners(task, std::move(owners));
  task->resume();
  return task;
}

constexpr std::int64_t imageMemory = 32 * ContentSessionManager::megabyte;

using ManagerOfShared = FirstUse<std::shared_ptr<ContentSessionManagerProtocol>>;

}  // namespace

struct DataCoordinator::Received {
  std::shared_ptr<CurrentAppMetadata> appMetadata;
  Guarded<std::shared_ptr<const StreamProtocol>> stream;
};

DataCoordinator& DataCoordinator::shared() {
  // Not owned: the slot of the process is never destroyed.
  const std::shared_ptr<CurrentAppMetadata> slot(std::shared_ptr<void>(),
                                                 &CurrentAppMetadata::shared());
  static auto* const coordinator =
      new DataCoordinator(ManagerOfShared::of<DataCoordinator>().takeOr(
                              [] { return std::make_shared<ContentSessionManager>(); }),
                          nullptr, slot);
  return *coordinator;
}

bool DataCoordinator::configureShared(
    std::shared_ptr<ContentSessionManagerProtocol> sessionManager) {
  return ManagerOfShared::of<DataCoordinator>().set(
      required(std::move(sessionManager), withoutManager));
}

DataCoordinator::DataCoordinator(std::shared_ptr<ContentSessionManagerProtocol> sessionManager)
    : DataCoordinator(std::move(sessionManager), nullptr, std::make_shared<CurrentAppMetadata>()) {}

DataCoordinator::DataCoordinator(std::shared_ptr<ContentSessionManagerProtocol> sessionManager,
                                 LatestDateStore& dates)
    : DataCoordinator(std::move(sessionManager), &dates, std::make_shared<CurrentAppMetadata>()) {}

DataCoordinator::DataCoordinator(std::shared_ptr<ContentSessionManagerProtocol> sessionManager,
                                 LatestDateStore* dates,
                                 std::shared_ptr<CurrentAppMetadata> appMetadata)
    : sessionManager_(required(std::move(sessionManager), withoutManager)),
      dates_(dates),
      received_(std::make_shared<Received>()),
      images_(std::make_shared<DecodedImages>(imageMemory)) {
  received_->appMetadata = std::move(appMetadata);
}

DataCoordinator::~DataCoordinator() = default;

void DataCoordinatorProtocol::requestAppMetadata(Refresh, Success<AppMetadataProtocol> success,
                                                 Failure failure) {
  requestAppMetadata(std::move(success), std::move(failure));
}

void DataCoordinatorProtocol::requestStreamForSections(const std::vector<std::string>& sections,
                                                       Refresh, Success<StreamProtocol> success,
                                                       Failure failure) {
  requestStreamForSections(sections, std::move(success), std::move(failure));
}

std::shared_ptr<URLSessionTask> DataCoordinatorProtocol::requestArticle(
    const URL& url, Refresh, Success<ArticleProtocol> success, Failure failure) {
  return requestArticle(url, std::move(success), std::move(failure));
}

std::shared_ptr<URLSessionTask> DataCoordinatorProtocol::requestImageFromURL(
    const URL& url, ImageSize /*maximumSize*/, Success<Image> success, ImageFailure failure) {
  return requestImageFromURL(url, std::move(success), std::move(failure));
}

std::shared_ptr<URLSessionTask> DataCoordinatorProtocol::requestImageFromURL(
    const URL& url, std::optional<ImageSize> maximumSize, Refresh, Success<Image> success,
    ImageFailure failure) {
  if (!maximumSize) return requestImageFromURL(url, std::move(success), std::move(failure));
  return requestImageFromURL(url, *maximumSize, std::move(success), std::move(failure));
}

void DataCoordinator::requestAppMetadata(Success<AppMetadataProtocol> success, Failure failure) {
  ask(std::nullopt, std::move(success), std::move(failure));
}

void DataCoordinator::requestAppMetadata(Refresh refresh, Success<AppMetadataProtocol> success,
                                         Failure failure) {
  ask(refresh, std::move(success), std::move(failure));
}

void DataCoordinator::ask(std::optional<Refresh> refresh, Success<AppMetadataProtocol> success,
                          Failure failure) {
  const auto url = appMetadataURL();
  if (!url) {
    failure(PaperloomError::configurationError("Request Stream - No config URL"));
    return;
  }
  using Item = std::shared_ptr<const AppMetadataProtocol>;
  auto owners = ownersOf(success, failure);
  get<Item>(
      sessionManager_, *url, refresh, theParser<ConfigParser>(),
      [received = received_, success = std::move(success), failure = std::move(failure)](
          Result<Item> result, const Provenance& provenance) {
        if (!result) return failure(std::move(result.error()), provenance);
        received->appMetadata->set(*result);
        success(std::move(*result), provenance);
      },
      std::move(owners));
}

void DataCoordinator::requestStreamForSections(const std::vector<std::string>& sections,
                                               Success<StreamProtocol> success, Failure failure) {
  ask(sections, std::nullopt, std::move(success), std::move(failure));
}

void DataCoordinator::requestStreamForSections(const std::vector<std::string>& sections,
                                               Refresh refresh, Success<StreamProtocol> success,
                                               Failure failure) {
  ask(sections, refresh, std::move(success), std::move(failure));
}

void DataCoordinator::ask(const std::vector<std::string>& sections, std::optional<Refresh> refresh,
                          Success<StreamProtocol> success, Failure failure) {
  const auto url = streamURL(sections);
  if (!url) {
    failure(PaperloomError::configurationError("Request Stream - No Base URL"));
    return;
  }
  auto owners = ownersOf(success, failure);
  get<std::shared_ptr<const StreamProtocol>>(
      sessionManager_, *url, refresh, theParser<StreamParser>(),
      streamCompletion(std::move(success), std::move(failure)), std::move(owners));
}

void DataCoordinator::requestOfflineStream(Success<StreamProtocol> success, Failure failure) {
  const auto root = baseURL();
  if (!root) {
    failure(PaperloomError::configurationError("Request Stream - No Base URL"));
    return;
  }
  const auto mock = std::make_shared<MockSessionManager>(offlineResource("sectionList"));
  sessionManagerMock_.set(mock);
  mock->getDocument<std::shared_ptr<const StreamProtocol>>(
          *root, theParser<StreamParser>(),
          streamCompletion(std::move(success), std::move(failure)))
      ->resume();
}

std::function<void(Result<std::shared_ptr<const StreamProtocol>>, const Provenance&)>
DataCoordinator::streamCompletion(Success<StreamProtocol> success, Failure failure) const {
  return [received = received_, success = std::move(success), failure = std::move(failure)](
             Result<std::shared_ptr<const StreamProtocol>> result, const Provenance& provenance) {
    if (!result) return failure(std::move(result.error()), provenance);
    received->stream.set(*result);
    success(std::move(*result), provenance);
  };
}

std::shared_ptr<URLSessionTask> DataCoordinator::requestArticle(const URL& url,
                                                                Success<ArticleProtocol> success,
                                                                Failure failure) {
  return ask(url, std::nullopt, std::move(success), std::move(failure));
}

std::shared_ptr<URLSessionTask> DataCoordinator::requestArticle(const URL& url, Refresh refresh,
                                                                Success<ArticleProtocol> success,
                                                                Failure failure) {
  return ask(url, refresh, std::move(success), std::move(failure));
}

std::shared_ptr<URLSessionTask> DataCoordinator::ask(const URL& url, std::optional<Refresh> refresh,
                                                     Success<ArticleProtocol> success,
                                                     Failure failure) {
  using Item = std::shared_ptr<const ArticleProtocol>;
  auto owners = ownersOf(success, failure);
  return get<Item>(
      sessionManager_, url, refresh, theParser<ArticleParser>(),
      [dates = dates_, success = std::move(success), failure = std::move(failure)](
          Result<Item> result, const Provenance& provenance) {
        if (result && !provenance.fromCache && !provenance.isFollowed) recordFetch(dates);
        DispatchQueue::main().async([result = std::move(result), provenance, success, failure] {
          if (!result) return failure(result.error(), provenance);
          success(*result, provenance);
        });
      },
      std::move(owners));
}

std::shared_ptr<URLSessionTask> DataCoordinator::requestImageFromURL(const URL& url,
                                                                     Success<Image> success,
                                                                     ImageFailure failure) {
  return ask(url, std::nullopt, std::nullopt, std::move(success), std::move(failure));
}

std::shared_ptr<URLSessionTask> DataCoordinator::requestImageFromURL(const URL& url,
                                                                     ImageSize maximumSize,
                                                                     Success<Image> success,
                                                                     ImageFailure failure) {
  return ask(url, maximumSize, std::nullopt, std::move(success), std::move(failure));
}

std::shared_ptr<URLSessionTask> DataCoordinator::requestImageFromURL(
    const URL& url, std::optional<ImageSize> maximumSize, Refresh refresh, Success<Image> success,
    ImageFailure failure) {
  return ask(url, maximumSize, refresh, std::move(success), std::move(failure));
}

std::shared_ptr<URLSessionTask> DataCoordinator::ask(const URL& url,
                                                     std::optional<ImageSize> maximumSize,
                                                     std::optional<Refresh> refresh,
                                                     Success<Image> success, ImageFailure failure) {
  using Item = std::shared_ptr<const Image>;
  if (auto task = refresh ? nullptr : showDecoded(url, maximumSize, success)) return task;
  auto owners = ownersOf(success, failure);
  return get<Item>(
      sessionManager_, url, refresh, images_->parser(maximumSize),
      [success = std::move(success), failure = std::move(failure)](Result<Item> result,
                                                                   const Provenance& provenance) {
        DispatchQueue::main().async([result = std::move(result), provenance, success, failure] {
          if (!result) return failure(provenance);
          success(*result, provenance);
        });
      },
      std::move(owners), Parsing::beside);
}

// One that is in memory, decoded, and fresh needs no session.
std::shared_ptr<URLSessionTask> DataCoordinator::showDecoded(const URL& url,
                                                             std::optional<ImageSize> maximumSize,
                                                             const Success<Image>& success) {
  const auto* manager = dynamic_cast<const ContentSessionManager*>(sessionManager_.get());
  if (manager == nullptr || !images_->mayHold(maximumSize)) return nullptr;
  auto fresh = manager->freshCopyAtOnce(url);
  if (!fresh) return nullptr;
  auto image = images_->find(fresh->copy.data, maximumSize);
  if (!image) return nullptr;
  const Provenance provenance{.source = Provenance::Source::cache,
                              .age = fresh->age,
                              .fetchedAt = fresh->copy.responseTime,
                              .statusCode = fresh->copy.response.statusCode};
  auto task =
      URLSessionTask::answeredFromCache(URLRequest(url), std::move(fresh->copy), fresh->age);
  DispatchQueue::main().async(
      [image = std::move(image), provenance, success] { success(image, provenance); });
  return task;
}

Snapshot<AppMetadataProtocol> DataCoordinator::appMetadata() const {
  return received_->appMetadata->get();
}

Snapshot<StreamProtocol> DataCoordinator::stream() const { return received_->stream.get(); }

std::optional<URL> DataCoordinator::baseURL() const { return baseURL_.get(); }

void DataCoordinator::setBaseURL(std::optional<URL> url) { baseURL_.set(std::move(url)); }

std::optional<URL> DataCoordinator::appMetadataURL() const {
  const auto root = baseURL();
  return root ? std::optional(root->appendingPathComponent("config")) : std::nullopt;
}

std::optional<URL> DataCoordinator::streamURL(const std::vector<std::string>& sections) const {
  const auto root = baseURL();
  return root ? std::optional(streamBelow(*root, sections)) : std::nullopt;
}

std::optional<std::string> DataCoordinator::defaultSections() const {
  return defaultSections_.get();
}

void DataCoordinator::setDefaultSections(std::optional<std::string> sections) {
  defaultSections_.set(std::move(sections));
}

std::shared_ptr<CacheWarmerDataCoordinatorProtocol> DataCoordinator::cacheWarmerDataCoordinator() {
  const MutexLock lock(mutex_);
  if (!cacheWarmerDataCoordinator_) {
    const auto make = [this](auto from) {
      return dates_ != nullptr ? std::make_shared<CacheWarmerDataCoordinator>(from, *dates_)
                               : std::make_shared<CacheWarmerDataCoordinator>(from);
    };
    const auto* own = dynamic_cast<const ContentSessionManager*>(sessionManager_.get());
    cacheWarmerDataCoordinator_ = own != nullptr ? make(own->session().configuration())
                                                 : make(sessionManager_->contentSessionCache());
  }
  return cacheWarmerDataCoordinator_;
}

void DataCoordinator::setCacheWarmerDataCoordinator(
    std::shared_ptr<CacheWarmerDataCoordinatorProtocol> warmer) {
  // The old one goes after the lock: it waits for its callbacks, which may call in here.
  const MutexLock lock(mutex_);
  cacheWarmerDataCoordinator_.swap(warmer);
}

void DataCoordinator::setImageMemoryCapacity(std::int64_t bytes) { images_->setCapacity(bytes); }

void DataCoordinator::handleMemoryPressure() { images_->clear(); }

std::shared_ptr<ContentSessionManagerProtocol> DataCoordinator::sessionManagerMock() const {
  return sessionManagerMock_.get();
}

}  // namespace paperloom
