#include "paperloom/c/internal/Request.h"

#include <utility>

#include "paperloom/platform/DispatchQueue.h"

namespace paperloom::c {
namespace {

paperloom_request nextNumber() {
  static std::atomic<paperloom_request> last{0};
  return ++last;
}

}  // namespace

Request::Request(paperloom_callback callback, void* userData, std::shared_ptr<Requests> requests)
    : callback_(callback),
      userData_(userData),
      number_(nextNumber()),
      requests_(std::move(requests)) {}

std::shared_ptr<Request> Request::make(paperloom_callback callback, void* userData,
                                       std::shared_ptr<Requests> requests) {
  const std::shared_ptr<Request> request(new Request(callback, userData, std::move(requests)));
  if (request->requests_) request->requests_->add(request);
  return request;
}

void Request::answer(Outcome outcome) {
  DispatchQueue::main().async([self = shared_from_this(), outcome = std::move(outcome)]() mutable {
    self->answerHere(std::move(outcome));
  });
}

void Request::answerHere(Outcome outcome) {
  const State before = state_.exchange(State::answered);
  if (requests_) requests_->remove(number_);
  if (before == State::answered || callback_ == nullptr) return;
  if (before == State::cancelled) outcome = {PAPERLOOM_CANCELLED, "cancelled"};
  const auto* const answer = new paperloom_answer(std::move(outcome));
  callback_(userData_, answer);
  paperloom_answer_release(answer);
}

bool Request::cancel() {
  State before = State::open;
  if (!state_.compare_exchange_strong(before, State::cancelled)) return before == State::cancelled;
  answer({});
  return true;
}

void Requests::add(const std::shared_ptr<Request>& request) {
  const MutexLock lock(mutex_);
  entries_[request->number()].request = request;
}

void Requests::setEnd(paperloom_request number, std::function<void()> end) {
  const MutexLock lock(mutex_);
  const auto entry = entries_.find(number);
  if (entry != entries_.end()) entry->second.end = std::move(end);
}

void Requests::remove(paperloom_request number) {
  Entry entry;  // let go after the lock
  const MutexLock lock(mutex_);
  const auto found = entries_.find(number);
  if (found == entries_.end()) return;
  entry = std::move(found->second);
  entries_.erase(found);
}

bool Requests::cancel(const Entry& entry) {
  const bool cancelled = entry.request->cancel();
  if (entry.end) entry.end();
  return cancelled;
}

bool Requests::cancel(paperloom_request number) {
  Entry entry;
  {
    const MutexLock lock(mutex_);
    const auto found = entries_.find(number);
    if (found == entries_.end()) return false;
    entry = found->second;
  }
  return cancel(entry);
}

void Requests::cancelAll() {
  std::map<paperloom_request, Entry> entries;
  {
    const MutexLock lock(mutex_);
    entries.swap(entries_);
  }
  for (const auto& [number, entry] : entries) cancel(entry);
}

}  // namespace paperloom::c
