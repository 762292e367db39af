#include "paperloom/platform/internal/offline/OfflineSetFile.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "paperloom/platform/JSON.h"
#include "paperloom/platform/internal/base/Checksum.h"

namespace paperloom::internal {
namespace {

using JSON = nlohmann::ordered_json;

constexpr std::string_view headMark = "plset 1\n";
constexpr std::string_view tailMark = "plset 1.";
constexpr std::uint64_t indexSeed = 1;
constexpr std::uint64_t mostAtOnce = std::uint64_t{1} << 30;
constexpr std::array<std::string_view, 3> kinds = {"document", "article", "frontPage"};

void append(std::string& to, std::uint64_t number) {
  for (int i = 0; i < 8; ++i) to += static_cast<char>(number >> (8 * i));
}

std::uint64_t numberAt(std::string_view bytes, std::size_t place) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < 8; ++i) {
    number |= std::uint64_t{static_cast<unsigned char>(bytes[place + i])} << (8 * i);
  }
  return number;
}

std::int64_t milliseconds(Date date) { return date.time_since_epoch().count(); }

std::optional<Date> dateOf(const JSONObject& object, std::string_view key) {
  const auto number = object.integer(key);
  return number ? std::optional(Date(std::chrono::milliseconds(*number))) : std::nullopt;
}

std::optional<URL> urlOf(const JSONObject& object, std::string_view key) {
  const auto text = object.string(key);
  return text ? URL::parse(*text) : std::nullopt;
}

JSON toJSON(const OfflineSetEntry& entry) {
  const HTTPURLResponse& response = entry.head.response;
  JSON fields = JSON::array();
  for (const auto& [name, value] : response.headers) {
    fields.push_back(name);
    fields.push_back(value);
  }
  return {{"url", entry.url.absoluteString()},
          {"finalURL", response.url.absoluteString()},
          {"status", response.statusCode},
          {"fields", std::move(fields)},
          {"requestTime", milliseconds(entry.head.requestTime)},
          {"responseTime", milliseconds(entry.head.responseTime)},
          {"offset", entry.offset},
          {"size", entry.size},
          {"checksum", static_cast<std::int64_t>(entry.checksum)}};
}

std::optional<OfflineSetEntry> entryFrom(const JSONObject& object, std::uint64_t end) {
  auto url = urlOf(object, "url");
  auto finalURL = urlOf(object, "finalURL");
  const auto status = object.integer("status");
  const auto fields = object.strings("fields");
  const auto requestTime = dateOf(object, "requestTime");
  const auto responseTime = dateOf(object, "responseTime");
  const auto offset = object.integer("offset");
  const auto size = object.integer("size");
  const auto checksum = object.integer("checksum");
  if (!url || !finalURL || !status || !fields || fields->size() % 2 != 0 || !requestTime ||
      !responseTime || !offset || !size || !checksum || *status < 100 || *status > 999) {
    return {};
  }
  const auto first = static_cast<std::uint64_t>(*offset);
  const auto length = static_cast<std::uint64_t>(*size);
  if (first > end || length > end - first) return {};
  HTTPHeaders headers;
  for (std::size_t i = 0; i < fields->size(); i += 2) headers.add((*fields)[i], (*fields)[i + 1]);
  return OfflineSetEntry{*std::move(url),
                         {{*std::move(finalURL), static_cast<int>(*status), std::move(headers)},
                          {},
                          *requestTime,
                          *responseTime},
                         first,
                         length,
                         static_cast<std::uint64_t>(*checksum)};
}

std::optional<std::vector<URL>> urlsOf(const JSONObject& object, std::string_view key) {
  const auto texts = object.strings(key);
  if (!texts) return {};
  std::vector<URL> urls;
  for (const std::string& text : *texts) {
    auto url = URL::parse(text);
    if (!url) return {};
    urls.push_back(*std::move(url));
  }
  return urls;
}

std::optional<std::vector<OfflineSet::Root>> rootsOf(const JSONObject& object) {
  const auto list = object.objects("roots");
  if (!list) return {};
  std::vector<OfflineSet::Root> roots;
  for (const JSONObject& each : *list) {
    auto url = urlOf(each, "url");
    const auto* const kind =
        std::find(kinds.begin(), kinds.end(), each.string("kind").value_or(""));
    if (!url || kind == kinds.end()) return {};
    roots.push_back({static_cast<OfflineSet::Root::Kind>(kind - kinds.begin()), *std::move(url)});
  }
  return roots;
}

JSON toJSON(const std::vector<URL>& urls) {
  JSON texts = JSON::array();
  for (const URL& url : urls) texts.push_back(url.absoluteString());
  return texts;
}

}  // namespace

OwnedFile::~OwnedFile() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

std::optional<struct stat> OwnedFile::info() const {
  struct stat found {};
  const bool isOwn =
      ::fstat(descriptor_, &found) == 0 && S_ISREG(found.st_mode) && found.st_uid == ::geteuid();
  return isOwn ? std::optional(found) : std::nullopt;
}

