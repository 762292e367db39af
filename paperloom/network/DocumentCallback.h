#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "paperloom/network/Provenance.h"

namespace paperloom {

// What is called with a document: any callable that takes the record, or the record and its
// provenance. May be empty: a call does nothing then.
template <class T>
class DocumentCallback {
 public:
  using Record = std::shared_ptr<const T>;

  DocumentCallback() = default;
  DocumentCallback(std::nullptr_t) {}

  template <class F>
  requires(!std::same_as<std::remove_cvref_t<F>, DocumentCallback> && std::invocable<F&, Record>)
      DocumentCallback(F callback) {
    std::function<void(Record)> call(std::move(callback));
    if (!call) return;
    call_ = [call = std::move(call)](Record record, const Provenance&) { call(std::move(record)); };
  }

  template <class F>
  requires(!std::invocable<F&, Record> && std::invocable<F&, Record, const Provenance&>)
      DocumentCallback(F callback)
      : call_(std::move(callback)) {}

  void operator()(Record record, const Provenance& provenance = {}) const {
    if (call_) call_(std::move(record), provenance);
  }

 private:
  std::function<void(Record, const Provenance&)> call_;
};

}  // namespace paperloom
