#include "paperloom/testing/AnsweringSessionManager.h"

#include <optional>
#include <utility>

namespace paperloom::test {
namespace {

template <class Answers>
auto find(const Answers& answers, const URL& url) {
  auto found = answers.find(url.absoluteString());
  if (found == answers.end()) found = answers.find(url.path() + "?" + url.query().value_or(""));
  if (found == answers.end()) found = answers.find(url.path());
  return found == answers.end() ? std::nullopt : std::optional(found->second);
}

PaperloomError unanswered(const char* text, const URL& url) {
  return PaperloomError::networkError(std::string(text) + " : nothing is known for " +
                                      url.absoluteString());
}

}  // namespace

AnsweringSessionManager::AnsweringSessionManager() : cache_(std::make_shared<URLCache>()) {}

void AnsweringSessionManager::answer(const std::string& url, Data document, Provenance provenance) {
  const std::lock_guard lock(mutex_);
  gets_.insert_or_assign(url, Document{std::move(document), provenance});
}

void AnsweringSessionManager::answer(const std::string& url, PaperloomError failure) {
  const std::lock_guard lock(mutex_);
  gets_.insert_or_assign(url, std::move(failure));
}

void AnsweringSessionManager::answerPost(const std::string& url, PostRequestResult result) {
  const std::lock_guard lock(mutex_);
  posts_.insert_or_assign(url, std::move(result));
}

void AnsweringSessionManager::hold() {
  const std::lock_guard lock(mutex_);
  holds_ = true;
}

void AnsweringSessionManager::release() {
  while (true) {
    std::vector<std::function<void()>> due;
    {
      const std::lock_guard lock(mutex_);
      due.swap(held_);
      holds_ = !due.empty();
    }
    if (due.empty()) return;
    for (const auto& work : due) work();
  }
}

std::vector<URL> AnsweringSessionManager::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

std::vector<Data> AnsweringSessionManager::posted() const {
  const std::lock_guard lock(mutex_);
  return posted_;
}

std::shared_ptr<URLSessionTask> AnsweringSessionManager::perform(const URL& url,
                                                                 std::function<void()> work) {
  {
    const std::lock_guard lock(mutex_);
    requests_.push_back(url);
    if (holds_) held_.push_back(std::exchange(work, nullptr));
  }
  if (work) work();
  return URLSessionTask::unattached(URLRequest(url));
}

std::shared_ptr<URLSessionTask> AnsweringSessionManager::getData(const URL& url,
                                                                 ErasedParser parser,
                                                                 ErasedCompletion completion,
                                                                 Parsing /*parsing*/) {
  std::optional<Get> known;
  {
    const std::lock_guard lock(mutex_);
    known = find(gets_, url);
  }
  Get answer = known ? std::move(*known) : Get(unanswered("no network error", url));
  return perform(url, [answer = std::move(answer), parser = std::move(parser),
                       completion = std::move(completion)] {
    const auto* document = std::get_if<Document>(&answer);
    if (document == nullptr)
      return completion(tl::unexpected(std::get<PaperloomError>(answer)), {});
    auto parsed = parser(document->data);
    if (!parsed) {
      completion(tl::unexpected(asPaperloomError(std::move(parsed.error()))), document->provenance);
    } else {
      completion(std::move(*parsed), document->provenance);
    }
  });
}

std::shared_ptr<URLSessionTask> AnsweringSessionManager::postJSONData(
    const URL& url, Data body, std::function<void(PostRequestResult)> completion) {
  std::optional<PostRequestResult> known;
  {
    const std::lock_guard lock(mutex_);
    posted_.push_back(std::move(body));
    known = find(posts_, url);
  }
  auto result = known ? std::move(*known) : PostRequestResult(unanswered("Error:", url));
  return perform(url, [result = std::move(result), completion = std::move(completion)] {
    if (completion) completion(result);
  });
}

}  // namespace paperloom::test
