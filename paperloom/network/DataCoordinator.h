#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "paperloom/model/AppMetadata.h"
#include "paperloom/model/Article.h"
#include "paperloom/model/PaperloomError.h"
#include "paperloom/model/Stream.h"
#include "paperloom/network/CacheWarmerDataCoordinator.h"
#include "paperloom/network/ContentSessionManagerProtocol.h"
#include "paperloom/network/LatestDateStore.h"
#include "paperloom/network/Refresh.h"
#include "paperloom/network/RequestCallback.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/Guarded.h"
#include "paperloom/platform/Image.h"
#include "paperloom/platform/Mutex.h"
#include "paperloom/platform/Snapshot.h"
#include "paperloom/platform/URL.h"

namespace paperloom {

class CurrentAppMetadata;
class DecodedImages;

// The requests of the content side. Any callback may be empty: what it would be told is dropped. It
// may take a Provenance as its last argument: where the document came from, or how the request
// failed, such as with which status:
//
//   news.requestArticle(url, show, [](PaperloomError error, const Provenance& from) {
//     if (from.statusCode == 404) return say("there is no such story");
//     if (from.error && from.error->code == URLError::Code::cancelled) return;
//     say(error.details());
//   });
//
// Where a task is returned, its response() and error() say the same. Callbacks made through a
// Subscription are dropped with their owner, and the transfer is cancelled with them.
class PAPERLOOM_EXPORT DataCoordinatorProtocol {
 public:
  template <class T>
  using Success = DocumentCallback<T>;
  using Failure = FailureCallback;
  using ImageFailure = RequestCallback<>;

  virtual ~DataCoordinatorProtocol() = default;

  // GETs base URL + "config". Answers on the session's callback queue. Without a base URL fails at
  // once, on the caller's thread, with configurationError.
  virtual void requestAppMetadata(Success<AppMetadataProtocol> success,
                                  Failure failure = nullptr) = 0;

  // GETs base URL + "stream?uids=a,b"; an empty list asks for an empty value. Answers, and fails
  // without a base URL, as requestAppMetadata().
  virtual void requestStreamForSections(const std::vector<std::string>& sections,
                                        Success<StreamProtocol> success,
                                        Failure failure = nullptr) = 0;

  // GETs an article from `url`. Answers on the main queue. Returns the task, already started. An
  // article that is no stored copy in place of a missing answer is recorded as the latest fetch.
  virtual std::shared_ptr<URLSessionTask> requestArticle(const URL& url,
                                                         Success<ArticleProtocol> success,
                                                         Failure failure = nullptr) = 0;

  // GETs an image from `url`. Answers on the main queue. Returns the task, already started.
  virtual std::shared_ptr<URLSessionTask> requestImageFromURL(const URL& url,
                                                              Success<Image> success,
                                                              ImageFailure failure = nullptr) = 0;
  // The same, decoded no larger than `maximumSize`, in pixels: the largest size that fits with the
  // proportions kept (ImageDecoder::decodeToFit()), for the time and the memory of what is drawn.
  // An implementation without it gives the picture in its own size.
  virtual std::shared_ptr<URLSessionTask> requestImageFromURL(const URL& url, ImageSize maximumSize,
                                                              Success<Image> success,
                                                              ImageFailure failure = nullptr);

  // The same, with a say in when the server is asked: each answers where its namesake does, and
  // afterTheCopy() twice. The task that is returned is that of the server's answer; a Subscription
  // ends both. An implementation without them asks as HTTP says.
  virtual void requestAppMetadata(Refresh refresh, Success<AppMetadataProtocol> success,
                                  Failure failure = nullptr);
  virtual void requestStreamForSections(const std::vector<std::string>& sections, Refresh refresh,
                                        Success<StreamProtocol> success, Failure failure = nullptr);
  virtual std::shared_ptr<URLSessionTask> requestArticle(const URL& url, Refresh refresh,
                                                         Success<ArticleProtocol> success,
                                                         Failure failure = nullptr);
  virtual std::shared_ptr<URLSessionTask> requestImageFromURL(const URL& url,
                                                              std::optional<ImageSize> maximumSize,
                                                              Refresh refresh,
                                                              Success<Image> success,
                                                              ImageFailure failure = nullptr);

  // The stream that is shipped with the library. Answers before it returns, on the caller's thread.
  // Needs a base URL like the other stream request.
  virtual void requestOfflineStream(Success<StreamProtocol> success, Failure failure = nullptr) = 0;
};

// The content side's entry point: a host sets the base URL and asks. Remembers the last
// configuration and stream. Safe from any thread; no function waits for a disk or decodes anything
// but requestOfflineStream(), which answers at once.
class PAPERLOOM_EXPORT DataCoordinator final : public DataCoordinatorProtocol {
 public:
  // The process's instance, over a ContentSessionManager of its own unless another was named. Its
  // appMetadata() also follows every stream that is parsed in the process.
  static DataCoordinator& shared();
  // What the process's instance is going to be over, before its first use. False, and no effect,
  // once shared() has been called: its session manager stays. Null stops the program.
  [[nodiscard]] static bool configureShared(
      std::shared_ptr<ContentSessionManagerProtocol> sessionManager);

  // Records fetches in LatestDateStore::shared(). Without a session manager the program stops.
  explicit DataCoordinator(std::shared_ptr<ContentSessionManagerProtocol> sessionManager);
  // `dates` must outlive the coordinator, its session manager and its cache warmer.
  DataCoordinator(std::shared_ptr<ContentSessionManagerProtocol> sessionManager,
                  LatestDateStore& dates);
  ~DataCoordinator() override;

