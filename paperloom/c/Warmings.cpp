#include "paperloom/c/internal/Warmings.h"

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "paperloom/c/internal/Client.h"
#include "paperloom/c/internal/Enumerations.h"
#include "paperloom/c/internal/Struct.h"
#include "paperloom/c/internal/Text.h"

namespace paperloom::c {

void Warmings::add(paperloom_request number, std::unique_ptr<FrontPageWarmer> warmer) {
  const MutexLock lock(mutex_);
  warmers_[number] = std::move(warmer);
}

void Warmings::cancel(paperloom_request number) {
  const MutexLock lock(mutex_);
  const auto found = warmers_.find(number);
  if (found != warmers_.end()) found->second->cancel();
}

void Warmings::remove(paperloom_request number) {
  std::unique_ptr<FrontPageWarmer> warmer;  // ends after the lock
  const MutexLock lock(mutex_);
  const auto found = warmers_.find(number);
  if (found == warmers_.end()) return;
  warmer = std::move(found->second);
  warmers_.erase(found);
}

void Warmings::end() {
  std::map<paperloom_request, std::unique_ptr<FrontPageWarmer>> warmers;
  const MutexLock lock(mutex_);
  warmers.swap(warmers_);
}

namespace {

tl::unexpected<const char*> refused(const char* reason) {
  return tl::unexpected<const char*>(reason);
}

// A sentence says what is wrong with the plan.
tl::expected<WarmingPlan, const char*> readPlan(const paperloom_warming_plan* given) {
  const auto known = readStruct(given);
  if (!known) return refused("the plan has no size of this interface");
  if (known->picture_width < 0 || known->pixel_density < 0 || known->maximum_bytes < 0 ||
      known->maximum_time < 0) {
    return refused("a number of the plan is below 0");
  }
  WarmingPlan plan;
  for (size_t i = 0; i < known->document_count; ++i) {
    auto url = known->documents != nullptr ? webURL(known->documents[i]) : std::nullopt;
    if (!url) return refused("a document is not an http or https URL");
    plan.documents.push_back(std::move(*url));
  }
  if (known->front_page) plan.sections.emplace();
  for (size_t i = 0; known->front_page && i < known->section_count; ++i) {
    auto uid = known->sections != nullptr ? string(known->sections[i]) : std::nullopt;
    if (!uid) return refused("a section is missing");
    plan.sections->push_back(std::move(*uid));
  }
  plan.forceRefresh = known->force_refresh;
  if (known->picture_width > 0) plan.pictureWidth = known->picture_width;
  if (known->pixel_density > 0) plan.pixelDensity = known->pixel_density;
  if (known->maximum_bytes > 0) plan.maximumBytes = known->maximum_bytes;
  if (known->maximum_time > 0) plan.maximumTime = std::chrono::milliseconds(known->maximum_time);
  return plan;
}

Outcome outcomeOfSum(const WarmingSum& sum) {
  Outcome outcome;
  if (sum.end == WarmingSum::End::cancelled) outcome = {PAPERLOOM_CANCELLED, "cancelled"};
  if (sum.failure) {
    outcome = failure(sum.failure->error);
    outcome.status = sum.failure->provenance.statusCode.value_or(0);
  }
  outcome.warming = sum;
  return outcome;
}

paperloom_warmed_document borrowed(const WarmedDocument& document) {
  const Outcome outcome = outcomeOf(document.result);
  return {sizeof(paperloom_warmed_document),
          text(document.url),
          outcome.code,
          outcome.provenance ? enumerator(outcome.provenance->source) : PAPERLOOM_SOURCE_UNKNOWN,
          outcome.status,
          document.done,
          document.total,
          document.bytes};
}

paperloom_warming_end endOf(WarmingSum::End end) {
  switch (end) {
    case WarmingSum::End::outOfBytes:
      return PAPERLOOM_WARMING_OUT_OF_BYTES;
    case WarmingSum::End::outOfTime:
      return PAPERLOOM_WARMING_OUT_OF_TIME;
    case WarmingSum::End::complete:
    case WarmingSum::End::cancelled:
    case WarmingSum::End::noFrontPage:
    case WarmingSum::End::notKept:
      break;
  }
  return PAPERLOOM_WARMING_COMPLETE;
}

}  // namespace
}  // namespace paperloom::c

using namespace paperloom;
using namespace paperloom::c;

paperloom_request paperloom_warm_front_page(paperloom_client* client,
                                            const paperloom_warming_plan* plan,
                                            paperloom_warming_progress progress,
                                            paperloom_callback callback, void* user_data) {
  const auto request =
      Request::make(callback, user_data, client != nullptr ? client->requests : nullptr);
  auto known = readPlan(plan);
  if (client == nullptr || !known) {
    request->answer(
        {PAPERLOOM_INVALID_ARGUMENT, client == nullptr ? "there is no client" : known.error()});
    return 0;
  }
  const paperloom_request number = request->number();
  const auto warmings = client->warmings;
  auto made = std::make_unique<FrontPageWarmer>(client->content);
  FrontPageWarmer& warmer = *made;
  warmings->add(number, std::move(made));
  client->requests->setEnd(number, [warmings, number] { warmings->cancel(number); });
  warmer.start(
      std::move(*known),
      [request, progress, user_data](const WarmedDocument& document) {
        if (progress == nullptr || !request->isOpen()) return;
        const auto told = borrowed(document);
        progress(user_data, &told);
      },
      [request, warmings](const WarmingSum& sum) {
        request->answerHere(outcomeOfSum(sum));
        warmings->remove(request->number());
      });
  return number;
}

bool paperloom_answer_warming_sum(const paperloom_answer* answer, paperloom_warming_sum* sum) {
  if (answer == nullptr || !answer->outcome.warming) return false;
  const WarmingSum& known = *answer->outcome.warming;
  return writeStruct<paperloom_warming_sum>({.size = 0,
                                             .end = endOf(known.end),
                                             .fetched = known.fetched,
                                             .cached_already = known.cachedAlready,
                                             .failed = known.failed,
                                             .left_out = known.leftOut,
                                             .bytes = known.bytes,
                                             .lost = known.lost.size(),
                                             .reason = text(known.reason)},
                                            sum);
}

paperloom_text paperloom_answer_lost_at(const paperloom_answer* answer, size_t index) {
  const bool isThere =
      answer != nullptr && answer->outcome.warming && index < answer->outcome.warming->lost.size();
  return isThere ? text(answer->outcome.warming->lost[index]) : paperloom_text{};
}
