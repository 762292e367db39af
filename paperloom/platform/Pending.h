#pragma once

#include <atomic>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <utility>

#include "paperloom/platform/DispatchQueue.h"
#include "paperloom/platform/Subscription.h"

#if defined(__cpp_impl_coroutine)
#include <coroutine>
// For #if: whether the compiler has the coroutines of C++20. clang 14 has not; futures it has.
#define PAPERLOOM_HAS_COROUTINES 1
#endif

namespace paperloom {

// A request that has not been made yet, in the form of its answer: whoever waits for it makes it,
// by one of co_await, get(), getOnMainQueue() and future(), once.
//
//   Detached showFrontPage(News news) {
//     const auto stream = co_await news.stream(sections).onMainQueue();
//     if (stream) show(*stream->record);
//   }
//
// Exactly one answer comes, also when the request ends without any. A coroutine goes on where the
// request's callbacks run, the caller's stack included when it fails at once, or on the main queue.
// Under a Subscription whose owner has gone it goes on with a failure in place of the answer, so
// that it comes to its end: it looks at what it got before it touches its owner. Until it waits
// again or ends, the owner's end waits for it as for a callback.
template <class T>
class [[nodiscard]] Pending {
 public:
  // Called once, or else dropped: that is an answer too.
  using Answer = std::function<void(T)>;
  using Owner = std::shared_ptr<Subscription::Token>;

  // `start` makes the request. `missing` makes the answer of one that ends without any, and of one
  // whose owner has gone. `owner` may be null.
  Pending(std::function<void(Answer)> start, std::function<T()> missing, Owner owner = nullptr)
      : start_(std::move(start)), missing_(std::move(missing)), owner_(std::move(owner)) {}

  // Has the answer taken on the main queue, which the host pumps.
  Pending onMainQueue() && {
    onMainQueue_ = true;
    return std::move(*this);
  }

  // Makes the request.
  std::future<T> future() && {
    auto promise = std::make_shared<std::promise<T>>();
    auto answer = promise->get_future();
    std::move(*this).begin([promise](T value) { promise->set_value(std::move(value)); });
    return answer;
  }

  // Makes the request and blocks until its answer is there. Not on the thread that pumps the main
  // queue where that brings the answer, as it does those of articles and images; and not within a
  // callback.
  T get() && { return std::move(*this).future().get(); }

  // The same for the thread that pumps the main queue: pumps it meanwhile.
  T getOnMainQueue() && {
    std::optional<T> answer;
    onMainQueue_ = true;
    DispatchQueue& queue = DispatchQueue::main();
    std::move(*this).begin([&](T value) {
      answer.emplace(std::move(value));
      queue.stop();
    });
    bool isStopped = false;  // by somebody else, whose wish is put off
    for (; !answer; isStopped = isStopped || !answer) queue.run();
    if (isStopped) queue.stop();
    return std::move(*answer);
  }

#ifdef PAPERLOOM_HAS_COROUTINES
  // For co_await.
  bool await_ready() const noexcept { return false; }
  void await_suspend(std::coroutine_handle<> waiting) {
    // The coroutine may go on, and this object go, before begin() returns.
    auto self = std::move(*this);
    std::move(self).begin([this, waiting](T value) {
      awaited_.emplace(std::move(value));
      waiting.resume();
    });
  }
  T await_resume() { return std::move(*awaited_); }
#endif

 private:
  // Sees to it that an answer is given once.
  class Outlet {
   public:
    Outlet(Answer take, std::function<T()> missing)
        : take_(std::move(take)), missing_(std::move(missing)) {}
    ~Outlet() {
      if (!given_) take_(missing_());
    }
    Outlet(const Outlet&) = delete;
    Outlet& operator=(const Outlet&) = delete;

    void give(T value) {
      if (!given_.exchange(true)) take_(std::move(value));
    }

   private:
    const Answer take_;
    const std::function<T()> missing_;
    std::atomic<bool> given_ = false;
  };

  void begin(Answer take) && {
    if (owner_) {
      take = [owner = owner_, missing = missing_, take = std::move(take)](T value) {
        if (!owner->run([&] { take(std::move(value)); })) take(missing());
      };
    }
    if (onMainQueue_) {
      take = [take = std::move(take)](T value) {
        DispatchQueue::main().async([take, value = std::move(value)] { take(value); });
      };
    }
    const auto outlet = std::make_shared<Outlet>(std::move(take), missing_);
    std::exchange(start_, nullptr)([outlet](T value) { outlet->give(std::move(value)); });
  }

  std::function<void(Answer)> start_;
  std::function<T()> missing_;
  Owner owner_;
  bool onMainQueue_ = false;
  std::optional<T> awaited_;
};

#ifdef PAPERLOOM_HAS_COROUTINES
// What a coroutine returns that starts at once and that nobody waits for. An exception that leaves
// it ends the process, as it does for a callback.
struct Detached {
  struct promise_type {
    Detached get_return_object() noexcept { return {}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() noexcept {}
    [[noreturn]] void unhandled_exception() noexcept { std::terminate(); }
  };
};
#endif

}  // namespace paperloom
