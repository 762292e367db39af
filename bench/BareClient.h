#pragma once

#include <curl/curl.h>

#include <string>

namespace paperloom::bench {

inline std::size_t append(char* bytes, std::size_t, std::size_t size, void* text) {
  static_cast<std::string*>(text)->append(bytes, size);
  return size;
}

// What a program would do without the library: one handle, used again and again.
class BareClient {
 public:
  BareClient() {
    curl_easy_setopt(handle_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &append);
  }
  ~BareClient() { curl_easy_cleanup(handle_); }
  BareClient(const BareClient&) = delete;
  BareClient& operator=(const BareClient&) = delete;

  std::size_t get(const std::string& url) {
    std::string body;
    curl_easy_setopt(handle_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle_, CURLOPT_WRITEDATA, &body);
    curl_easy_perform(handle_);
    return body.size();
  }

 private:
  CURL* handle_ = curl_easy_init();
};

}  // namespace paperloom::bench
