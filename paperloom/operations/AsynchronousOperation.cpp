#include "paperloom/operations/AsynchronousOperation.h"

namespace paperloom {

bool AsynchronousOperation::isReady() const {
  return Operation::isReady() && state_ == State::ready;
}

void AsynchronousOperation::start() {
  if (isCancelled()) {
    setState(State::finished);
    return;
  }
  if (isFinished()) return;
  setState(State::ready);  // not executing: queues and hosts rely on what is announced here
  main();
}

void AsynchronousOperation::setState(State state) {
  const auto self = weak_from_this().lock();  // what hears of the end may let go of the operation
  const State old = state_;
  willChangeValue(keyPath(state));
  willChangeValue(keyPath(old));
  state_ = state;
  didChangeValue(keyPath(old));
  didChangeValue(keyPath(state));
}

}  // namespace paperloom
