#include "paperloom/platform/internal/cache/RowFilter.h"

#include <algorithm>
#include <bit>

namespace paperloom::internal {
namespace {

constexpr std::size_t leastBits = std::size_t{1} << 16;

}  // namespace

RowFilter::RowFilter(const std::vector<std::int64_t>& ids)
    : bits_(std::max(leastBits, std::bit_ceil(2 * bitsPerRow * ids.size()))) {
  for (const std::int64_t id : ids) add(id);
}

void RowFilter::add(std::int64_t id) {
  bits_[slot(id)] = true;
  ++rows_;
}

bool RowFilter::mayHold(const CacheKey& key) const { return bits_[slot(key.firstId)]; }

// The variants of a URL share one.
std::size_t RowFilter::slot(std::int64_t id) const {
  return static_cast<std::uint64_t>(id) / variantsPerURL % bits_.size();
}

}  // namespace paperloom::internal
