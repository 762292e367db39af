#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "paperloom/testing/internal/HttpServer.h"

namespace paperloom::sample {

// The newspaper: the documents below content/, with the places that say {{base}} replaced by one
// service's own base URL. Read-only once made.
class ContentStore {
 public:
  // Throws nlohmann::json::exception when a document of the newspaper is not JSON.
  explicit ContentStore(std::string_view baseURL);

  // Answers GET and HEAD for every path that is not an identity path.
  HttpReply answer(const HttpRequest& request) const;

  // Every document's, but the stream's.
  std::vector<std::string> paths() const;

 private:
  struct Document {
    std::string body;
    std::string contentType;
    int maxAgeSeconds = 0;
  };

  void addFile(std::string_view path, std::string_view bytes, std::string_view baseURL);
  void addStreamParts(std::string_view configText);
  Document stream(std::string_view uids) const;
  static HttpReply deliver(const Document& document, const HttpRequest& request);

  std::map<std::string, Document, std::less<>> documents_;    // by request path
  std::map<std::string, std::string, std::less<>> sections_;  // JSON text by uid
  std::vector<std::string> sectionOrder_;
  std::string metaData_;  // the members beside "sections" of a stream document
};

}  // namespace paperloom::sample
