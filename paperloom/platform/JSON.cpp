#include "paperloom/platform/JSON.h"

#include <simdjson.h>

#include <bit>
#include <cmath>
#include <type_traits>
#include <utility>

namespace paperloom {
namespace dom = simdjson::dom;

using Handle = std::array<std::byte, 16>;
static_assert(sizeof(dom::object) == sizeof(Handle));
static_assert(std::is_trivially_copyable_v<dom::object>);

namespace {

dom::object objectOf(const Handle& handle) { return std::bit_cast<dom::object>(handle); }

// The value under `key` when it has the type T; the first of several values counts.
template <class T>
std::optional<T> value(const Handle& handle, std::string_view key) {
  T result;
  if (objectOf(handle).at_key(key).get(result) != simdjson::SUCCESS) return std::nullopt;
  return result;
}

// A spent parser keeps its working memory for the thread's next document, up to this size: most
// documents are smaller, and a rare large one should not stay resident for ever.
constexpr std::size_t keptCapacity = std::size_t{4} << 20U;

}  // namespace

std::optional<std::string_view> JSONObject::stringView(std::string_view key) const {
  return value<std::string_view>(handle_, key);
}

std::optional<std::string> JSONObject::string(std::string_view key) const {
  const auto text = stringView(key);
  return text ? std::optional<std::string>(*text) : std::nullopt;
}

std::optional<bool> JSONObject::boolean(std::string_view key) const {
  return value<bool>(handle_, key);
}

std::optional<std::int64_t> JSONObject::integer(std::string_view key) const {
  dom::element element;
  if (objectOf(handle_).at_key(key).get(element) != simdjson::SUCCESS) return std::nullopt;
  std::int64_t whole = 0;
  if (element.get(whole) == simdjson::SUCCESS) return whole;
  if (!element.is_double()) return std::nullopt;
  const double number = element.get_double().value_unsafe();
  constexpr double limit = 9223372036854775808.0;  // 2^63, the first value that does not fit
  if (!(number >= -limit && number < limit) || std::trunc(number) != number) return std::nullopt;
  return static_cast<std::int64_t>(number);
}

std::optional<JSONObject> JSONObject::object(std::string_view key) const {
  const auto nested = value<dom::object>(handle_, key);
  if (!nested) return std::nullopt;
  JSONObject result;
  result.handle_ = std::bit_cast<Handle>(*nested);
  return result;
}

std::optional<std::vector<JSONObject>> JSONObject::objects(std::string_view key) const {
  const auto array = value<dom::array>(handle_, key);
  if (!array) return std::nullopt;
  std::vector<JSONObject> result;
  result.reserve(array->size());
  for (const dom::element element : *array) {
    dom::object nested;
    if (element.get(nested) != simdjson::SUCCESS) return std::nullopt;
    JSONObject item;
    item.handle_ = std::bit_cast<Handle>(nested);
    result.push_back(item);
  }
  return result;
}

std::optional<std::vector<std::string>> JSONObject::strings(std::string_view key) const {
  const auto array = value<dom::array>(handle_, key);
  if (!array) return std::nullopt;
  std::vector<std::string> result;
  result.reserve(array->size());
  for (const dom::element element : *array) {
    std::string_view text;
    if (element.get(text) != simdjson::SUCCESS) return std::nullopt;
    result.emplace_back(text);
  }
  return result;
}

std::string JSONObject::debugDescription(std::string_view key) const {
  dom::element element;
  if (objectOf(handle_).at_key(key).get(element) != simdjson::SUCCESS) return "nil";
  return simdjson::minify(element);
}

struct JSONDocument::Storage {
  dom::document document;
};

JSONDocument::JSONDocument(std::unique_ptr<Storage> storage) : storage_(std::move(storage)) {}
JSONDocument::JSONDocument(JSONDocument&&) noexcept = default;
JSONDocument& JSONDocument::operator=(JSONDocument&&) noexcept = default;
JSONDocument::~JSONDocument() = default;

tl::expected<JSONDocument, JSONError> JSONDocument::parse(std::string_view bytes) {
  constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
  if (bytes.starts_with(byteOrderMark)) bytes.remove_prefix(byteOrderMark.size());

  thread_local dom::parser parser;
  auto storage = std::make_unique<Storage>();
  const simdjson::error_code failure =
      parser.parse_into_document(storage->document, bytes.data(), bytes.size()).error();
  if (parser.capacity() > keptCapacity) parser = dom::parser();
  if (failure != simdjson::SUCCESS) {
    return tl::make_unexpected(JSONError{simdjson::error_message(failure)});
  }
  return JSONDocument(std::move(storage));
}

std::optional<JSONObject> JSONDocument::object() const {
  dom::object top;
  if (storage_->document.root().get(top) != simdjson::SUCCESS) return std::nullopt;
  JSONObject result;
  result.handle_ = std::bit_cast<Handle>(top);
  return result;
}

}  // namespace paperloom
