#pragma once

#include "paperloom/network/LatestDateStore.h"
#include "paperloom/platform/Date.h"

namespace paperloom {

// Records the current time as that of the latest fetch: in `dates`, or without one in the shared
// store, which is opened only then.
inline void recordFetch(LatestDateStore* dates) {
  LatestDateStore& store = dates != nullptr ? *dates : LatestDateStore::shared();
  store.setLastRequestTime(secondsSince1970(currentDate()));
}

}  // namespace paperloom
