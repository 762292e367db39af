#pragma once

#include <chrono>
#include <concepts>
#include <memory>
#include <optional>
#include <string>
#include <tl/expected.hpp>
#include <utility>
#include <vector>

#include "paperloom/network/DataCoordinator.h"
#include "paperloom/platform/Pending.h"

namespace paperloom {

// A document and where it came from.
template <class T>
struct Document {
  std::shared_ptr<const T> record;  // never null
  Provenance provenance;
};

// Why there is none.
struct FailedRequest {
  PaperloomError error;
  Provenance provenance;  // how it failed, such as with which status
};

template <class T>
using DocumentOrFailure = tl::expected<Document<T>, FailedRequest>;

// The uids of sections: texts in braces, or a vector of them. The texts are taken without a
// std::initializer_list, which g++ 12 does not compile within co_await.
struct SectionUids {
  SectionUids(std::vector<std::string> uids) : all(std::move(uids)) {}
  template <std::convertible_to<std::string>... Texts>
  SectionUids(const Texts&... uids) {
    all.reserve(sizeof...(uids));
    (all.emplace_back(uids), ...);
  }

  std::vector<std::string> all;
};

// The requests of a coordinator in the form of answers to wait for, beside their callbacks:
//
//   News news(coordinator, subscription_);
//   const auto stream = co_await news.stream({"news", "sport"});
//   const auto article = news.article(url).get();
//
// Each function makes a Pending, which says how it is waited for; what it asks for, and on which
// queue the answer comes, stands with the request of the same name in DataCoordinatorProtocol. The
// coordinator outlives every request that is still to be made. Safe from any thread.
//
// With a maximum age a copy that is no older is the answer, as Refresh::ifOlderThan() says.
class News {
 public:
  explicit News(DataCoordinatorProtocol& coordinator) : coordinator_(&coordinator) {}
  // Requests that end with the owner: they are cancelled and answered with a failure.
  News(DataCoordinatorProtocol& coordinator, const Subscription& owner)
      : coordinator_(&coordinator), owner_(owner.token()) {}

  using MaximumAge = std::optional<std::chrono::seconds>;

  // DataCoordinatorProtocol::requestAppMetadata().
  Pending<DocumentOrFailure<AppMetadataProtocol>> appMetadata(MaximumAge age = {}) const {
    return pending<AppMetadataProtocol>([c = coordinator_, age](auto success, auto failure) {
      if (!age) return c->requestAppMetadata(std::move(success), std::move(failure));
      c->requestAppMetadata(Refresh::ifOlderThan(*age), std::move(success), std::move(failure));
    });
  }

  // DataCoordinatorProtocol::requestStreamForSections().
  Pending<DocumentOrFailure<StreamProtocol>> stream(SectionUids sections,
                                                    MaximumAge age = {}) const {
    return pending<StreamProtocol>([c = coordinator_, sections = std::move(sections), age](
                                       auto success, auto failure) {
      if (!age) {
        return c->requestStreamForSections(sections.all, std::move(success), std::move(failure));
      }
      c->requestStreamForSections(sections.all, Refresh::ifOlderThan(*age), std::move(success),
                                  std::move(failure));
    });
  }

  Pending<DocumentOrFailure<StreamProtocol>> offlineStream() const {
    return pending<StreamProtocol>([c = coordinator_](auto success, auto failure) {
      c->requestOfflineStream(std::move(success), std::move(failure));
    });
  }

  // DataCoordinatorProtocol::requestArticle().
  Pending<DocumentOrFailure<ArticleProtocol>> article(URL url, MaximumAge age = {}) const {
    return pending<ArticleProtocol>(
        [c = coordinator_, url = std::move(url), age](auto success, auto failure) {
          if (!age) return c->requestArticle(url, std::move(success), std::move(failure));
          return c->requestArticle(url, Refresh::ifOlderThan(*age), std::move(success),
                                   std::move(failure));
        });
  }

  // In its own size, or no larger than `maximumSize`. A failure has the text "the image cannot be
  // loaded".
  Pending<DocumentOrFailure<Image>> image(URL url,
                                          std::optional<ImageSize> maximumSize = std::nullopt,
                                          MaximumAge age = {}) const {
    return pending<Image>(
        [c = coordinator_, url = std::move(url), maximumSize, age](auto success, auto failure) {
          using Failed = std::decay_t<decltype(failure)>;
          struct WithoutError {
            void operator()(const Provenance& provenance) const {
              failed(PaperloomError::networkError("the image cannot be loaded"), provenance);
            }
            const auto& owner() const { return failed.owner(); }
            Failed failed;
          };
          WithoutError failed{std::move(failure)};
          if (age) {
            return c->requestImageFromURL(url, maximumSize, Refresh::ifOlderThan(*age),
                                          std::move(success), std::move(failed));
          }
          if (!maximumSize)
            return c->requestImageFromURL(url, std::move(success), std::move(failed));
          return c->requestImageFromURL(url, *maximumSize, std::move(success), std::move(failed));
        });
  }

 private:
  using Owner = std::shared_ptr<Subscription::Token>;

  // A callback that is called also when its owner has gone, with whom its transfer ends.
  template <class F>
  struct Answering {
    template <class... Values>
    requires std::invocable<const F&, Values...>
    void operator()(Values&&... values) const { answer(std::forward<Values>(values)...); }
    const Owner& owner() const { return owner_; }
    F answer;
    Owner owner_;
  };
  template <class F>
  static Answering<F> answering(F answer, Owner owner) {
    return {std::move(answer), std::move(owner)};
  }

  template <class T>
  static DocumentOrFailure<T> unanswered() {
    const URLError error{URLError::Code::cancelled, "cancelled"};
    return tl::make_unexpected(FailedRequest{
        PaperloomError::networkError("no network error : cancelled"), Provenance{.error = error}});
  }

  template <class T, class Request>
  Pending<DocumentOrFailure<T>> pending(Request request) const {
    using Answer = typename Pending<DocumentOrFailure<T>>::Answer;
    return {[request = std::move(request), owner = owner_](Answer answer) {
              const auto success = [answer](std::shared_ptr<const T> record,
                                            const Provenance& from) {
                answer(Document<T>{std::move(record), from});
              };
              const auto failure = [answer](PaperloomError error, const Provenance& from) {
                answer(tl::make_unexpected(FailedRequest{std::move(error), from}));
              };
              request(answering(success, owner), answering(failure, owner));
            },
            &unanswered<T>, owner_};
  }

  DataCoordinatorProtocol* coordinator_;
  Owner owner_;
};

// The same for the warmer: `CacheWarmerDataCoordinatorProtocol::saveToCache()`, which may answer at
// once, on the caller's thread. NetworkError when the owner, which may be null, has gone.
inline Pending<CacheWarmerRequestResult> savedToCache(
    std::shared_ptr<CacheWarmerDataCoordinatorProtocol> warmer, URL url, bool forceRefresh,
    const Subscription* owner = nullptr) {
  const auto token = owner != nullptr ? owner->token() : nullptr;
  return {[=](Pending<CacheWarmerRequestResult>::Answer answer) {
            const auto task = warmer->saveToCache(url, forceRefresh, std::move(answer));
            if (task && token) cancelWithOwners(task, {token});
          },
          [] { return CacheWarmerRequestResult(cachewarmer::NetworkError{}); }, token};
}

}  // namespace paperloom
