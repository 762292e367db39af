#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tl/expected.hpp>
#include <vector>

#include "paperloom/platform/Data.h"
#include "paperloom/platform/Export.h"

namespace paperloom {

// Why bytes are no JSON text: the decoder's own words.
struct JSONError {
  std::string localizedDescription;
};

class JSONListener;
class JSONObjectList;

// A read-only view of one JSON object inside a JSONDocument; cheap to copy, valid only while the
// document lives. The typed reads never convert: a value counts only when it has exactly the asked
// type, and nothing is returned for a missing key as for a value of another type. Of duplicate
// keys the first counts.
class PAPERLOOM_EXPORT JSONObject {
 public:
  std::optional<std::string> string(std::string_view key) const;
  // As string(), without the copy; valid while the document lives.
  std::optional<std::string_view> stringView(std::string_view key) const;
  std::optional<bool> boolean(std::string_view key) const;
  // A JSON number with an integral value that fits (640 and 640.0 do, 640.5 and 1e30 do not).
  std::optional<std::int64_t> integer(std::string_view key) const;
  std::optional<JSONObject> object(std::string_view key) const;
  // An array whose every element is an object.
  std::optional<JSONObjectList> objects(std::string_view key) const;
  // An array whose every element is a text.
  std::optional<std::vector<std::string>> strings(std::string_view key) const;
  // The value under `key` as compact JSON text, whatever its type; "nil" when the key is absent.
  std::string debugDescription(std::string_view key) const;

  // Who hears what is made of the document; null for most documents.
  JSONListener* listener() const;
  // A number that no other object of the document has; it grows in the order of the text.
  std::size_t place() const;

 private:
  friend class JSONDocument;
  friend class JSONObjectList;
  JSONObject() = default;

  // The decoder's own handle to the object, kept opaque so that no decoder header is public.
  alignas(std::max_align_t) std::array<std::byte, 16> handle_{};
};

// A read-only view of an array of objects, as cheap and as short-lived as that of an object.
class PAPERLOOM_EXPORT JSONObjectList {
 public:
  class PAPERLOOM_EXPORT Iterator {
   public:
    using value_type = JSONObject;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    const JSONObject& operator*() const { return current_; }
    const JSONObject* operator->() const { return &current_; }
    Iterator& operator++();
    Iterator operator++(int) {
      Iterator before = *this;
      ++*this;
      return before;
    }
    bool operator==(const Iterator& other) const {
      return current_.handle_ == other.current_.handle_;
    }

   private:
    friend class JSONObject;

    JSONObject current_;
  };

  // An empty list.
  JSONObjectList() = default;

  Iterator begin() const { return begin_; }
  Iterator end() const { return end_; }
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

 private:
  friend class JSONObject;

  Iterator begin_;
  Iterator end_;
  std::size_t size_ = 0;
};

// A decoded JSON text (RFC 8259); any value may stand at the top level. A leading UTF-8 byte order
// mark is skipped. Whole numbers outside 64 bits and numbers beyond the range of a double count as
// null. Nesting of 1,024 levels or more, invalid UTF-8, escapes of half a surrogate pair and texts
// of 4 GB or more are errors, wherever they stand. Decoding takes linear time and beside the text
// about twice its size in memory; for a text of nothing but one-digit numbers it is thirteen times.
// A text with numbers out of range is copied and decoded twice.
class PAPERLOOM_EXPORT JSONDocument {
 public:
  [[nodiscard]] static tl::expected<JSONDocument, JSONError> parse(std::string_view bytes);
  [[nodiscard]] static tl::expected<JSONDocument, JSONError> parse(const Data& data);
  // The same for a `listener`, which lives as long as the document; null is nobody.
  [[nodiscard]] static tl::expected<JSONDocument, JSONError> parse(const Data& data,
                                                                   JSONListener* listener);

  JSONDocument(JSONDocument&&) noexcept;
  JSONDocument& operator=(JSONDocument&&) noexcept;
  ~JSONDocument();

  // The top-level value if it is an object.
  std::optional<JSONObject> object() const;
  // The places of all its objects, in the order of the text.
  std::vector<std::size_t> objectPlaces() const;

 private:
  struct Storage;
  explicit JSONDocument(std::unique_ptr<Storage> storage);
  static tl::expected<JSONDocument, JSONError> parse(std::string_view bytes, bool padded,
                                                     JSONListener* listener);

  std::unique_ptr<Storage> storage_;
};

}  // namespace paperloom
