#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "paperloom/platform/Data.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/URLRequest.h"
#include "paperloom/platform/URLResponse.h"
#include "paperloom/platform/URLSessionTaskMetrics.h"

namespace paperloom {

namespace internal {
class SessionCore;
class TaskCore;
}  // namespace internal

// One exchange. Created suspended; safe from any thread.
class PAPERLOOM_EXPORT URLSessionTask {
 public:
  enum class State { suspended, running, canceling, completed };

  // Called exactly once for a task that was resumed or cancelled. Without an error there are both
  // response and data, if only empty. A body cut off after its header arrives as response and error
  // without data; a failure before the header, and a cancellation, as an error alone.
  using Completion = std::function<void(const std::optional<Data>& data,
                                        const std::optional<HTTPURLResponse>& response,
                                        const std::optional<URLError>& error)>;
  // Called with what the completion is going to receive, before the store filter and before it, but
  // off the callback queue: for work that takes long, such as decoding a picture. As many run at a
  // time as the machine has cores. Left out for a task that has been cancelled; must not throw.
  using Preparation = Completion;
  // Asked on the callback queue, just before the completion, whether a complete fresh answer that
  // HTTP would let the cache keep is worth keeping; with false the stored copy stays as it was.
  using StoreFilter = std::function<bool(const HTTPURLResponse& response, const Data& data)>;

  static constexpr float lowPriority = 0.25F;
  static constexpr float defaultPriority = 0.5F;
  static constexpr float highPriority = 0.75F;

  // A task that belongs to no session: resume() and cancel() do nothing.
  static std::shared_ptr<URLSessionTask> unattached(URLRequest request);

  // One of no session that has completed with `copy`, as a session's would that answers from its
  // cache: for answers that need no session. Tells the listener of events of a request and its
  // answer.
  static std::shared_ptr<URLSessionTask> answeredFromCache(URLRequest request,
                                                           CachedURLResponse copy,
                                                           std::optional<std::chrono::seconds> age);

  ~URLSessionTask();
  URLSessionTask(const URLSessionTask&) = delete;
  URLSessionTask& operator=(const URLSessionTask&) = delete;

  // Starts the exchange; the second call does nothing.
  void resume();
  // Ends it: the completion receives URLError::Code::cancelled, unless it was under way already.
  // That holds for a suspended task, too.
  void cancel();

  // Tasks that wait for a connection start in order of priority, 0 to 1.
  float priority() const;
  void setPriority(float priority);

  State state() const;
  const URLRequest& originalRequest() const;
  // Body bytes received so far, before decoding, and those announced; -1 when not known.
  std::int64_t countOfBytesReceived() const;
  std::int64_t countOfBytesExpectedToReceive() const;
  // Complete once the task's completion has been called.
  URLSessionTaskMetrics metrics() const;
  // The head of the answer and why there is no whole one, as the completion received them: known to
  // it, and from then on. Neither before that.
  std::optional<HTTPURLResponse> response() const;
  std::optional<URLError> error() const;
  // What the cache held for the request, after stored redirects, before it went out: the copy to
  // fall back on. Known to the store filter and to the completion; nothing for methods other than
  // GET and HEAD, and where the policy ignores the cache.
  std::optional<CachedURLResponse> storedResponse() const;

 private:
  friend class URLSession;
  friend class internal::SessionCore;
  explicit URLSessionTask(std::shared_ptr<internal::TaskCore> core);

  std::shared_ptr<internal::TaskCore> core_;
};

}  // namespace paperloom
