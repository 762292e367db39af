#include "paperloom/platform/JSON.h"

#include <simdjson.h>
#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <type_traits>
#include <utility>

#include "paperloom/platform/JSONListener.h"
#include "paperloom/platform/internal/json/NumbersOutOfRange.h"

namespace paperloom {
namespace dom = simdjson::dom;

using Handle = std::array<std::byte, 16>;
// The decoder's own types stay out of the public header: what it holds are their bytes.
static_assert(sizeof(dom::object) == sizeof(Handle));
static_assert(sizeof(dom::array::iterator) == sizeof(Handle));
static_assert(std::is_trivially_copyable_v<dom::object>);
static_assert(std::is_trivially_copyable_v<dom::array::iterator>);

namespace {

struct HeardDocument : dom::document {
  JSONListener* listener = nullptr;
};

// What the bytes of a handle are: the decoder's document, and a place in it.
struct Reference {
  const dom::document* document;
  std::size_t place;
};

Reference referenceOf(const Handle& handle) { return std::bit_cast<Reference>(handle); }

JSONListener* listenerOf(const Handle& handle) {
  return static_cast<const HeardDocument*>(referenceOf(handle).document)->listener;
}

using Kind = JSONListener::Kind;

std::optional<std::int64_t> wholeNumber(const dom::element& element) {
  std::int64_t whole = 0;
  if (element.get(whole) == simdjson::SUCCESS) return whole;
  // 2.0 and 2e0 are written otherwise and mean the same number.
  if (!element.is_double()) return std::nullopt;
  const double number = element.get_double().value_unsafe();
  constexpr double limit = 9223372036854775808.0;  // 2^63, the first value that does not fit
  if (!(number >= -limit && number < limit) || std::trunc(number) != number) return std::nullopt;
  return static_cast<std::int64_t>(number);
}

// How many elements the array has, if all are of the type T.
template <class T>
std::optional<std::size_t> countOf(const dom::array& array) {
  std::size_t count = 0;
  for (const dom::element element : array) {
    if (!element.is<T>()) return std::nullopt;
    ++count;
  }
  return count;
}

bool isOfKind(const dom::element& element, Kind kind) {
  dom::array array;
  switch (kind) {
    case Kind::text:
      return element.is_string();
    case Kind::boolean:
      return element.is_bool();
    case Kind::integer:
      return wholeNumber(element).has_value();
    case Kind::object:
      return element.is_object();
    case Kind::objects:
      return element.get(array) == simdjson::SUCCESS && countOf<dom::object>(array);
    case Kind::texts:
      return element.get(array) == simdjson::SUCCESS && countOf<std::string_view>(array);
    case Kind::any:
      break;
  }
  return true;
}

[[gnu::cold, gnu::noinline]] void tell(const Handle& handle, std::string_view key, Kind kind,
                                       const std::optional<dom::element>& found) {
  JSONListener& listener = *listenerOf(handle);
  listener.asked(referenceOf(handle).place, key);
  if (found && !isOfKind(*found, kind)) listener.mistyped(referenceOf(handle).place, key, kind);
}

// The value under `key`, of which one of the kind is going to be made; the first of several counts.
std::optional<dom::element> find(const Handle& handle, std::string_view key, Kind kind) {
  std::optional<dom::element> found;
  const auto object = std::bit_cast<dom::object>(handle);
  const auto end = object.end();
  for (auto field = object.begin(); field != end; ++field) {
    if (!field.key_equals(key)) continue;
    found = field.value();
    break;
  }
  if (listenerOf(handle) != nullptr) [[unlikely]]
    tell(handle, key, kind, found);
  return found;
}

// As find(), for a value of the type T.
template <class T>
std::optional<T> value(const Handle& handle, std::string_view key, Kind kind) {
  const auto element = find(handle, key, kind);
  T result;
  if (!element || element->get(result) != simdjson::SUCCESS) return std::nullopt;
  return result;
}

void addPlaces(const dom::element& element, std::vector<std::size_t>& places) {
  dom::object object;
  dom::array array;
  if (element.get(object) == simdjson::SUCCESS) {
    places.push_back(referenceOf(std::bit_cast<Handle>(object)).place);
    for (const auto& field : object) addPlaces(field.value, places);
  } else if (element.get(array) == simdjson::SUCCESS) {
    for (const dom::element each : array) addPlaces(each, places);
  }
}

}  // namespace

JSONListener* JSONObject::listener() const { return listenerOf(handle_); }

std::size_t JSONObject::place() const { return referenceOf(handle_).place; }

std::optional<std::string_view> JSONObject::stringView(std::string_view key) const {
  return value<std::string_view>(handle_, key, Kind::text);
}

std::optional<std::string> JSONObject::string(std::string_view key) const {
  const auto text = stringView(key);
  return text ? std::optional<std::string>(*text) : std::nullopt;
}

std::optional<bool> JSONObject::boolean(std::string_view key) const {
  return value<bool>(handle_, key, Kind::boolean);
}

std::optional<std::int64_t> JSONObject::integer(std::string_view key) const {
  const auto element = find(handle_, key, Kind::integer);
  return element ? wholeNumber(*element) : std::nullopt;
}

std::optional<JSONObject> JSONObject::object(std::string_view key) const {
  const auto nested = value<dom::object>(handle_, key, Kind::object);
  if (!nested) return std::nullopt;
  JSONObject result;
  result.handle_ = std::bit_cast<Handle>(*nested);
  return result;
}

// One element that is no object makes the whole list none: which elements may be dropped is for the
// records to say, and they can only drop objects.
std::optional<JSONObjectList> JSONObject::objects(std::string_view key) const {
  const auto array = value<dom::array>(handle_, key, Kind::objects);
  if (!array) return std::nullopt;
  const auto size = countOf<dom::object>(*array);
  if (!size) return std::nullopt;
  JSONObjectList list;
  list.size_ = *size;
  list.begin_.current_.handle_ = std::bit_cast<Handle>(array->begin());
  list.end_.current_.handle_ = std::bit_cast<Handle>(array->end());
  return list;
}

// The decoder's handle to an object and its iterator at that object are the same reference.
JSONObjectList::Iterator& JSONObjectList::Iterator::operator++() {
  auto iterator = std::bit_cast<dom::array::iterator>(current_.handle_);
  ++iterator;
  current_.handle_ = std::bit_cast<Handle>(iterator);
  return *this;
}

std::optional<std::vector<std::string>> JSONObject::strings(std::string_view key) const {
  const auto array = value<dom::array>(handle_, key, Kind::texts);
  if (!array) return std::nullopt;
  std::vector<std::string> result;
  // The decoder caps the size that it tells, and a list need not be as long as it claims.
  result.reserve(std::min<std::size_t>(array->size(), 64));
  for (const dom::element element : *array) {
    std::string_view text;
    if (element.get(text) != simdjson::SUCCESS) return std::nullopt;
    result.emplace_back(text);
  }
  return result;
}

std::string JSONObject::debugDescription(std::string_view key) const {
  const auto element = find(handle_, key, Kind::any);
  return element ? simdjson::minify(*element) : "nil";
}

namespace {

// What decoding needs besides the text stays with its thread for the next document, up to a text
// of this size: most documents are smaller, and memory fresh from the system costs more time than
// the decoding. A thread keeps up to about three times this size, since most of what the decoder
// reserves is never touched.
constexpr std::size_t keptCapacity = std::size_t{2} << 20U;

struct Workspace {
  dom::parser parser;
  dom::document document;  // its buffers, between two documents

