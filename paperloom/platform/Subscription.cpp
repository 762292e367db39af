#include "paperloom/platform/Subscription.h"

#include <algorithm>
#include <atomic>

#include "paperloom/platform/URLSessionTask.h"

namespace paperloom {

struct Subscription::Token::Tie {
  std::weak_ptr<URLSessionTask> task;
  std::atomic<std::size_t> owners;
};

bool Subscription::Token::isActive() const {
  const MutexLock lock(mutex_);
  return !gone_;
}

bool Subscription::Token::enter() {
  const MutexLock lock(mutex_);
  if (gone_) return false;
  visits_.push_back({std::this_thread::get_id()});
  return true;
}

// One thread's visits end in the reverse order of their beginnings.
void Subscription::Token::leave() {
  const MutexLock lock(mutex_);
  const auto last = std::find_if(visits_.rbegin(), visits_.rend(), [](const Visit& visit) {
    return visit.thread == std::this_thread::get_id();
  });
  visits_.erase(std::next(last).base());
  changed_.notifyAll();
}

void Subscription::Token::setEnding(bool isEnding) {
  for (Visit& visit : visits_) {
    if (visit.thread == std::this_thread::get_id()) visit.isEnding = isEnding;
  }
  changed_.notifyAll();
}

bool Subscription::Token::isVisitedByOthers() const {
  return std::any_of(visits_.begin(), visits_.end(), [](const Visit& visit) {
    return visit.thread != std::this_thread::get_id() && !visit.isEnding;
  });
}

void Subscription::Token::cancel() {
  std::vector<std::shared_ptr<Tie>> ties;
  {
    const MutexLock lock(mutex_);
    gone_ = true;
    ties.swap(ties_);
  }
  for (const auto& tie : ties) untie(*tie);
  const MutexLock lock(mutex_);
  // Two callbacks that end the same owner must not wait for each other.
  setEnding(true);
  while (isVisitedByOthers()) changed_.wait(mutex_);
  setEnding(false);
}

void Subscription::Token::untie(Tie& tie) {
  if (--tie.owners > 0) return;
  if (const auto task = tie.task.lock()) task->cancel();
}

void Subscription::Token::add(const std::shared_ptr<Tie>& tie) {
  {
    const MutexLock lock(mutex_);
    if (!gone_) {
      if (ties_.size() >= pruneAt_) {
        std::erase_if(ties_, [](const auto& old) { return old->task.expired(); });
        pruneAt_ = std::max<std::size_t>(16, 2 * ties_.size());
      }
      ties_.push_back(tie);
      return;
    }
  }
  untie(*tie);
}

void cancelWithOwners(const std::shared_ptr<URLSessionTask>& task,
                      std::vector<std::shared_ptr<Subscription::Token>> owners) {
  std::sort(owners.begin(), owners.end());
  owners.erase(std::unique(owners.begin(), owners.end()), owners.end());
  if (owners.empty()) return;
  const auto tie = std::make_shared<Subscription::Token::Tie>();
  tie->task = task;
  tie->owners = owners.size();
  for (const auto& owner : owners) owner->add(tie);
}

Subscription::Subscription() : token_(std::make_shared<Token>()) {}

Subscription::~Subscription() { cancel(); }

Subscription::Subscription(Subscription&& other) noexcept
    : token_(std::exchange(other.token_, std::make_shared<Token>())) {}

Subscription& Subscription::operator=(Subscription&& other) noexcept {
  if (this == &other) return *this;
  cancel();
  token_ = std::exchange(other.token_, std::make_shared<Token>());
  return *this;
}

void Subscription::cancel() { token_->cancel(); }

bool Subscription::isActive() const { return token_->isActive(); }

void Subscription::cancelWithOwner(const std::shared_ptr<URLSessionTask>& task) const {
  cancelWithOwners(task, {token_});
}

}  // namespace paperloom
