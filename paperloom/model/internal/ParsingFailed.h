#pragma once

#include <string>
#include <utility>

#include "paperloom/model/PaperloomError.h"

namespace paperloom {

inline tl::unexpected<PaperloomError> parsingFailed(std::string details) {
  return tl::make_unexpected(PaperloomError::parsingFailed(std::move(details)));
}

}  // namespace paperloom
