#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "paperloom/network/CacheWarmerRequestResult.h"
#include "paperloom/network/News.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/OfflineSets.h"
#include "paperloom/platform/URL.h"
#include "paperloom/platform/URLResponse.h"

namespace paperloom {

class DataCoordinator;

// What is fetched into the cache, and how much of it.
struct WarmingPlan {
  std::vector<URL> documents{};   // first of all
  std::vector<URL> articles{};    // and the pictures within them
  std::vector<URL> frontPages{};  // by DataCoordinator::streamURL(), and what is said of `sections`
  // The front page to ask for, by its sections; or one that is there already, which needs no
  // asking. Then its articles and the pictures of its cards from the top down, then the pictures
  // within the articles.
  std::optional<std::vector<std::string>> sections{};
  std::shared_ptr<const StreamProtocol> frontPage{};
  bool forceRefresh = false;  // ask the server also for what is in the cache

  // Pictures are fetched as they are shown where there is room for so many points, on a display of
  // so many pixels a point; those of the cards where these are drawn in another width, in that.
  double pictureWidth = 600;
  std::optional<double> cardPictureWidth{};
  double pixelDensity = 1;

  // How many bytes of bodies are taken from the network, beside the front page itself. A document
  // that does not fit into what is left is given up, at once when it says its length and else where
  // that shows; once nothing is left all others are.
  std::int64_t maximumBytes = std::int64_t{100} * 1024 * 1024;
  // What is not there by then is given up and left out. The front page is waited for in any case.
  std::chrono::milliseconds maximumTime = std::chrono::minutes(10);

  // Keeps what is fetched also as a set of this name, in `offlineSets`: the set that there was
  // stays until all of the next one has been fetched. Every document is asked after then. What the
  // plan names must be had; of what that leads to, a document that the server does not have (a
  // status of 400 to 499, but 408, 425 and 429), or that says no-store, is left out and named in
  // the set. Cards of a `frontPage` that is there already are kept without it.
  std::shared_ptr<OfflineSets> offlineSets{};
  std::string keepAs{};

  // Makes the address in a document one to request; nothing leaves it out. An empty function takes
  // them as they stand. Called on the warmer's thread.
  std::function<std::optional<URL>(const URL&)> resolve{};
};

// One document that is done with, and how far all are.
struct WarmedDocument {
  URL url;
  CacheWarmerRequestResult result;
  std::optional<URLError> error{};  // why it failed, or why its body is missing
  std::size_t done = 0;
  std::size_t total = 0;   // as far as is known: articles bring their pictures
  std::int64_t bytes = 0;  // taken from the network so far
};

// What has come of it all.
struct WarmingSum {
  enum class End { complete, outOfBytes, outOfTime, cancelled, noFrontPage, notKept };
  End end = End::complete;
  std::size_t fetched = 0;
  std::size_t cachedAlready = 0;
  std::size_t failed = 0;
  std::size_t leftOut = 0;  // for want of bytes or time, or too large for the session
  std::int64_t bytes = 0;   // taken from the network
  // Fetched, but not on the disk, and why most likely: "the disk is full", "the disk cannot be
  // written", "the cache is full" or "the others may not be stored".
  std::vector<URL> lost{};
  std::string reason{};
  std::optional<FailedRequest> failure{};  // with noFrontPage
  // The set that has been put in place; or why not, a sentence without a full stop. Neither where
  // none was asked for.
  std::optional<OfflineSet> set{};
  std::string setTrouble{};
};

// What fetches a set anew, as it was fetched before; the rest of the plan is to be filled in.
PAPERLOOM_EXPORT WarmingPlan refreshPlan(const OfflineSet& set);

// Fills a coordinator's cache with what its reader may open without a network. One document at a
// time, by the coordinator's warmer, on a thread of its own; its functions belong to the thread
// that pumps the main queue, and do not wait, but for the destructor. The coordinator outlives it.
class PAPERLOOM_EXPORT FrontPageWarmer {
 public:
  // Called on the main queue; either may be empty.
  using Progress = std::function<void(const WarmedDocument& document)>;
  using Completion = std::function<void(const WarmingSum& sum)>;

  explicit FrontPageWarmer(DataCoordinator& coordinator);
  // Gives up what is under way, waits for the thread, and calls nothing any more.
  ~FrontPageWarmer();
  FrontPageWarmer(const FrontPageWarmer&) = delete;
  FrontPageWarmer& operator=(const FrontPageWarmer&) = delete;

  // Starts, once; a second call does nothing. Each document is warmed once, however often it is
  // named. `completion` is called once, with what there was when it ended.
  void start(WarmingPlan plan, Progress progress, Completion completion);
  // Gives up what is under way; the completion still comes. May be called on any thread once
  // start() has returned.
  void cancel();

 private:
  class Work;
  DataCoordinator& coordinator_;
  std::unique_ptr<Work> work_;
};

}  // namespace paperloom
