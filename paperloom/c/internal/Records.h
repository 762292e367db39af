#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>

#include "paperloom/c/internal/Text.h"
#include "paperloom/c/paperloom.h"
#include "paperloom/identity/RegistrationResponseModel.h"
#include "paperloom/model/AppMetadata.h"
#include "paperloom/model/Article.h"
#include "paperloom/model/Stream.h"
#include "paperloom/platform/Date.h"
#include "paperloom/platform/Image.h"

namespace paperloom::c {

// A handle of a document or of a part of one is the address of its record under another name: it
// costs nothing, and its record's owner owns it.
template <class Handle>
struct RecordOf;
template <class Handle>
using Record = typename RecordOf<Handle>::Type;

#define PAPERLOOM_RECORD(Handle, Class) \
  template <>                           \
  struct RecordOf<Handle> {             \
    using Type = Class;                 \
  }
PAPERLOOM_RECORD(paperloom_app_metadata, AppMetadataProtocol);
PAPERLOOM_RECORD(paperloom_global_metadata, GlobalMetadataProtocol);
PAPERLOOM_RECORD(paperloom_section_metadata, SectionMetadataProtocol);
PAPERLOOM_RECORD(paperloom_fallback_cards, FallbackCardProtocol);
PAPERLOOM_RECORD(paperloom_stream, StreamProtocol);
PAPERLOOM_RECORD(paperloom_section, SectionProtocol);
PAPERLOOM_RECORD(paperloom_card, ArticleHeaderProtocol);
PAPERLOOM_RECORD(paperloom_author, Author);
PAPERLOOM_RECORD(paperloom_asset, Asset);
PAPERLOOM_RECORD(paperloom_rendition, Asset::Rendition);
PAPERLOOM_RECORD(paperloom_article, ArticleProtocol);
PAPERLOOM_RECORD(paperloom_block, ArticleContentItem);
PAPERLOOM_RECORD(paperloom_sponsor, SponsorProtocol);
PAPERLOOM_RECORD(paperloom_registration_wall, RegistrationWallProtocol);
PAPERLOOM_RECORD(paperloom_image, Image);
PAPERLOOM_RECORD(paperloom_registration, RegistrationResponseModelProtocol);
#undef PAPERLOOM_RECORD

template <class Handle>
const Handle* handle(const Record<Handle>* record) {
  return reinterpret_cast<const Handle*>(record);
}
template <class Handle>
const Record<Handle>& record(const Handle* handle) {
  return *reinterpret_cast<const Record<Handle>*>(handle);
}

// Reads of the record behind a handle: `read` is one of its members, or a function of it that
// returns a reference into it. Each gives what stands for nothing when there is no handle.
template <class Handle, class Read>
paperloom_text textOf(const Handle* handle, Read read) {
  return handle != nullptr ? text(std::invoke(read, record(handle))) : paperloom_text{};
}
template <class Handle, class Read>
auto valueOf(const Handle* handle, Read read) {
  using Value = std::decay_t<decltype(std::invoke(read, record(handle)))>;
  return handle != nullptr ? std::invoke(read, record(handle)) : Value{};
}
template <class Handle, class Read>
std::size_t countOf(const Handle* handle, Read read) {
  return handle != nullptr ? std::invoke(read, record(handle)).size() : 0;
}

// Writes a number, a time or a span of time that is there to where the host wants it.
inline std::int64_t number(std::int64_t value) { return value; }
inline std::int64_t number(std::chrono::seconds span) { return span.count(); }
inline std::int64_t number(Date date) { return date.time_since_epoch().count(); }
template <class Value>
bool give(const std::optional<Value>& value, std::int64_t* place) {
  if (!value || place == nullptr) return false;
  *place = number(*value);
  return true;
}

template <class Part>
const Part* addressOf(const std::shared_ptr<const Part>& part) {
  return part.get();
}
template <class Part>
const Part* addressOf(const std::optional<Part>& part) {
  return part ? &*part : nullptr;
}
template <class Part>
const Part* addressOf(const Part& part) {
  return &part;
}

template <class Part, class Handle, class Read>
const Part* partOf(const Handle* whole, Read read) {
  return whole != nullptr ? handle<Part>(addressOf(std::invoke(read, record(whole)))) : nullptr;
}
template <class Part, class Handle, class Read>
const Part* partAt(const Handle* whole, Read read, std::size_t index) {
  if (index >= countOf(whole, read)) return nullptr;
  return handle<Part>(addressOf(std::invoke(read, record(whole))[index]));
}
template <class Handle, class Read>
paperloom_text textAt(const Handle* handle, Read read, std::size_t index) {
  return index < countOf(handle, read) ? text(std::invoke(read, record(handle))[index])
                                       : paperloom_text{};
}

}  // namespace paperloom::c
