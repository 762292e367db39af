#pragma once

#include <atomic>
#include <string_view>

#include "paperloom/platform/Export.h"
#include "paperloom/platform/Operation.h"

namespace paperloom {

// The base of the identity operations: finished when a callback says so, not when main() returns.
// One stored state takes the place of the platform's own book-keeping. Between start() and its end
// such an operation stays ready and never reports that it executes.
//
// A subclass overrides main(), which begins the work; its last callback stores the result and then
// sets the state to finished, on whatever thread it runs. The result may be read once the operation
// is finished.
class PAPERLOOM_EXPORT AsynchronousOperation : public Operation {
 public:
  AsynchronousOperation() = default;

  bool isReady() const override;
  bool isExecuting() const override { return state_ == State::executing; }
  bool isFinished() const override { return state_ == State::finished; }
  bool isAsynchronous() const override { return true; }
  // Runs main() on this thread. A cancelled operation becomes finished instead.
  void start() override;

 protected:
  enum class State : unsigned char { ready, executing, finished };

  // The key under which a change to or from the state is announced.
  static constexpr std::string_view keyPath(State state) {
    switch (state) {
      case State::ready:
        return isReadyKey;
      case State::executing:
        return isExecutingKey;
      case State::finished:
        return isFinishedKey;
    }
    return {};
  }

  State state() const { return state_; }
  // Announces that the new and the old state will change, stores the new one, and announces that
  // the old and the new have changed; also when they are the same.
  void setState(State state);

 private:
  std::atomic<State> state_{State::ready};
};

}  // namespace paperloom
