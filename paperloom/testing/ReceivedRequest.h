#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace paperloom::sample {

// One request as it arrived at the sample service.
struct ReceivedRequest {
  std::string method;
  std::string target;  // path and query as sent, still percent-encoded
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;

  // The first field of that name, whatever its letter case.
  std::optional<std::string> header(std::string_view name) const;
};

}  // namespace paperloom::sample
