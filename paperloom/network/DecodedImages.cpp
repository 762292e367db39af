#include "paperloom/network/internal/DecodedImages.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace paperloom {
namespace {

bool areEqual(const std::optional<ImageSize>& a, const std::optional<ImageSize>& b) {
  if (!a || !b) return a.has_value() == b.has_value();
  return a->width == b->width && a->height == b->height;
}

}  // namespace

std::int64_t DecodedImages::Entry::size() const {
  return static_cast<std::int64_t>(image->pixels().size() + data.size());
}

DecodedImages::Entries::iterator DecodedImages::entryOf(const Data& data,
                                                        std::optional<ImageSize> maximumSize) {
  const auto decoder = ImageDecoder::current();
  return std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.data.view().data() == data.view().data() && entry.decoder == decoder &&
           areEqual(entry.maximumSize, maximumSize);
  });
}

bool DecodedImages::mayHold(std::optional<ImageSize> maximumSize) const {
  const MutexLock lock(mutex_);
  return std::any_of(entries_.begin(), entries_.end(),
                     [&](const Entry& entry) { return areEqual(entry.maximumSize, maximumSize); });
}

std::shared_ptr<const Image> DecodedImages::find(const Data& data,
                                                 std::optional<ImageSize> maximumSize) {
  const MutexLock lock(mutex_);
  const auto entry = entryOf(data, maximumSize);
  if (entry == entries_.end()) return nullptr;
  entries_.splice(entries_.begin(), entries_, entry);
  return entry->image;
}

void DecodedImages::keep(const Data& data, std::optional<ImageSize> maximumSize,
                         std::shared_ptr<const Image> image) {
  Entry entry{data, maximumSize, ImageDecoder::current(), std::move(image)};
  Entries gone;
  const MutexLock lock(mutex_);
  if (entry.size() > capacity_ || entryOf(data, maximumSize) != entries_.end()) return;
  usage_ += entry.size();
  entries_.push_front(std::move(entry));
  gone = shrink();
}

std::shared_ptr<const ParserProtocol<std::shared_ptr<const Image>>> DecodedImages::parser(
    std::optional<ImageSize> maximumSize) {
  const MutexLock lock(mutex_);
  std::erase_if(parsers_, [](const auto& parser) { return parser.expired(); });
  for (const auto& known : parsers_) {
    const auto parser = known.lock();
    if (parser && areEqual(parser->maximumSize(), maximumSize)) return parser;
  }
  auto parser = std::make_shared<const KeptImageParser>(shared_from_this(), maximumSize);
  parsers_.push_back(parser);
  return parser;
}

void DecodedImages::setCapacity(std::int64_t bytes) {
  Entries gone;
  const MutexLock lock(mutex_);
  capacity_ = bytes;
  gone = shrink();
}

void DecodedImages::clear() {
  Entries gone;
  const MutexLock lock(mutex_);
  usage_ = 0;
  gone.swap(entries_);
}

DecodedImages::Entries DecodedImages::shrink() {
  Entries gone;
  while (usage_ > capacity_ && !entries_.empty()) {
    usage_ -= entries_.back().size();
    gone.splice(gone.end(), entries_, std::prev(entries_.end()));
  }
  return gone;
}

tl::expected<KeptImageParser::Item, ParserError> KeptImageParser::parse(const Data& data) const {
  if (auto kept = images_->find(data, maximumSize_)) return kept;
  auto image = ImageParser(maximumSize_).parse(data);
  if (image) images_->keep(data, maximumSize_, *image);
  return image;
}

}  // namespace paperloom
