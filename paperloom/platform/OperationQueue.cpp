#include "paperloom/platform/OperationQueue.h"

#include <algorithm>
#include <utility>

#include "paperloom/platform/internal/operation/OperationQueueCore.h"

namespace paperloom {

OperationQueue::OperationQueue() : core_(std::make_shared<internal::OperationQueueCore>()) {}

OperationQueue::~OperationQueue() { core_->close(); }

bool OperationQueue::addOperation(std::shared_ptr<Operation> operation) {
  return core_->add(std::move(operation));
}

bool OperationQueue::addOperations(const std::vector<std::shared_ptr<Operation>>& operations,
                                   bool waitUntilFinished, Deadline deadline) {
  for (const auto& operation : operations) core_->add(operation);
  if (!waitUntilFinished) return true;
  return std::all_of(operations.begin(), operations.end(), [&](const auto& operation) {
    return !operation || operation->waitUntilFinished(deadline);
  });
}

int OperationQueue::maxConcurrentOperationCount() const { return core_->limit(); }

void OperationQueue::setMaxConcurrentOperationCount(int count) { core_->setLimit(count); }

bool OperationQueue::isSuspended() const { return core_->isSuspended(); }

void OperationQueue::setSuspended(bool suspended) { core_->setSuspended(suspended); }

void OperationQueue::cancelAllOperations() { core_->cancelAll(); }

std::size_t OperationQueue::operationCount() const { return core_->operationCount(); }

bool OperationQueue::waitUntilAllOperationsAreFinished(Deadline deadline) const {
  return core_->waitUntilEmpty(deadline);
}

}  // namespace paperloom
