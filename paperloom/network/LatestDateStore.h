#pragma once

#include <memory>
#include <string>

#include "paperloom/platform/Export.h"
#include "paperloom/platform/UserDefaults.h"

namespace paperloom {

// Remembers across launches when content was last fetched fresh from the network. Times are seconds
// since 1 January 1970. Safe from any thread. Every function may wait for the disk, making the
// store too; the coordinators record on their sessions' callback queues.
class PAPERLOOM_EXPORT LatestDateStore {
 public:
  // The instance over the standard user defaults, made with the first call.
  static LatestDateStore& shared();

  // Records the current time when none was ever recorded. `defaults` must outlive the store.
  explicit LatestDateStore(UserDefaults& defaults);
  virtual ~LatestDateStore() = default;
  LatestDateStore(const LatestDateStore&) = delete;
  LatestDateStore& operator=(const LatestDateStore&) = delete;

  // 0.0 when nothing usable is stored.
  virtual double lastRequestTime() const;
  // On disk when it returns.
  virtual void setLastRequestTime(double time);
  virtual void recordRequestTimeIfUnset();  // by way of the two above
  // Seconds since the recorded time; 0.0 when that lies in the future.
  virtual double timeElapsedSinceLastRequest() const;

  const std::string& lastRequestCacheKey() const { return lastRequestCacheKey_; }

 private:
  UserDefaults& defaults_;
  const std::string lastRequestCacheKey_ = "paperloom.lastRequestTime";
};

}  // namespace paperloom
