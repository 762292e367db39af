#pragma once

#include <sys/resource.h>

#include <csignal>

namespace paperloom::test {

// While this lives, no file of the process grows beyond so many bytes: what is written there fails
// as on a full disk. It holds for every thread; one at a time.
class FullDisk {
 public:
  explicit FullDisk(rlim_t largestFile) {
    std::signal(SIGXFSZ, SIG_IGN);
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit full{largestFile, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &full);
  }
  ~FullDisk() { ::setrlimit(RLIMIT_FSIZE, &before_); }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit before_{};
};

}  // namespace paperloom::test
