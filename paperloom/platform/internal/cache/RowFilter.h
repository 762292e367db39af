#pragma once

#include <cstdint>
#include <vector>

#include "paperloom/platform/internal/cache/CacheEntryFormat.h"

namespace paperloom::internal {

// Which URLs have no row for certain: a Bloom filter of one hash, which the row ids are. Of those
// without a row about one in sixteen cannot be told apart.
class RowFilter {
 public:
  explicit RowFilter(const std::vector<std::int64_t>& ids);

  void add(std::int64_t id);
  bool mayHold(const CacheKey& key) const;
  // Whether so many rows were added that it tells little.
  bool isFull() const { return rows_ > bits_.size() / bitsPerRow; }

 private:
  static constexpr std::size_t bitsPerRow = 8;  // at least
  std::size_t slot(std::int64_t id) const;

  std::vector<bool> bits_;
  std::size_t rows_ = 0;
};

}  // namespace paperloom::internal
