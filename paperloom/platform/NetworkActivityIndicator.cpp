#include "paperloom/platform/NetworkActivityIndicator.h"

#include <utility>

namespace paperloom {

NetworkActivityIndicator& NetworkActivityIndicator::shared() {
  static auto* const indicator = new NetworkActivityIndicator();
  return *indicator;
}

void NetworkActivityIndicator::setVisible(bool visible) {
  if (visible_.exchange(visible) == visible) return;
  std::function<void(bool)> observer;
  {
    const MutexLock lock(mutex_);
    observer = observer_;
  }
  if (observer) observer(visible);
}

void NetworkActivityIndicator::setObserver(std::function<void(bool)> observer) {
  const MutexLock lock(mutex_);
  observer_.swap(observer);  // the old one goes after the lock
}

}  // namespace paperloom
