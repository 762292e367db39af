#include "paperloom/testing/FaultPlan.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace paperloom::sample {
namespace {

constexpr std::string_view separators = ", \t\r\n";

template <class Integer>
std::optional<Integer> readInteger(std::string_view text, Integer least, Integer greatest) {
  Integer value{};
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc{} || stop != end || value < least || value > greatest) return std::nullopt;
  return value;
}

std::optional<double> readRate(std::string_view text) {
  // Digits and one point only: strtod alone would take "nan", "0x1" and the locale's comma.
  if (text.empty() || text.find_first_not_of("0123456789.") != std::string_view::npos) {
    return std::nullopt;
  }
  double value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc{} || stop != end || !(value >= 0 && value <= 1)) return std::nullopt;
  return value;
}

struct PathAndNumber {
  std::string path;
  std::uint64_t number = 0;
};

std::optional<PathAndNumber> readPathAndNumber(std::string_view text, std::uint64_t least,
                                               std::uint64_t greatest) {
  const auto colon = text.rfind(':');
  if (colon == std::string_view::npos || colon == 0 || text[0] != '/') return std::nullopt;
  const auto number = readInteger<std::uint64_t>(text.substr(colon + 1), least, greatest);
  if (!number) return std::nullopt;
  return PathAndNumber{std::string(text.substr(0, colon)), *number};
}

bool applyFailures(FaultPlan& plan, std::string_view value) {
  const auto at = value.find('@');
  const auto rate = readRate(value.substr(0, at));
  if (!rate) return false;
  plan.failureRate = *rate;
  if (at == std::string_view::npos) return true;
  const auto seed = readInteger<std::uint64_t>(value.substr(at + 1), 0, UINT64_MAX);
  if (seed) plan.seed = *seed;
  return seed.has_value();
}

bool applySetting(FaultPlan& plan, std::string_view key, std::string_view value) {
  if (key == "latency") {
    const auto milliseconds = readInteger<std::int64_t>(value, 0, 3'600'000);
    if (milliseconds) plan.latency = std::chrono::milliseconds(*milliseconds);
    return milliseconds.has_value();
  }
  if (key == "status") {
    auto rule = readPathAndNumber(value, 200, 599);
    if (rule) plan.statuses.push_back({std::move(rule->path), static_cast<int>(rule->number)});
    return rule.has_value();
  }
  if (key == "failures") return applyFailures(plan, value);
  if (key == "cut") {
    auto rule = readPathAndNumber(value, 0, UINT32_MAX);
    if (rule) plan.cuts.push_back({std::move(rule->path), static_cast<std::size_t>(rule->number)});
    return rule.has_value();
  }
  if (key == "silent") {
    if (value.empty() || value[0] != '/') return false;
    plan.silent.emplace_back(value);
    return true;
  }
  if (key == "gone") {
    const auto requests = readInteger<std::uint64_t>(value, 0, UINT64_MAX);
    if (requests) plan.goneAfter = *requests;
    return requests.has_value();
  }
  return false;
}

// The finaliser of SplitMix64: spreads consecutive numbers evenly over 64 bits.
std::uint64_t mix(std::uint64_t value) {
  value += 0x9e3779b97f4a7c15U;
  value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9U;
  value = (value ^ (value >> 27)) * 0x94d049bb133111ebU;
  return value ^ (value >> 31);
}

}  // namespace

tl::expected<FaultPlan, std::string> FaultPlan::parse(std::string_view text) {
  FaultPlan plan;
  while (true) {
    const auto start = text.find_first_not_of(separators);
    if (start == std::string_view::npos) return plan;
    text.remove_prefix(start);
    const auto setting = text.substr(0, text.find_first_of(separators));
    text.remove_prefix(setting.size());

    const auto equals = setting.find('=');
    if (equals == std::string_view::npos ||
        !applySetting(plan, setting.substr(0, equals), setting.substr(equals + 1))) {
      return tl::make_unexpected("cannot read the fault \"" + std::string(setting) +
                                 "\" (known: latency=MS, status=PATH:CODE, failures=RATE[@SEED], "
                                 "cut=PATH:BYTES, silent=PATH, gone=REQUESTS)");
    }
  }
}

bool FaultPlan::fails(std::uint64_t index) const {
  if (failureRate <= 0) return false;
  const auto draw = static_cast<double>(mix(mix(seed) + index) >> 11);
  return draw < std::ldexp(failureRate, 53);
}

}  // namespace paperloom::sample
