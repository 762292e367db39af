#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "paperloom/platform/Export.h"
#include "paperloom/platform/Mutex.h"

namespace paperloom {

class URLSessionTask;

template <class F>
class Owned;

// Ties requests to the life of their owner, such as a window: the owner has one as a member, its
// last one, and hands its callbacks to requests through it:
//
//   news.requestArticle(url, subscription_([this](auto article) { show(*article); }),
//                       subscription_([this](PaperloomError error) { say(error.details()); }));
//
// Once it has gone, or cancel() has returned, no callback of it runs and none begins, on whichever
// thread; answers are dropped, and a transfer of a content request is cancelled when nobody else
// waits for it, which is when every callback that the request was given belongs to a Subscription
// that has gone. Requests to the identity service go on to their end, since they may change an
// account. Any number of requests and of threads may share one.
class PAPERLOOM_EXPORT Subscription {
 public:
  // What a Subscription and the callbacks made through it share. Safe from any thread.
  class PAPERLOOM_EXPORT Token {
   public:
    // Calls `f` unless the owner has gone; says whether it did. Meanwhile cancel() waits.
    template <class F>
    bool run(F&& f) noexcept {
      if (!enter()) return false;
      std::forward<F>(f)();
      leave();
      return true;
    }

    bool isActive() const;
    // As Subscription::cancel().
    void cancel();

   private:
    friend PAPERLOOM_EXPORT void cancelWithOwners(const std::shared_ptr<URLSessionTask>& task,
                                                  std::vector<std::shared_ptr<Token>> owners);
    // A task, and how many owners still wait for it.
    struct Tie;
    struct Visit {
      std::thread::id thread;
      bool isEnding = false;  // waits in cancel() itself
    };

    bool enter();
    void leave();
    void add(const std::shared_ptr<Tie>& tie);
    static void untie(Tie& tie);
    void setEnding(bool isEnding) PAPERLOOM_REQUIRES(mutex_);
    bool isVisitedByOthers() const PAPERLOOM_REQUIRES(mutex_);

    mutable Mutex mutex_;
    ConditionVariable changed_;
    bool gone_ PAPERLOOM_GUARDED_BY(mutex_) = false;
    std::vector<Visit> visits_ PAPERLOOM_GUARDED_BY(mutex_);  // callbacks under way
    std::vector<std::shared_ptr<Tie>> ties_ PAPERLOOM_GUARDED_BY(mutex_);
    std::size_t pruneAt_ PAPERLOOM_GUARDED_BY(mutex_) = 16;
  };

  Subscription();
  ~Subscription();  // cancel()
  // What is assigned to is cancelled first; what is moved from is a new one.
  Subscription(Subscription&& other) noexcept;
  Subscription& operator=(Subscription&& other) noexcept;

  // Ends it for good. Waits for a callback of it that runs on another thread, unless that one waits
  // here too; may be called, and the owner may go, within a callback.
  void cancel();
  bool isActive() const;

  // The callback as the owner's.
  template <class F>
  Owned<F> operator()(F callback) const {
    return Owned<F>(std::move(callback), token_);
  }
  // Cancels the task when the owner goes: for one whose completion is not the owner's.
  void cancelWithOwner(const std::shared_ptr<URLSessionTask>& task) const;

  const std::shared_ptr<Token>& token() const { return token_; }

 private:
  std::shared_ptr<Token> token_;
};

// Cancels the task when the last of its owners has gone.
PAPERLOOM_EXPORT void cancelWithOwners(const std::shared_ptr<URLSessionTask>& task,
                                       std::vector<std::shared_ptr<Subscription::Token>> owners);

// A callback that is called while its owner is there, and else does nothing. What the request's own
// callback may be, this may be in its place.
template <class F>
class Owned {
 public:
  Owned(F callback, std::shared_ptr<Subscription::Token> owner)
      : callback_(std::move(callback)), owner_(std::move(owner)) {}

  template <class... Values>
  requires std::invocable<F&, Values...>
  void operator()(Values&&... values) const noexcept {
    if (isEmpty(callback_)) return;
    owner_->run([&] { callback_(std::forward<Values>(values)...); });
  }

  const std::shared_ptr<Subscription::Token>& owner() const { return owner_; }

 private:
  template <class Other>
  static bool isEmpty(const Other&) {
    return false;
  }
  template <class Signature>
  static bool isEmpty(const std::function<Signature>& function) {
    return !function;
  }

  mutable F callback_;
  std::shared_ptr<Subscription::Token> owner_;
};

}  // namespace paperloom
