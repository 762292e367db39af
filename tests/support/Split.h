#pragma once

#include <sstream>
#include <string>
#include <vector>

namespace paperloom::test {

// The parts of a line of cases such as "a|b c|d".
inline std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, '|');) parts.push_back(part);
  return parts;
}

}  // namespace paperloom::test
