#include "paperloom/platform/internal/late/LateLibrary.h"

#include <dlfcn.h>

#include <string>

#include "paperloom/platform/FatalError.h"

namespace paperloom::internal {

LateLibrary::LateLibrary(const char* name)
    : name_(name), handle_(dlopen(name, RTLD_NOW | RTLD_LOCAL)) {
  if (handle_ == nullptr) fatalError(std::string("cannot load ") + dlerror());
}

void* LateLibrary::address(const char* function) const {
  return required(dlsym(handle_, function), std::string(name_) + " has no " + function);
}

}  // namespace paperloom::internal
