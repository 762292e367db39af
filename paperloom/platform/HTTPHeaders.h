#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "paperloom/platform/Export.h"

namespace paperloom {

// Header fields in the order they were given; repeated names are kept apart. Names are compared
// without regard to ASCII case (RFC 9110 section 5.1). A plain value: on one thread at a time. The
// texts that it hands out live until the headers change.
class PAPERLOOM_EXPORT HTTPHeaders {
 public:
  using Field = std::pair<std::string, std::string>;

  HTTPHeaders() = default;
  HTTPHeaders(std::initializer_list<Field> fields) : fields_(fields) {}

  // Appends a field, whether or not there is one of that name.
  void add(std::string name, std::string value);
  // Replaces every field of that name by one.
  void set(std::string name, std::string value);
  // Takes every field of that name away.
  void remove(std::string_view name);

  // Whether there is a field of that name.
  bool contains(std::string_view name) const;
  // The first value under the name.
  std::optional<std::string_view> first(std::string_view name) const;
  // The values under the name, in their order.
  std::vector<std::string_view> all(std::string_view name) const;
  // All values under the name joined with ", " (RFC 9110 section 5.3); nothing when there is none.
  std::optional<std::string> combined(std::string_view name) const;

  std::size_t size() const { return fields_.size(); }
  bool empty() const { return fields_.empty(); }
  auto begin() const { return fields_.begin(); }
  auto end() const { return fields_.end(); }

  friend bool operator==(const HTTPHeaders&, const HTTPHeaders&) = default;

 private:
  std::vector<Field> fields_;
};

// Whether two texts are equal without regard to ASCII case.
PAPERLOOM_EXPORT bool equalsIgnoringCase(std::string_view a, std::string_view b);

}  // namespace paperloom