  void requestAppMetadata(Success<AppMetadataProtocol> success, Failure failure = nullptr) override;
  void requestStreamForSections(const std::vector<std::string>& sections,
                                Success<StreamProtocol> success,
                                Failure failure = nullptr) override;
  std::shared_ptr<URLSessionTask> requestArticle(const URL& url, Success<ArticleProtocol> success,
                                                 Failure failure = nullptr) override;
  std::shared_ptr<URLSessionTask> requestImageFromURL(const URL& url, Success<Image> success,
                                                      ImageFailure failure = nullptr) override;
  std::shared_ptr<URLSessionTask> requestImageFromURL(const URL& url, ImageSize maximumSize,
                                                      Success<Image> success,
                                                      ImageFailure failure = nullptr) override;
  void requestAppMetadata(Refresh refresh, Success<AppMetadataProtocol> success,
                          Failure failure = nullptr) override;
  void requestStreamForSections(const std::vector<std::string>& sections, Refresh refresh,
                                Success<StreamProtocol> success,
                                Failure failure = nullptr) override;
  std::shared_ptr<URLSessionTask> requestArticle(const URL& url, Refresh refresh,
                                                 Success<ArticleProtocol> success,
                                                 Failure failure = nullptr) override;
  std::shared_ptr<URLSessionTask> requestImageFromURL(const URL& url,
                                                      std::optional<ImageSize> maximumSize,
                                                      Refresh refresh, Success<Image> success,
                                                      ImageFailure failure = nullptr) override;
  void requestOfflineStream(Success<StreamProtocol> success, Failure failure = nullptr) override;

  // The last configuration and stream received; none at first. A failed answer leaves them. The
  // next one puts another in their place: keep what is returned while you look into it. What does
  // not, such as `for (auto& s : news.stream()->sections())`, does not compile: see Snapshot.
  Snapshot<AppMetadataProtocol> appMetadata() const;
  Snapshot<StreamProtocol> stream() const;

  // The root of the content endpoint; none at first.
  std::optional<URL> baseURL() const;
  void setBaseURL(std::optional<URL> url);

  // What requestAppMetadata() and requestStreamForSections() ask for; nothing without a base URL.
  std::optional<URL> appMetadataURL() const;
  std::optional<URL> streamURL(const std::vector<std::string>& sections) const;

  // The host's own note; no request reads it.
  std::optional<std::string> defaultSections() const;
  void setDefaultSections(std::optional<std::string> sections);

  // Warms the session manager's cache; created on first use, and anew after null was set. Over a
  // ContentSessionManager it has the same configuration.
  std::shared_ptr<CacheWarmerDataCoordinatorProtocol> cacheWarmerDataCoordinator();
  void setCacheWarmerDataCoordinator(std::shared_ptr<CacheWarmerDataCoordinatorProtocol> warmer);

  const std::shared_ptr<ContentSessionManagerProtocol>& sessionManager() const {
    return sessionManager_;
  }
  // Pictures stay as they were decoded, least recently used out first, so that one that is shown
  // again is not decoded again; 32 MB of them at first, in bytes of pixels and of the files behind
  // them. Whether the server is asked is HTTP's matter all the same.
  void setImageMemoryCapacity(std::int64_t bytes);
  // Lets go of all of them, but for those that the host holds.
  void handleMemoryPressure();

  // The manager that answered the last offline request.
  std::shared_ptr<ContentSessionManagerProtocol> sessionManagerMock() const;

 private:
  // What completions write; it outlives the coordinator when they do.
  struct Received;

  DataCoordinator(std::shared_ptr<ContentSessionManagerProtocol> sessionManager,
                  LatestDateStore* dates, std::shared_ptr<CurrentAppMetadata> appMetadata);

  void ask(std::optional<Refresh> refresh, Success<AppMetadataProtocol> success, Failure failure);
  void ask(const std::vector<std::string>& sections, std::optional<Refresh> refresh,
           Success<StreamProtocol> success, Failure failure);
  std::shared_ptr<URLSessionTask> ask(const URL& url, std::optional<Refresh> refresh,
                                      Success<ArticleProtocol> success, Failure failure);
  std::shared_ptr<URLSessionTask> ask(const URL& url, std::optional<ImageSize> maximumSize,
                                      std::optional<Refresh> refresh, Success<Image> success,
                                      ImageFailure failure);
  // Null where that cannot be told at once.
  std::shared_ptr<URLSessionTask> showDecoded(const URL& url, std::optional<ImageSize> maximumSize,
                                              const Success<Image>& success);
  std::function<void(Result<std::shared_ptr<const StreamProtocol>>, const Provenance&)>
  streamCompletion(Success<StreamProtocol> success, Failure failure) const;

  std::shared_ptr<ContentSessionManagerProtocol> sessionManager_;
  LatestDateStore* const dates_;  // null for the shared one
  std::shared_ptr<Received> received_;
  std::shared_ptr<DecodedImages> images_;

  Guarded<std::optional<URL>> baseURL_;
  Guarded<std::optional<std::string>> defaultSections_;
  Guarded<std::shared_ptr<ContentSessionManagerProtocol>> sessionManagerMock_;
  Mutex mutex_;
  std::shared_ptr<CacheWarmerDataCoordinatorProtocol> cacheWarmerDataCoordinator_
      PAPERLOOM_GUARDED_BY(mutex_);
};

}  // namespace paperloom
