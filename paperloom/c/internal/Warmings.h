#pragma once

#include <map>
#include <memory>

#include "paperloom/c/paperloom.h"
#include "paperloom/network/FrontPageWarmer.h"
#include "paperloom/platform/Mutex.h"

namespace paperloom::c {

// The warmers of a client that are at work, by their requests. Safe from any thread.
class Warmings {
 public:
  void add(paperloom_request number, std::unique_ptr<FrontPageWarmer> warmer);
  void cancel(paperloom_request number);
  // Both wait for the threads of what they end, which may be within a callback of it.
  void remove(paperloom_request number);
  void end();

 private:
  Mutex mutex_;
  std::map<paperloom_request, std::unique_ptr<FrontPageWarmer>> warmers_
      PAPERLOOM_GUARDED_BY(mutex_);
};

}  // namespace paperloom::c
