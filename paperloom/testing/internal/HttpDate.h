#pragma once

#include <ctime>
#include <optional>
#include <string>

namespace paperloom::sample {

// The preferred date format of RFC 9110, section 5.6.7, whatever the process's locale is.
std::string httpDate(std::time_t time);
std::optional<std::time_t> readHttpDate(const std::string& text);

}  // namespace paperloom::sample
