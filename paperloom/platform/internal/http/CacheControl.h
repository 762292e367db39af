#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "paperloom/platform/HTTPHeaders.h"

namespace paperloom::internal {

// The directives of a message's Cache-Control fields (RFC 9111 section 5.2).
class CacheControl {
 public:
  explicit CacheControl(const HTTPHeaders& headers);

  // Whether there was any directive at all.
  bool empty() const { return directives_.empty(); }
  bool has(std::string_view name) const;

  // The seconds a directive names. Malformed values, and values of one directive that contradict
  // each other, are not `value` but `invalid` (section 4.2.1).
  struct Seconds {
    bool given = false;
    bool withoutArgument = false;
    std::optional<std::chrono::seconds> value;

    bool invalid() const { return given && !value; }
  };
  Seconds seconds(std::string_view name) const;

  // The field names in the qualified form of a directive, as in no-cache="set-cookie" (section
  // 5.2.2.4). Nothing when the directive also stands without them, or with none.
  std::vector<std::string> fieldNames(std::string_view name) const;
  // Whether the directive is there and not in the qualified form alone.
  bool hasUnqualified(std::string_view name) const;

 private:
  struct Directive {
    std::string name;
    std::optional<std::string> argument;
    bool quoted = false;
    bool malformed = false;
  };
  static Directive parse(std::string_view member);

  std::vector<Directive> directives_;
};

}  // namespace paperloom::internal
