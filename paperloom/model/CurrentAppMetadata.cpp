#include "paperloom/model/CurrentAppMetadata.h"

namespace paperloom {

CurrentAppMetadata& CurrentAppMetadata::shared() {
  static auto* const current = new CurrentAppMetadata;  // never destroyed
  return *current;
}

}  // namespace paperloom
