#pragma once

#include <dlfcn.h>

namespace paperloom::reader {

// A library of the system that only some commands use, and that may be missing: loaded with its
// first use, so that the others start without it.
class SharedLibrary {
 public:
  explicit SharedLibrary(const char* name) : handle_(::dlopen(name, RTLD_NOW | RTLD_LOCAL)) {}

  // Whether it is there, with every function that was taken from it.
  bool isComplete() const { return handle_ != nullptr && !missing_; }

  // Also of the libraries that it stands on.
  template <class Function>
  Function take(const char* name) {
    auto* const symbol = handle_ == nullptr ? nullptr : ::dlsym(handle_, name);
    missing_ = missing_ || symbol == nullptr;
    return reinterpret_cast<Function>(symbol);
  }

 private:
  void* handle_;  // for as long as the program runs
  bool missing_ = false;
};

}  // namespace paperloom::reader
