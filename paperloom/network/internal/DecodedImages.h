#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <vector>

#include "paperloom/model/DocumentParsers.h"
#include "paperloom/platform/Image.h"
#include "paperloom/platform/ImageDecoder.h"
#include "paperloom/platform/Mutex.h"

namespace paperloom {

class KeptImageParser;

// Pictures as they were decoded, least recently used out first, so that one that is shown again is
// not decoded again. A picture stands for the very bytes that it was decoded from, which the URL
// cache hands out again and again while it has them in memory: so it is never older than they are.
// Safe from any thread.
class DecodedImages : public std::enable_shared_from_this<DecodedImages> {
 public:
  explicit DecodedImages(std::int64_t capacity) : capacity_(capacity) {}

  // Whether find() could give something of that size.
  bool mayHold(std::optional<ImageSize> maximumSize) const;
  // Null when they have not been decoded to that size, or not lately.
  std::shared_ptr<const Image> find(const Data& data, std::optional<ImageSize> maximumSize);
  void keep(const Data& data, std::optional<ImageSize> maximumSize,
            std::shared_ptr<const Image> image);

  // One that asks here before it decodes; the same for the same size while it is in use.
  std::shared_ptr<const ParserProtocol<std::shared_ptr<const Image>>> parser(
      std::optional<ImageSize> maximumSize);

  // In bytes of pixels and of what they were decoded from. A smaller one takes effect at once.
  void setCapacity(std::int64_t bytes);
  void clear();

 private:
  struct Entry {
    Data data;  // keeps the address its own
    std::optional<ImageSize> maximumSize;
    std::shared_ptr<const ImageDecoder> decoder;
    std::shared_ptr<const Image> image;

    std::int64_t size() const;
  };
  using Entries = std::list<Entry>;

  Entries::iterator entryOf(const Data& data, std::optional<ImageSize> maximumSize)
      PAPERLOOM_REQUIRES(mutex_);
  // What has gone, to be destroyed without the lock.
  Entries shrink() PAPERLOOM_REQUIRES(mutex_);

  mutable Mutex mutex_;
  std::int64_t capacity_ PAPERLOOM_GUARDED_BY(mutex_);
  std::int64_t usage_ PAPERLOOM_GUARDED_BY(mutex_) = 0;
  Entries entries_ PAPERLOOM_GUARDED_BY(mutex_);  // latest use first
  std::vector<std::weak_ptr<const KeptImageParser>> parsers_ PAPERLOOM_GUARDED_BY(mutex_);
};

// ImageParser, but for what has been decoded already.
class KeptImageParser final : public ParserProtocol<std::shared_ptr<const Image>> {
 public:
  KeptImageParser(std::shared_ptr<DecodedImages> images, std::optional<ImageSize> maximumSize)
      : images_(std::move(images)), maximumSize_(maximumSize) {}

  tl::expected<Item, ParserError> parse(const Data& data) const override;

  const std::optional<ImageSize>& maximumSize() const { return maximumSize_; }

 private:
  std::shared_ptr<DecodedImages> images_;
  std::optional<ImageSize> maximumSize_;
};

}  // namespace paperloom
