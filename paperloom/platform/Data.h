#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace paperloom {

// Immutable bytes. Copies share one buffer, so a body travels from the network through the cache
// to its parser without being copied. Safe to read from any thread.
class Data {
 public:
  Data() = default;
  explicit Data(std::string bytes)
      : bytes_(std::make_shared<const std::string>(std::move(bytes))) {}

  std::string_view view() const { return bytes_ ? std::string_view(*bytes_) : std::string_view(); }
  std::size_t size() const { return view().size(); }
  bool empty() const { return view().empty(); }
  // How many bytes of the buffer lie beyond the last one. With 64 of them a JSON text is decoded
  // where it lies instead of in a copy.
  std::size_t spareCapacity() const { return bytes_ ? bytes_->capacity() - bytes_->size() : 0; }

  friend bool operator==(const Data& a, const Data& b) { return a.view() == b.view(); }

 private:
  std::shared_ptr<const std::string> bytes_;
};

}  // namespace paperloom
