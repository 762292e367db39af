#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "apps/reader/Host.h"
#include "apps/reader/Progress.h"
#include "paperloom/model/Stream.h"
#include "paperloom/network/FrontPageWarmer.h"

namespace paperloom::reader {

// Fetches URLs into the cache, each once, and reports each: a progress bar or a line an item, or
// one JSON object an item.
class Warming {
 public:
  Warming(Host& host, bool force);
  Warming(const Warming&) = delete;
  Warming& operator=(const Warming&) = delete;

  // What is fetched; the addresses in documents become what the host makes of them.
  WarmingPlan& plan() { return plan_; }

  // Waits for the last one, and prints the sum. Gives what went wrong, in a clause: that documents
  // could not be fetched, that the disk does not take them, or why a set is not kept; empty when
  // all is well. Prints the sum so far also when the wait is interrupted.
  std::string finish();

 private:
  void take(const WarmedDocument& document);
  std::string printSum();
  std::string printSet();

  Host& host_;
  WarmingPlan plan_;
  std::int64_t bytes_ = 0;  // of all bodies, those that were there already too
  std::optional<Progress> progress_;
  std::optional<WarmingSum> sum_;
  FrontPageWarmer warmer_;
  std::shared_ptr<Warming*> self_;
};

}  // namespace paperloom::reader
