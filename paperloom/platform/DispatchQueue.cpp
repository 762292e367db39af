#include "paperloom/platform/DispatchQueue.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <iterator>
#include <utility>

#include "paperloom/platform/FatalError.h"
#include "paperloom/platform/Mutex.h"

namespace paperloom {
namespace {

// What it throws ends the process here, before anything is unwound.
void perform(const std::function<void()>& work) noexcept { work(); }

}  // namespace

struct DispatchQueue::State {
  Mutex mutex;
  std::deque<std::function<void()>> work PAPERLOOM_GUARDED_BY(mutex);
  std::function<void()> wakeUp PAPERLOOM_GUARDED_BY(mutex);
  std::atomic<bool> stopped = false;  // written with the lock held
  int event = -1;

  void signal() const {
    const std::uint64_t one = 1;
    while (::write(event, &one, sizeof one) < 0 && errno == EINTR) {
    }
  }

  void clearSignal() const {
    std::uint64_t count = 0;
    while (::read(event, &count, sizeof count) < 0 && errno == EINTR) {
    }
  }
};

DispatchQueue& DispatchQueue::main() {
  static auto* const queue = new DispatchQueue();
  return *queue;
}

DispatchQueue::DispatchQueue() : state_(std::make_unique<State>()) {
  state_->event = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (state_->event < 0) fatalError("no event descriptor for a dispatch queue");
}

DispatchQueue::~DispatchQueue() { ::close(state_->event); }

void DispatchQueue::async(std::function<void()> work) {
  if (!work) return;
  std::function<void()> wakeUp;
  {
    const MutexLock lock(state_->mutex);
    const bool wasEmpty = state_->work.empty();
    state_->work.push_back(std::move(work));
    if (!wasEmpty) return;
    state_->signal();
    wakeUp = state_->wakeUp;
  }
  if (wakeUp) wakeUp();
}

void DispatchQueue::run() {
  for (;;) {
    {
      const MutexLock lock(state_->mutex);
      if (state_->stopped.exchange(false)) {
        if (state_->work.empty()) state_->clearSignal();
        return;
      }
    }
    if (runBatch(true) > 0) continue;
    pollfd readable{state_->event, POLLIN, 0};
    ::poll(&readable, 1, -1);
  }
}

void DispatchQueue::stop() {
  const MutexLock lock(state_->mutex);
  state_->stopped = true;
  state_->signal();
}

std::size_t DispatchQueue::runPending() { return runBatch(false); }

std::size_t DispatchQueue::runBatch(bool untilStopped) {
  std::deque<std::function<void()>> pending;
  {
    const MutexLock lock(state_->mutex);
    pending.swap(state_->work);
    if (!state_->stopped) state_->clearSignal();
  }
  std::size_t count = 0;
  for (; !pending.empty() && !(untilStopped && state_->stopped); pending.pop_front(), ++count) {
    perform(pending.front());
  }
  if (!pending.empty()) {
    const MutexLock lock(state_->mutex);
    state_->work.insert(state_->work.begin(), std::make_move_iterator(pending.begin()),
                        std::make_move_iterator(pending.end()));
  }
  return count;
}

int DispatchQueue::fileDescriptor() const { return state_->event; }

void DispatchQueue::setWakeUp(std::function<void()> wakeUp) {
  const MutexLock lock(state_->mutex);
  state_->wakeUp.swap(wakeUp);  // the old one goes after the lock
}

}  // namespace paperloom
