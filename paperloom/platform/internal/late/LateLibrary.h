#pragma once

namespace paperloom::internal {

// A shared object that the library is built for but does not load with itself: its sources call the
// functions as they are declared, the definitions in this folder look them up. What is only linked,
// such as a program that prints its version, is spared the time that its dependencies take to load.
class LateLibrary {
 public:
  // Opens it, which may wait for the disk; stops the program when it is not there, as the loader
  // would have at the start. It is never closed.
  explicit LateLibrary(const char* name);

  // Stops the program when there is no such function.
  template <class Function>
  Function* find(const char* function) const {
    return reinterpret_cast<Function*>(address(function));
  }

 private:
  void* address(const char* function) const;

  const char* name_;
  void* handle_;
};

// The definition of a function of `library()`, of any number of named arguments.
#define PAPERLOOM_LATE(library, result, name, parameters, arguments)     \
  result name parameters {                                               \
    static auto* const function = library().find<decltype(name)>(#name); \
    return function arguments;                                           \
  }

}  // namespace paperloom::internal
