#include "paperloom/platform/BodyLimit.h"

#include <algorithm>
#include <limits>

namespace paperloom {
namespace {

thread_local std::int64_t limit = std::numeric_limits<std::int64_t>::max();

}  // namespace

BodyLimit::BodyLimit(std::int64_t bytes) : before_(limit) {
  limit = std::clamp<std::int64_t>(bytes, 0, before_);
}

BodyLimit::~BodyLimit() { limit = before_; }

std::int64_t BodyLimit::current() { return limit; }

}  // namespace paperloom
