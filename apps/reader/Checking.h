#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/reader/FindingsReport.h"
#include "apps/reader/Host.h"
#include "paperloom/platform/URLCache.h"
#include "paperloom/platform/URLSession.h"

namespace paperloom::reader {

// The kinds of documents that there are: "stream", "article", "image" and so on.
std::vector<std::string> checkedKinds();
// What documents are held to, those that are fetched too.
std::vector<ParseRule> checkedRules();

// Checks documents from files and from the network.
class Checking {
 public:
  explicit Checking(Host& host);
  ~Checking();
  Checking(const Checking&) = delete;
  Checking& operator=(const Checking&) = delete;

  // The file, or standard input for "-". Throws Failure when it cannot be read.
  void checkFile(const std::string& kind, const std::string& path);
  // Fetches the document, past all caches, and with `follows` the articles and pictures to which it
  // leads.
  void checkURL(const std::string& kind, const URL& url, bool follows);

  // Waits for all of them.
  std::vector<CheckedDocument> finish();

 private:
  struct Fetched;
  struct Document;

  // A place of a document that leads to another.
  struct Reference {
    std::size_t document;
    ParsedLink link;
  };

  URLSession& session();
  void fetch(std::size_t number, const URL& url);
  // Any thread.
  std::optional<ParseFinding> judgeCaching(const URLRequest& request, const Data& data,
                                           const HTTPURLResponse& response) const;
  void take(std::size_t number, const Fetched& fetched);
  static void takePicture(Document& document, const std::optional<ImageSize>& size);
  void check(Document& document, const Data& data);
  void follow(std::size_t number, const std::vector<ParsedLink>& links);
  // Where others lead to the document, else of the document itself.
  void addFailure(Document& document);
  void compareSize(const Document& document);

  Host& host_;
  std::deque<Document> documents_;
  std::map<std::string, std::size_t> numbers_;  // of the URLs
  std::size_t pending_ = 0;
  std::shared_ptr<Checking*> self_;
  std::shared_ptr<URLCache> cache_;
  std::int64_t largestKept_ = 0;
  std::unique_ptr<URLSession> session_;  // goes first: its completions use the rest
};

}  // namespace paperloom::reader
