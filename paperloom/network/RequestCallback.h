#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "paperloom/model/PaperloomError.h"
#include "paperloom/network/Provenance.h"
#include "paperloom/platform/Callback.h"
#include "paperloom/platform/Subscription.h"

namespace paperloom {

// What a request is given to answer to: any callable that takes the values, or the values and the
// Provenance, which says where a document came from and how a request failed. May be empty: a call
// does nothing then. One made through a Subscription keeps its owner with it. As Callback.h says of
// all of them, it must not throw.
template <class... Values>
class RequestCallback {
 public:
  using Owner = std::shared_ptr<Subscription::Token>;

  RequestCallback() = default;
  RequestCallback(std::nullptr_t) {}

  template <class F>
  requires(!std::same_as<std::remove_cvref_t<F>, RequestCallback> && std::invocable<F&, Values...>)
      RequestCallback(F callback) {
    takeOwner(callback);
    std::function<void(Values...)> function(std::move(callback));
    if (!function) return;
    call_ = [function = std::move(function)](Values... values, const Provenance&) {
      function(std::move(values)...);
    };
  }

  template <class F>
  requires(!std::invocable<F&, Values...> && std::invocable<F&, Values..., const Provenance&>)
      RequestCallback(F callback) {
    takeOwner(callback);
    call_ = std::move(callback);
  }

  void operator()(Values... values, const Provenance& provenance = {}) const noexcept {
    if (call_) call_(std::move(values)..., provenance);
  }

  explicit operator bool() const { return static_cast<bool>(call_); }
  // Null for a callback that no Subscription owns.
  const Owner& owner() const { return owner_; }

 private:
  template <class F>
  void takeOwner(const F& callback) {
    if constexpr (requires {
                    { callback.owner() } -> std::convertible_to<Owner>;
                  }) {
      owner_ = callback.owner();
    }
  }

  std::function<void(Values..., const Provenance&)> call_;
  Owner owner_;
};

// What is called with a document, and with an error.
template <class T>
using DocumentCallback = RequestCallback<std::shared_ptr<const T>>;
using FailureCallback = RequestCallback<PaperloomError>;

}  // namespace paperloom
