#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <variant>
#include <vector>

#include "paperloom/network/ContentSessionManagerProtocol.h"

namespace paperloom::test {

// Answers requests by their URL, without any network: what a host's test puts below a coordinator.
//
//   auto manager = std::make_shared<AnsweringSessionManager>();
//   manager->answer("/config", sample::document("/config"));
//   DataCoordinator news(manager);
//
// An answer comes on the thread that asks, before the request returns; after hold(), on the thread
// that calls release(). Its tasks belong to no session: cancelling one does nothing. Any thread.
class AnsweringSessionManager final : public ContentSessionManagerProtocol {
 public:
  AnsweringSessionManager();

  // What a GET receives from then on: a document for its parser, which came as `provenance` says,
  // or a failure. `url` is a whole URL, a path with its query ("/stream?uids=news") or a path alone
  // ("/stream"); the first of these that is known for a request counts. What no answer is known for
  // fails with networkError, as without a network.
  void answer(const std::string& url, Data document, Provenance provenance = {});
  void answer(const std::string& url, PaperloomError failure);
  // The same for a POST.
  void answerPost(const std::string& url, PostRequestResult result);

  // Keeps answers back until release(), which gives them in the order of the requests, those that
  // are asked for meanwhile included.
  void hold();
  void release();

  // Everything asked for so far, in order.
  std::vector<URL> requests() const;
  // The bodies of the POSTs among them.
  std::vector<Data> posted() const;

  std::shared_ptr<URLSessionTask> postJSONData(
      const URL& url, Data body, std::function<void(PostRequestResult result)> completion) override;
  std::shared_ptr<URLCache> contentSessionCache() const override { return cache_; }

 protected:
  std::shared_ptr<URLSessionTask> getData(const URL& url, ErasedParser parser,
                                          ErasedCompletion completion, Parsing parsing) override;

 private:
  struct Document {
    Data data;
    Provenance provenance;
  };
  using Get = std::variant<Document, PaperloomError>;

  // Runs `work` now, or when the answers are released.
  std::shared_ptr<URLSessionTask> perform(const URL& url, std::function<void()> work);

  const std::shared_ptr<URLCache> cache_;
  mutable std::mutex mutex_;  // guards what follows
  std::map<std::string, Get> gets_;
  std::map<std::string, PostRequestResult> posts_;
  std::vector<URL> requests_;
  std::vector<Data> posted_;
  std::vector<std::function<void()>> held_;
  bool holds_ = false;
};

}  // namespace paperloom::test
