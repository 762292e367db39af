#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "paperloom/model/AppMetadata.h"

namespace paperloom {

// The app metadata read last, from a configuration or a stream: what the shared data coordinator
// hands out as its own. It stands here because a stream's parse sets it. Safe from any thread.
class CurrentAppMetadata {
 public:
  static CurrentAppMetadata& shared();

  // Null until the first is set.
  std::shared_ptr<const AppMetadataProtocol> get() const {
    const std::lock_guard lock(mutex_);
    return metadata_;
  }

  void set(std::shared_ptr<const AppMetadataProtocol> metadata) {
    const std::lock_guard lock(mutex_);
    metadata_.swap(metadata);  // the old one is released after the lock
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<const AppMetadataProtocol> metadata_;
};

}  // namespace paperloom
