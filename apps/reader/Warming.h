#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "apps/reader/Host.h"
#include "apps/reader/Progress.h"
#include "paperloom/model/Stream.h"

namespace paperloom::reader {

// Fetches URLs into the cache, each once, and reports each: a progress bar or a line an item, or
// one JSON object an item.
class Warming {
 public:
  Warming(Host& host, bool force);
  ~Warming();
  Warming(const Warming&) = delete;
  Warming& operator=(const Warming&) = delete;

  void add(const URL& url);
  // Every article of the front page, the images of its cards, and the pictures that its articles
  // turn out to hold.
  void addStream(const StreamProtocol& stream);

  // Waits for the last one, looks what the cache has kept on disk, and prints the sum. Gives what
  // went wrong, in a clause: that documents could not be fetched, or that the disk does not take
  // them; empty when all is well. Prints the sum so far also when the wait is interrupted.
  std::string finish();

 private:
  std::string printSum();
  void start(const URL& url, bool isArticle);
  struct Fetch {
    URL url;
    bool isArticle = false;
    std::shared_ptr<URLSessionTask> task{};  // none when the copy was in the cache
  };
  void take(const Fetch& fetch, const CacheWarmerRequestResult& result);
  // The documents fetched that are not on disk, and why.
  std::vector<URL> lookForLosses() const;
  std::string reasonFor(const std::vector<URL>& losses) const;
  void addPicturesOf(const Data& article);
  // An address in a document, which may be one that nothing can fetch.
  void addAddress(const URL& address, bool isArticle);

  Host& host_;
  bool force_;
  std::set<std::string> seen_;
  std::size_t done_ = 0;
  std::size_t failed_ = 0;
  std::vector<URL> fetched_;
  std::size_t alreadyCached_ = 0;
  std::int64_t bytes_ = 0;
  std::optional<Progress> progress_;
  // Answers that are still queued when this object goes away find nobody.
  std::shared_ptr<Warming*> self_;
};

}  // namespace paperloom::reader
