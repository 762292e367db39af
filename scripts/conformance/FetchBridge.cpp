// Lets a script fetch through this library: one JSON request a line on standard input,
//   {"id": 1, "url": "...", "method": "GET", "headers": [["name", "value"]], "body": "...",
//    "cache": "default", "redirect": "follow"}
// one JSON answer a line on standard output, in the order in which they finish:
//   {"id": 1, "status": 200, "headers": [["name", "value"]], "body": "...", "source": "network"}
// or {"id": 1, "error": "..."}. Texts carry bytes, one a character (ISO 8859-1). "cache" takes the
// modes of the Fetch standard. Ends after the last answer when the input ends. The cache is in
// memory, or in FOLDER with the arguments --cache FOLDER.

#include <condition_variable>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "paperloom/platform/URLCache.h"
#include "paperloom/platform/URLSession.h"

namespace paperloom {
namespace {

using nlohmann::json;

std::string bytesOf(const std::string& text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c < 0x80 || i + 1 == text.size()) {
      bytes.push_back(text[i]);
    } else {
      bytes.push_back(static_cast<char>((c & 0x03U) << 6U | (text[++i] & 0x3F)));
    }
  }
  return bytes;
}

std::string textOf(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    const auto c = static_cast<unsigned char>(byte);
    if (c >= 0x80) text.push_back(static_cast<char>(0xC0U | c >> 6U));
    text.push_back(c < 0x80 ? byte : static_cast<char>(0x80U | (c & 0x3FU)));
  }
  return text;
}

// The Fetch standard's cache modes; what it leaves to header fields goes there.
void setCacheMode(URLRequest& request, const std::string& mode) {
  const auto addUnlessGiven = [&](const char* name, const char* value) {
    if (!request.headers.contains(name)) request.headers.add(name, value);
  };
  if (mode == "no-store") {
    addUnlessGiven("Cache-Control", "no-store");
  } else if (mode == "reload") {
    request.cachePolicy = URLRequestCachePolicy::reloadIgnoringLocalCacheData;
    addUnlessGiven("Cache-Control", "no-cache");
  } else if (mode == "no-cache") {
    addUnlessGiven("Cache-Control", "max-age=0");
  } else if (mode == "force-cache") {
    request.cachePolicy = URLRequestCachePolicy::returnCacheDataElseLoad;
  } else if (mode == "only-if-cached") {
    request.cachePolicy = URLRequestCachePolicy::returnCacheDataDontLoad;
  }
}

URLRequest requestFrom(const json& line) {
  URLRequest request(URL::parse(line.at("url").get<std::string>()).value());
  request.method = line.value("method", "GET");
  for (const json& field : line.value("headers", json::array())) {
    request.headers.add(bytesOf(field.at(0)), bytesOf(field.at(1)));
  }
  if (line.contains("body") && line["body"].is_string()) {
    request.body = Data(bytesOf(line["body"]));
  }
  setCacheMode(request, line.value("cache", "default"));
  request.followsRedirects = line.value("redirect", "follow") == "follow";
  return request;
}

const char* nameOf(URLSessionTaskMetrics::Source source) {
  switch (source) {
    case URLSessionTaskMetrics::Source::network:
      return "network";
    case URLSessionTaskMetrics::Source::cache:
      return "cache";
    case URLSessionTaskMetrics::Source::revalidated:
      return "revalidated";
    case URLSessionTaskMetrics::Source::stale:
      return "stale";
  }
  return "";
}

URLSessionConfiguration configuration(const std::filesystem::path& folder) {
  constexpr std::int64_t capacity = 64 << 20;
  URLSessionConfiguration configuration;
  configuration.urlCache = folder.empty() ? std::make_shared<URLCache>()
                                          : std::make_shared<URLCache>(capacity, capacity, folder);
  return configuration;
}

class Bridge {
 public:
  explicit Bridge(const std::filesystem::path& folder) : session_(configuration(folder)) {}

  void run() {
    for (std::string line; std::getline(std::cin, line);) start(json::parse(line));
    std::unique_lock lock(mutex_);
    idle_.wait(lock, [this] { return tasks_.empty(); });
  }

 private:
  void start(const json& line) {
    const std::int64_t id = line.at("id");
    auto task = session_.dataTask(
        requestFrom(line),
        [this, id](const std::optional<Data>& data, const std::optional<HTTPURLResponse>& response,
                   const std::optional<URLError>& error) { finish(id, data, response, error); });
    {
      const std::lock_guard lock(mutex_);
      tasks_[id] = task;
    }
    task->resume();
  }

  void finish(std::int64_t id, const std::optional<Data>& data,
              const std::optional<HTTPURLResponse>& response,
              const std::optional<URLError>& error) {
    const std::lock_guard lock(mutex_);
    json answer{{"id", id}};
    if (error || !response) {
      answer["error"] = error ? error->localizedDescription : "no response";
    } else {
      answer["status"] = response->statusCode;
      answer["headers"] = json::array();
      for (const auto& [name, value] : response->headers) {
        answer["headers"].push_back({textOf(name), textOf(value)});
      }
      answer["body"] = textOf(data ? data->view() : std::string_view());
      answer["source"] = nameOf(tasks_.at(id)->metrics().source);
    }
    std::cout << answer.dump() << std::endl;
    tasks_.erase(id);
    idle_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable idle_;
  std::map<std::int64_t, std::shared_ptr<URLSessionTask>> tasks_;
  URLSession session_;
};

}  // namespace
}  // namespace paperloom

int main(int count, char** arguments) {
  const bool onDisk = count == 3 && std::string_view(arguments[1]) == "--cache";
  paperloom::Bridge bridge(onDisk ? arguments[2] : "");
  bridge.run();
}
