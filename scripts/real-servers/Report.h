#pragma once

#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>

namespace paperloom::servers {

// Prints a line for each promise. For any thread.
class Report {
 public:
  void expect(const std::string& where, const std::string& promise, bool kept,
              const std::string& seen) {
    const std::lock_guard lock(mutex_);
    std::printf("%s %-11s %s: %s\n", kept ? "ok  " : "FAIL", where.c_str(), promise.c_str(),
                seen.c_str());
    std::fflush(stdout);
    if (!kept) ++broken_;
  }
  int broken() const { return broken_; }

 private:
  std::mutex mutex_;
  std::atomic<int> broken_ = 0;
};

}  // namespace paperloom::servers
