#pragma once

#include <memory>
#include <utility>

namespace paperloom {

// What a coordinator received last, held as by the std::shared_ptr<const T> that it converts to;
// maybe nothing. The next answer puts another in its place, so it is kept while it is looked at:
//
//   if (const auto stream = news.stream()) {
//     for (const auto& section : stream->sections()) ...
//   }
//
// Looking into one that nobody keeps does not compile: in `for (... : news.stream()->sections())`
// it is gone before the first round.
template <class T>
class Snapshot {
 public:
  Snapshot() = default;
  Snapshot(std::shared_ptr<const T> record) : record_(std::move(record)) {}

  explicit operator bool() const { return record_ != nullptr; }
  operator std::shared_ptr<const T>() const { return record_; }

  const T* get() const& { return record_.get(); }
  const T* operator->() const& { return record_.get(); }
  const T& operator*() const& { return *record_; }
  const T* get() const&& = delete;
  const T* operator->() const&& = delete;
  const T& operator*() const&& = delete;

  friend bool operator==(const Snapshot&, const Snapshot&) = default;

 private:
  std::shared_ptr<const T> record_;
};

}  // namespace paperloom