  ~Workspace();
  // Null while the thread ends.
  static Workspace* ofThread();
};

thread_local bool threadEnds = false;

Workspace::~Workspace() { threadEnds = true; }

Workspace* Workspace::ofThread() {
  if (threadEnds) return nullptr;
  thread_local Workspace workspace;
  return &workspace;
}

// Fills large buffers from fewer, larger pages where the system has them.
void preferLargePages(const void* buffer, std::size_t size) {
  constexpr std::uintptr_t page = std::uintptr_t{2} << 20U;
  const auto start = (reinterpret_cast<std::uintptr_t>(buffer) + page - 1) / page * page;
  const auto end = (reinterpret_cast<std::uintptr_t>(buffer) + size) / page * page;
  if (start < end) madvise(reinterpret_cast<void*>(start), end - start, MADV_HUGEPAGE);
}

// Decodes a text too large for the thread's workspace, with memory that is given back at once.
simdjson::error_code decodeLarge(dom::document& document, std::string_view bytes, bool padded) {
  if (bytes.size() > simdjson::SIMDJSON_MAXSIZE_BYTES) return simdjson::CAPACITY;
  dom::parser parser;
  if (const auto failure = document.allocate(bytes.size())) return failure;
  if (const auto failure = parser.allocate(bytes.size())) return failure;
  std::optional<simdjson::padded_string> copy;
  if (!padded) {
    copy.emplace(bytes.size());
    if (copy->data() == nullptr) return simdjson::MEMALLOC;
  }
  if (constexpr std::size_t large = std::size_t{16} << 20U; bytes.size() > large) {
    preferLargePages(document.tape.get(), bytes.size() * sizeof(std::uint64_t));
    preferLargePages(document.string_buf.get(), bytes.size());
    preferLargePages(parser.implementation->structural_indexes.get(),
                     bytes.size() * sizeof(std::uint32_t));
    if (copy) preferLargePages(copy->data(), bytes.size());
  }
  if (copy) std::memcpy(copy->data(), bytes.data(), bytes.size());
  const char* const text = copy ? copy->data() : bytes.data();
  return parser.parse_into_document(document, text, bytes.size(), false).error();
}

simdjson::error_code decodeOnce(dom::document& document, std::string_view bytes, bool padded) {
  Workspace* const workspace = Workspace::ofThread();
  if (workspace == nullptr || bytes.size() > keptCapacity) {
    return decodeLarge(document, bytes, padded);
  }
  document = std::exchange(workspace->document, dom::document());
  return workspace->parser.parse_into_document(document, bytes.data(), bytes.size(), !padded)
      .error();
}

// One number that the decoder cannot hold must not decide over the document around it.
simdjson::error_code decode(dom::document& document, std::string_view bytes, bool padded) {
  const auto failure = decodeOnce(document, bytes, padded);
  if (failure != simdjson::NUMBER_ERROR) return failure;
  // Only then is the text gone through a second time.
  const auto copy = internal::nullingNumbersOutOfRange(bytes, simdjson::SIMDJSON_PADDING);
  return copy.empty() ? failure : decodeOnce(document, copy, true);
}

}  // namespace

struct JSONDocument::Storage {
  Storage() = default;
  Storage(const Storage&) = delete;
  Storage& operator=(const Storage&) = delete;
  ~Storage() {
    // A document may die on another thread than the one that decoded it: its buffers go there.
    Workspace* const workspace = Workspace::ofThread();
    if (workspace != nullptr && document.capacity() <= keptCapacity) {
      workspace->document = std::move(document);
    }
  }

