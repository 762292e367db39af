#include "paperloom/network/LatestDateStore.h"

#include <algorithm>

#include "paperloom/platform/Date.h"

namespace paperloom {

LatestDateStore& LatestDateStore::shared() {
  static auto* const store = new LatestDateStore(UserDefaults::standard());
  return *store;
}

LatestDateStore::LatestDateStore(UserDefaults& defaults) : defaults_(defaults) {
  LatestDateStore::recordRequestTimeIfUnset();
}

double LatestDateStore::lastRequestTime() const {
  return defaults_.doubleForKey(lastRequestCacheKey_);
}

void LatestDateStore::setLastRequestTime(double time) {
  defaults_.setDouble(time, lastRequestCacheKey_);
  defaults_.synchronize();
}

void LatestDateStore::recordRequestTimeIfUnset() {
  if (lastRequestTime() == 0.0) setLastRequestTime(secondsSince1970(currentDate()));
}

double LatestDateStore::timeElapsedSinceLastRequest() const {
  return std::max(0.0, secondsSince1970(currentDate()) - lastRequestTime());
}

}  // namespace paperloom
