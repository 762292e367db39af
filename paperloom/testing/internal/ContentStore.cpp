#include "paperloom/testing/internal/ContentStore.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <optional>
#include <span>

#include <nlohmann/json.hpp>

#include "cmake/EmbeddedFile.h"
#include "paperloom/testing/internal/HttpDate.h"

namespace paperloom::sample {

std::span<const EmbeddedFile> embeddedContent();  // made by the build

namespace {

using nlohmann::ordered_json;

// The morning on which the whole newspaper was published: Thu, 09 Oct 2025 11:40:00 GMT.
constexpr std::time_t publishedAt = 1760010000;
constexpr int frontPageSeconds = 60;
constexpr int articleSeconds = 600;
constexpr int imageSeconds = 86400;

std::string withBase(std::string_view text, std::string_view baseURL) {
  constexpr std::string_view mark = "{{base}}";
  std::string result;
  for (auto at = text.find(mark); at != std::string_view::npos; at = text.find(mark)) {
    result.append(text.substr(0, at)).append(baseURL);
    text.remove_prefix(at + mark.size());
  }
  return result.append(text);
}

std::string entityTag(std::string_view body, bool compressed) {
  std::uint64_t hash = 0xcbf29ce484222325U;  // FNV-1a
  for (const char c : body) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
  std::array<char, 48> text{};
  std::snprintf(text.data(), text.size(), "\"%016llx%s\"", static_cast<unsigned long long>(hash),
                compressed ? "-gzip" : "");
  return text.data();
}

// RFC 9110, section 8.8.3.2: If-None-Match compares weakly.
bool namesTag(std::string_view list, std::string_view tag) {
  while (!list.empty()) {
    const auto comma = list.find(',');
    std::string_view entry = list.substr(0, comma);
    list.remove_prefix(comma == std::string_view::npos ? list.size() : comma + 1);
    entry.remove_prefix(std::min(entry.find_first_not_of(" \t"), entry.size()));
    entry = entry.substr(0, entry.find_last_not_of(" \t") + 1);
    if (entry.starts_with("W/")) entry.remove_prefix(2);
    if (entry == "*" || entry == tag) return true;
  }
  return false;
}

bool isUnchanged(const HttpRequest& request, std::string_view tag) {
  // RFC 9110, section 13.1.3: If-Modified-Since is ignored beside If-None-Match.
  if (const auto tags = request.header("If-None-Match")) return namesTag(*tags, tag);
  const auto since = request.header("If-Modified-Since");
  const auto time = since ? readHttpDate(*since) : std::optional<std::time_t>();
  return time && *time >= publishedAt;
}

std::string contentTypeOf(std::string_view path) {
  if (path.ends_with(".jpg")) return "image/jpeg";
  if (path.ends_with(".png")) return "image/png";
  if (path.ends_with(".webp")) return "image/webp";
  return "application/json";
}

}  // namespace

ContentStore::ContentStore(std::string_view baseURL) {
  std::string_view config;
  for (const EmbeddedFile& file : embeddedContent()) {
    if (file.path == "config.json") config = file.bytes;
    addFile(file.path, file.bytes, baseURL);
  }
  addStreamParts(config);
}

void ContentStore::addFile(std::string_view path, std::string_view bytes,
                           std::string_view baseURL) {
  constexpr std::string_view json = ".json";
  constexpr std::string_view sections = "sections/";
  const bool isJson = path.ends_with(json);
  const std::string_view name = isJson ? path.substr(0, path.size() - json.size()) : path;
  const std::string body = isJson ? withBase(bytes, baseURL) : std::string(bytes);
  if (path.starts_with(sections)) {
    sections_.emplace(name.substr(sections.size()), body);
  } else if (path == "sponsored.json") {
    metaData_ = "\"sponsoredContent\": " + body;
  } else {
    const int seconds = path.starts_with("articles/") ? articleSeconds
                        : isJson                      ? frontPageSeconds
                                                      : imageSeconds;
    documents_.emplace("/" + std::string(name), Document{body, contentTypeOf(path), seconds});
  }
}

void ContentStore::addStreamParts(std::string_view configText) {
  const auto config = ordered_json::parse(configText);
  for (const auto& entry : config.at("sectionMetaData")) {
    sectionOrder_.push_back(entry.at("uid").get<std::string>());
  }
  metaData_ = "\"sectionMetaData\": " + config.at("sectionMetaData").dump(2) +
              ",\n\"globalMetaData\": " + config.at("globalMetaData").dump(2) + ",\n" + metaData_;
}

ContentStore::Document ContentStore::stream(std::string_view uids) const {
  std::vector<std::string_view> wanted;
  if (uids.empty()) wanted.assign(sectionOrder_.begin(), sectionOrder_.end());
  while (!uids.empty()) {
    const auto comma = uids.find(',');
    const std::string_view uid = uids.substr(0, comma);
    uids.remove_prefix(comma == std::string_view::npos ? uids.size() : comma + 1);
    if (std::find(wanted.begin(), wanted.end(), uid) == wanted.end()) wanted.push_back(uid);
  }

  Document document{"{\n\"sections\": [", "application/json", frontPageSeconds};
  bool first = true;
  for (const std::string_view uid : wanted) {
    const auto section = sections_.find(uid);
    if (section == sections_.end()) continue;
    document.body.append(first ? "\n" : ",\n").append(section->second);
    first = false;
  }
  document.body.append("],\n").append(metaData_).append("}\n");
  return document;
}

HttpReply ContentStore::deliver(const Document& document, const HttpRequest& request) {
  const bool isJson = document.contentType == "application/json";
  HttpReply reply;
  const std::string tag = entityTag(document.body, isJson && request.acceptsGzip);
  reply.headers = {
      {"ETag", tag},
      {"Last-Modified", httpDate(publishedAt)},
      {"Cache-Control", "max-age=" + std::to_string(document.maxAgeSeconds)},
      {"Accept-Ranges", "none"},
  };
  if (isJson) reply.headers.emplace_back("Vary", "Accept-Encoding");
  if (isUnchanged(request, tag)) {
    reply.status = 304;
    return reply;
  }
  reply.contentType = document.contentType;
  reply.body = document.body;
  return reply;
}

HttpReply ContentStore::answer(const HttpRequest& request) const {
  HttpReply reply;
  if (request.method != "GET" && request.method != "HEAD") {
    reply.status = 405;
    reply.headers = {{"Allow", "GET, HEAD"}};
    reply.body = R"({"error": "this document can only be read"})";
    return reply;
  }
  if (request.path == "/stream") {
    const auto uids = request.query.find("uids");
    return deliver(stream(uids == request.query.end() ? "" : uids->second), request);
  }
  const auto document = documents_.find(request.path);
  if (document != documents_.end()) return deliver(document->second, request);
  reply.status = 404;
  reply.body = R"({"error": "there is no such document"})";
  return reply;
}

std::vector<std::string> ContentStore::paths() const {
  std::vector<std::string> all;
  for (const auto& [path, document] : documents_) all.push_back(path);
  return all;
}

}  // namespace paperloom::sample