  HeardDocument document;
};

JSONDocument::JSONDocument(std::unique_ptr<Storage> storage) : storage_(std::move(storage)) {}
JSONDocument::JSONDocument(JSONDocument&&) noexcept = default;
JSONDocument& JSONDocument::operator=(JSONDocument&&) noexcept = default;
JSONDocument::~JSONDocument() = default;

tl::expected<JSONDocument, JSONError> JSONDocument::parse(std::string_view bytes) {
  return parse(bytes, false, nullptr);
}

tl::expected<JSONDocument, JSONError> JSONDocument::parse(const Data& data) {
  return parse(data, nullptr);
}

tl::expected<JSONDocument, JSONError> JSONDocument::parse(const Data& data,
                                                          JSONListener* listener) {
  return parse(data.view(), data.spareCapacity() >= simdjson::SIMDJSON_PADDING, listener);
}

tl::expected<JSONDocument, JSONError> JSONDocument::parse(std::string_view bytes, bool padded,
                                                          JSONListener* listener) {
  // RFC 8259 section 8.1 lets a reader ignore it.
  constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
  if (bytes.starts_with(byteOrderMark)) bytes.remove_prefix(byteOrderMark.size());
  if (bytes.data() == nullptr) bytes = "";  // the decoder copies what it is given, if only nothing
  auto storage = std::make_unique<Storage>();
  if (const auto failure = decode(storage->document, bytes, padded)) {
    return tl::make_unexpected(JSONError{simdjson::error_message(failure)});
  }
  storage->document.listener = listener;
  return JSONDocument(std::move(storage));
}

std::optional<JSONObject> JSONDocument::object() const {
  dom::object top;
  if (!storage_ || storage_->document.root().get(top) != simdjson::SUCCESS) return std::nullopt;
  JSONObject result;
  result.handle_ = std::bit_cast<Handle>(top);
  return result;
}

std::vector<std::size_t> JSONDocument::objectPlaces() const {
  std::vector<std::size_t> places;
  if (storage_) addPlaces(storage_->document.root(), places);
  return places;
}

}  // namespace paperloom
