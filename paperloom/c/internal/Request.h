#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>

#include "paperloom/c/internal/Answer.h"
#include "paperloom/c/paperloom.h"
#include "paperloom/platform/Mutex.h"

namespace paperloom::c {

class Requests;

// One request of the host's from its start to its callback. Its state makes the callback come once:
// whoever moves it to `answered`, on the main queue alone, calls. Until then a cancellation changes
// what the callback hears, not whether it is called. Safe from any thread.
class Request : public std::enable_shared_from_this<Request> {
 public:
  // `requests`, which may be null, holds it from now on until its callback is called.
  static std::shared_ptr<Request> make(paperloom_callback callback, void* userData,
                                       std::shared_ptr<Requests> requests = nullptr);

  paperloom_request number() const { return number_; }

  // Has the outcome told by the main queue; what comes after the first one is dropped.
  void answer(Outcome outcome);
  // The same for a caller that runs on the main queue.
  void answerHere(Outcome outcome);
  // Neither answered nor cancelled.
  bool isOpen() const { return state_ == State::open; }
  // The callback will hear that the request was cancelled; false when it has been called.
  bool cancel();

 private:
  enum class State : unsigned char { open, cancelled, answered };

  Request(paperloom_callback callback, void* userData, std::shared_ptr<Requests> requests);

  const paperloom_callback callback_;
  void* const userData_;
  const paperloom_request number_;
  const std::shared_ptr<Requests> requests_;
  std::atomic<State> state_{State::open};
};

// The requests of a client that can be cancelled. Safe from any thread.
class Requests {
 public:
  void add(const std::shared_ptr<Request>& request);
  // What a cancellation is to call, once the request is under way.
  void setEnd(paperloom_request number, std::function<void()> end);
  void remove(paperloom_request number);

  bool cancel(paperloom_request number);
  void cancelAll();

 private:
  struct Entry {
    std::shared_ptr<Request> request;
    std::function<void()> end{};
  };
  static bool cancel(const Entry& entry);

  Mutex mutex_;
  std::map<paperloom_request, Entry> entries_ PAPERLOOM_GUARDED_BY(mutex_);
};

}  // namespace paperloom::c
