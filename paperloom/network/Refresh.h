#pragma once

#include <chrono>
#include <optional>

namespace paperloom {

// When a request asks the server, in place of what HTTP says of the stored copy.
class Refresh {
 public:
  // A copy that was fetched or confirmed no longer ago is the answer, at once and without traffic;
  // the server is asked about an older one, however fresh it calls itself.
  [[nodiscard]] static Refresh ifOlderThan(std::chrono::seconds age) { return Refresh(age); }

  // Two answers: the copy at once, whatever its age, where there is one; then what the server
  // gives, which is asked in any case, as a request without a Refresh has it: confirmed, new, or
  // the copy once more where the server fails. The first is a success and has
  // Provenance::isFollowed; should the second come before it, it is left out.
  [[nodiscard]] static Refresh afterTheCopy() { return Refresh(std::nullopt); }

  // Nothing for afterTheCopy().
  std::optional<std::chrono::seconds> maximumAge() const { return maximumAge_; }

 private:
  explicit Refresh(std::optional<std::chrono::seconds> age) : maximumAge_(age) {}

  std::optional<std::chrono::seconds> maximumAge_;
};

}  // namespace paperloom
