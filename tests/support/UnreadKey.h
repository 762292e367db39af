#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace paperloom::test {

// JSON values of every kind, those that decoders stumble over among them.
inline constexpr std::string_view anyValues[] = {
    "null",
    "-0",
    "1E-400",
    "0.1e+0010",
    "1e400",
    "-1E+309",
    "123456789012345678901",
    "-9223372036854775809",
    R"("\ud83d\ude00\u0000\"1e400,\\")",
    "[[[[[[]]]],[[{}]]],true,\"\"]",
    R"({"a":1,"a":[1e999,{"uid":null}],"":false})",
    "99999999999999999999.99999999999999999999e-20",
};

// The JSON text `document` with `member` put first into each of its objects in turn: one text an
// object.
inline std::vector<std::string> withMember(std::string_view document, const std::string& member) {
  std::vector<std::string> texts;
  bool inString = false;
  for (std::size_t at = 0; at < document.size(); ++at) {
    if (inString && document[at] == '\\') {
      ++at;
    } else if (document[at] == '"') {
      inString = !inString;
    } else if (document[at] == '{' && !inString) {
      const std::size_t next = document.find_first_not_of(" \t\r\n", at + 1);
      const bool isEmpty = next == document.npos || document[next] == '}';
      texts.emplace_back(document).insert(at + 1, isEmpty ? member : member + ",");
    }
  }
  return texts;
}

}  // namespace paperloom::test