std::string offlineSetHead(const std::string& name) {
  std::string head(headMark);
  append(head, name.size());
  append(head, checksum(name, indexSeed));
  return head + name;
}

std::string offlineSetTail(const OfflineSet& set, const std::vector<OfflineSetEntry>& entries,
                           std::uint64_t offset) {
  JSON roots = JSON::array();
  for (const auto& root : set.roots) {
    roots.push_back(
        {{"kind", kinds[static_cast<std::size_t>(root.kind)]}, {"url", root.url.absoluteString()}});
  }
  JSON list = JSON::array();
  for (const OfflineSetEntry& entry : entries) list.push_back(toJSON(entry));
  const JSON index = {{"fetchedAt", milliseconds(set.fetchedAt)},
                      {"roots", std::move(roots)},
                      {"missing", toJSON(set.missing)},
                      {"entries", std::move(list)}};
  std::string tail = index.dump(-1, ' ', false, JSON::error_handler_t::replace);
  const std::uint64_t sum = checksum(tail, indexSeed);
  append(tail, offset);
  append(tail, sum);
  return tail.append(tailMark);
}

OfflineSetFile::OfflineSetFile(OwnedFile file, const struct stat& info, const std::string& fileName)
    : file_(std::move(file)) {
  const auto size = static_cast<std::uint64_t>(info.st_size);
  set_.bytes = info.st_size;
  set_.isDamaged = !readHead(size) || !readIndex(size);
  if (set_.name.empty()) set_.name = fileName;
  if (set_.isDamaged) return;
  for (const OfflineSetEntry& entry : entries_) {
    set_.urls.push_back(entry.url);
    byURL_.emplace(entry.url.absoluteString(), &entry);
  }
}

bool OfflineSetFile::readHead(std::uint64_t size) {
  constexpr std::size_t fixed = headMark.size() + 16;
  const auto head = size < fixed ? std::nullopt : bytesAt(0, fixed);
  if (!head || !head->starts_with(headMark)) return false;
  const std::uint64_t length = numberAt(*head, headMark.size());
  if (length > OfflineSets::longestName || length > size - fixed) return false;
  const auto name = bytesAt(fixed, length);
  if (!name || checksum(*name, indexSeed) != numberAt(*head, headMark.size() + 8)) return false;
  set_.name = *name;
  return true;
}

bool OfflineSetFile::readIndex(std::uint64_t size) {
  constexpr std::size_t fixed = tailMark.size() + 16;
  const auto tail = size < fixed ? std::nullopt : bytesAt(size - fixed, fixed);
  if (!tail || !tail->ends_with(tailMark)) return false;
  const std::uint64_t offset = numberAt(*tail, 0);
  if (offset > size - fixed) return false;
  const auto index = bytesAt(offset, size - fixed - offset);
  if (!index || checksum(*index, indexSeed) != numberAt(*tail, 8)) return false;
  const auto document = JSONDocument::parse(*index);
  const auto object = document ? document->object() : std::nullopt;
  const auto list = object ? object->objects("entries") : std::nullopt;
  const auto fetchedAt = object ? dateOf(*object, "fetchedAt") : std::nullopt;
  auto roots = object ? rootsOf(*object) : std::nullopt;
  auto missing = object ? urlsOf(*object, "missing") : std::nullopt;
  if (!list || !fetchedAt || !roots || !missing) return false;
  for (const JSONObject& each : *list) {
    auto entry = entryFrom(each, offset);
    if (!entry) return false;
    entries_.push_back(*std::move(entry));
  }
  set_.fetchedAt = *fetchedAt;
  set_.roots = *std::move(roots);
  set_.missing = *std::move(missing);
  return true;
}

std::optional<std::string> OfflineSetFile::bytesAt(std::uint64_t offset, std::uint64_t size) const {
  if (size > mostAtOnce) return {};
  std::string bytes(size, '\0');
  for (std::size_t done = 0; done < size;) {
    const ssize_t count = ::pread(file_.descriptor(), bytes.data() + done, size - done,
                                  static_cast<off_t>(offset + done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return {};
    done += static_cast<std::size_t>(count);
  }
  return bytes;
}

std::optional<Date> OfflineSetFile::timeOf(std::string_view url) const {
  const auto found = byURL_.find(url);
  if (found == byURL_.end()) return {};
  return found->second->head.responseTime;
}

std::optional<CachedURLResponse> OfflineSetFile::read(std::string_view url) const {
  const auto found = byURL_.find(url);
  if (found == byURL_.end()) return {};
  const OfflineSetEntry& entry = *found->second;
  auto body = bytesAt(entry.offset, entry.size);
  if (!body || checksum(*body, entry.offset) != entry.checksum) return {};
  CachedURLResponse response = entry.head;
  response.data = Data(*std::move(body));
  return response;
}

}  // namespace paperloom::internal
