#pragma once

#include <memory>

#include "paperloom/model/AppMetadata.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/Guarded.h"

namespace paperloom {

// The app metadata read last, from a configuration or a stream; null until the first is. The shared
// data coordinator hands it out as its own; it stands here because a stream's parse sets it. Safe
// from any thread.
class PAPERLOOM_EXPORT CurrentAppMetadata
    : public Guarded<std::shared_ptr<const AppMetadataProtocol>> {
 public:
  static CurrentAppMetadata& shared();
};

}  // namespace paperloom
