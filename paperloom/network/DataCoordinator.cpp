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

std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) {
    if (&text != &texts.front()) all += ',';
    all += text;
  }
  return all;
}

URL streamURL(const URL& baseURL, const std::vector<std::string>& sections) {
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
      required(std::move(sessionManager), "a data coordinator needs a session manager"));
}

DataCoordinator::DataCoordinator(std::shared_ptr<ContentSessionManagerProtocol> sessionManager)
    : DataCoordinator(std::move(sessionManager), nullptr, std::make_shared<CurrentAppMetadata>()) {}

DataCoordinator::DataCoordinator(std::shared_ptr<ContentSessionManagerProtocol> sessionManager,
                                 LatestDateStore& dates)
    : DataCoordinator(std::move(sessionManager), &dates, std::make_shared<CurrentAppMetadata>()) {}

DataCoordinator::DataCoordinator(std::shared_ptr<ContentSessionManagerProtocol> sessionManager,
                                 LatestDateStore* dates,
                                 std::shared_ptr<CurrentAppMetadata> appMetadata)
    : sessionManager_(
          required(std::move(sessionManager), "a data coordinator needs a session manager")),
      dates_(dates),
      received_(std::make_shared<Received>()),
      images_(std::make_shared<DecodedImages>(imageMemory)) {
  received_->appMetadata = std::move(appMetadata);
}

DataCoordinator::~DataCoordinator() = default;

void DataCoordinator::requestAppMetadata(Success<AppMetadataProtocol> success, Failure failure) {
  const auto root = baseURL();
  if (!root) {
    failure(PaperloomError::configurationError("Request Stream - No config URL"));
    return;
  }
  using Item = std::shared_ptr<const AppMetadataProtocol>;
  auto owners = ownersOf(success, failure);
  const auto task = sessionManager_->getDocument<Item>(
      root->appendingPathComponent("config"), std::make_shared<const ConfigParser>(),
      [received = received_, success = std::move(success), failure = std::move(failure)](
          Result<Item> result, const Provenance& provenance) {
        if (!result) return failure(std::move(result.error()), provenance);
        received->appMetadata->set(*result);
        success(std::move(*result), provenance);
      });
  cancelWithOwners(task, std::move(owners));
  task->resume();
}

void DataCoordinator::requestStreamForSections(const std::vector<std::string>& sections,
                                               Success<StreamProtocol> success, Failure failure) {
  const auto root = baseURL();
  if (!root) {
    failure(PaperloomError::configurationError("Request Stream - No Base URL"));
    return;
  }
  auto owners = ownersOf(success, failure);
  const auto task = sessionManager_->getDocument<std::shared_ptr<const StreamProtocol>>(
      streamURL(*root, sections), std::make_shared<const StreamParser>(),
      streamCompletion(std::move(success), std::move(failure)));
  cancelWithOwners(task, std::move(owners));
  task->resume();
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
          *root, std::make_shared<const StreamParser>(),
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
  using Item = std::shared_ptr<const ArticleProtocol>;
  auto owners = ownersOf(success, failure);
  auto task = sessionManager_->getDocument<Item>(
      url, std::make_shared<const ArticleParser>(),
      [dates = dates_, success = std::move(success), failure = std::move(failure)](
          Result<Item> result, const Provenance& provenance) {
        if (result && !provenance.fromCache) recordFetch(dates);
        DispatchQueue::main().async([result = std::move(result), provenance, success, failure] {
          if (!result) return failure(result.error(), provenance);
          success(*result, provenance);
        });
      });
  cancelWithOwners(task, std::move(owners));
  return task;
}

std::shared_ptr<URLSessionTask> DataCoordinatorProtocol::requestImageFromURL(
    const URL& url, ImageSize /*maximumSize*/, Success<Image> success, ImageFailure failure) {
  return requestImageFromURL(url, std::move(success), std::move(failure));
}

std::shared_ptr<URLSessionTask> DataCoordinator::requestImageFromURL(const URL& url,
                                                                     Success<Image> success,
                                                                     ImageFailure failure) {
  return requestImage(url, std::nullopt, std::move(success), std::move(failure));
}

std::shared_ptr<URLSessionTask> DataCoordinator::requestImageFromURL(const URL& url,
                                                                     ImageSize maximumSize,
                                                                     Success<Image> success,
                                                                     ImageFailure failure) {
  return requestImage(url, maximumSize, std::move(success), std::move(failure));
}

std::shared_ptr<URLSessionTask> DataCoordinator::requestImage(const URL& url,
                                                              std::optional<ImageSize> maximumSize,
                                                              Success<Image> success,
                                                              ImageFailure failure) {
  using Item = std::shared_ptr<const Image>;
  auto owners = ownersOf(success, failure);
  auto task = sessionManager_->getDocument<Item>(
      url, std::make_shared<const KeptImageParser>(images_, maximumSize),
      [success = std::move(success), failure = std::move(failure)](Result<Item> result,
                                                                   const Provenance& provenance) {
        DispatchQueue::main().async([result = std::move(result), provenance, success, failure] {
          if (!result) return failure(provenance);
          success(*result, provenance);
        });
      },
      ContentSessionManagerProtocol::Parsing::beside);
  cancelWithOwners(task, std::move(owners));
  return task;
}

Snapshot<AppMetadataProtocol> DataCoordinator::appMetadata() const {
  return received_->appMetadata->get();
}

Snapshot<StreamProtocol> DataCoordinator::stream() const { return received_->stream.get(); }

std::optional<URL> DataCoordinator::baseURL() const { return baseURL_.get(); }

void DataCoordinator::setBaseURL(std::optional<URL> url) { baseURL_.set(std::move(url)); }

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
