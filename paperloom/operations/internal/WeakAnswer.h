#pragma once

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "paperloom/platform/Operation.h"

namespace paperloom {

// A completion that calls `handle(operation, answer)` while the operation is alive and unfinished.
// It does not keep the operation: the answer to one that was released is dropped, and so is what
// comes after the end, since a request may be answered twice.
template <class Answer, class SomeOperation, class Handle>
std::function<void(Answer)> weakAnswer(SomeOperation& operation, Handle handle) {
  static_assert(std::is_base_of_v<Operation, SomeOperation>);
  return [weak = operation.weak_from_this(), handle = std::move(handle)](Answer answer) {
    const std::shared_ptr<Operation> alive = weak.lock();
    if (alive && !alive->isFinished()) {
      handle(static_cast<SomeOperation&>(*alive), std::move(answer));
    }
  };
}

}  // namespace paperloom
