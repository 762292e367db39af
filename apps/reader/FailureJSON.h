#pragma once

#include "apps/reader/Failure.h"
#include "apps/reader/RecordJSON.h"

namespace paperloom::reader {

// {"error": {"case": ..., "details": ..., "status": ...}}, the status being that of the service's
// answer, or null.
inline JSON toJSON(const Failure& failure) {
  return {{"error",
           {{"case", failure.name},
            {"details", failure.details},
            {"status", failure.httpStatus ? JSON(*failure.httpStatus) : JSON()}}}};
}

}  // namespace paperloom::reader
