#include "paperloom/platform/NearestName.h"

#include <algorithm>

namespace paperloom {
namespace {

// How many characters must be typed, left out, changed or exchanged with their neighbour.
std::size_t distance(std::string_view from, std::string_view to) {
  std::vector<std::vector<std::size_t>> steps(from.size() + 1,
                                              std::vector<std::size_t>(to.size() + 1));
  for (std::size_t i = 0; i <= from.size(); ++i) {
    for (std::size_t j = 0; j <= to.size(); ++j) {
      if (i == 0 || j == 0) {
        steps[i][j] = i + j;
        continue;
      }
      const std::size_t change = from[i - 1] == to[j - 1] ? 0 : 1;
      steps[i][j] =
          std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, steps[i - 1][j - 1] + change});
      const bool exchanged = i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1];
      if (exchanged) steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
    }
  }
  return steps[from.size()][to.size()];
}

}  // namespace

std::string nearestName(std::string_view word, const std::vector<std::string>& names) {
  constexpr std::size_t longest = 40;
  if (word.size() > longest) return "";
  std::string best;
  std::size_t least = 1 + word.size() / 4;
  for (const std::string& name : names) {
    if (std::max(name.size(), word.size()) - std::min(name.size(), word.size()) > least) continue;
    const std::size_t away = distance(word, name);
    if (away > least || (away == least && !best.empty()) || away >= name.size()) continue;
    best = name;
    least = away;
  }
  return best;
}

}  // namespace paperloom
