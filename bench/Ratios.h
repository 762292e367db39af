#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace paperloom::bench {

// Prints the runs without colour, which would run into the lines below them, and keeps the best
// time of each, in seconds an iteration.
class BestTimes : public benchmark::ConsoleReporter {
 public:
  // Processor time leaves other processes out, and whatever the work waits for.
  enum class Clock { real, processor };
  explicit BestTimes(Clock clock = Clock::real) : ConsoleReporter(OO_Tabular), clock_(clock) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      const double total =
          clock_ == Clock::real ? run.real_accumulated_time : run.cpu_accumulated_time;
      const double seconds = total / static_cast<double>(run.iterations);
      const auto entry = best_.emplace(run.benchmark_name(), seconds).first;
      entry->second = std::min(entry->second, seconds);
    }
    ConsoleReporter::ReportRuns(runs);
  }

  // Zero for a benchmark that was filtered out.
  double of(const std::string& name) const {
    double best = 0;
    for (const auto& [full, seconds] : best_) {
      if (full == name || full.starts_with(name + "/")) best = seconds;
    }
    return best;
  }

 private:
  Clock clock_;
  std::map<std::string, double> best_;
};

// A line of the table that scripts/bench makes: what was measured, the figure, and what it should
// be, "for information" where nothing is wanted.
inline void printRatio(const char* name, double value, const char* wanted) {
  std::printf("ratio %s %.3f - - (want %s)\n", name, value, wanted);
}

// Of two times in seconds, which the table shows as well.
inline void printRatio(const char* name, double ours, double theirs, const char* wanted) {
  constexpr double microseconds = 1e6;
  std::printf("ratio %s %.3f %.1f %.1f (want %s)\n", name, ours / theirs, ours * microseconds,
              theirs * microseconds, wanted);
}

}  // namespace paperloom::bench
