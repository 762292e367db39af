#pragma once

#include <atomic>
#include <functional>

#include "paperloom/platform/Export.h"
#include "paperloom/platform/Mutex.h"

namespace paperloom {

// The application's sign that the network is in use: a flag that the session managers set and a
// host shows. Safe from any thread.
class PAPERLOOM_EXPORT NetworkActivityIndicator {
 public:
  static NetworkActivityIndicator& shared();

  bool isVisible() const { return visible_; }
  // Calls the observer when the flag changes, on the calling thread.
  void setVisible(bool visible);

  // One observer at a time; an empty function takes it away. When several threads set the flag at
  // once, isVisible() is what counts.
  void setObserver(std::function<void(bool visible)> observer);

 private:
  std::atomic<bool> visible_{false};
  Mutex mutex_;
  std::function<void(bool)> observer_ PAPERLOOM_GUARDED_BY(mutex_);
};

}  // namespace paperloom
