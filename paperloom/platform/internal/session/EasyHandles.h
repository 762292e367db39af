#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "paperloom/platform/URLSessionConfiguration.h"
#include "paperloom/platform/internal/session/CurlLoop.h"

namespace paperloom::internal {

template <auto cleanup>
struct CurlCleanup {
  void operator()(void* handle) const { cleanup(handle); }
};

// A libcurl handle for one transfer, with a memory of the first option that could not be set.
class EasyHandle {
 public:
  EasyHandle() : handle_(curl_easy_init()) {}

  template <class Value>
  void set(CURLoption option, Value value) {
    if (code_ == CURLE_OK) code_ = curl_easy_setopt(handle_.get(), option, value);
  }

  CURL* get() const { return handle_.get(); }
  // Whether it exists and every option has been set; otherwise nothing may be sent with it.
  bool isSound() const { return handle_ && code_ == CURLE_OK; }

 private:
  std::unique_ptr<CURL, CurlCleanup<curl_easy_cleanup>> handle_;
  CURLcode code_ = handle_ ? CURLE_OK : CURLE_OUT_OF_MEMORY;
};

// Before anything else; more than once does no harm. The variable SSLKEYLOGFILE has no effect: the
// keys of connections are written nowhere.
void prepareLibcurl();

// Whether the libcurl that is loaded can be trusted with HTTP/2. Before 8.14 it loses streams that
// the server has refused, takes cut bodies for whole ones, and lets one peer hold up the others.
bool offersHTTP2();

// Makes the handles of one loop, with the options that no request changes.
//
// A handle serves one transfer only. libcurl before 8.3 keeps in it a pointer to the last field of
// the former response after that has been freed, and follows it when a header begins with a folded
// line: any server could corrupt memory. What is worth keeping between transfers lives elsewhere:
// connections and names in the loop's multi handle, TLS sessions in a share.
class EasyHandles {
 public:
  EasyHandles(const URLSessionConfiguration& configuration, CurlLoop& loop);

  EasyHandle make();

  // Takes back what has served; it ends in tidyUp().
  void retire(EasyHandle handle) { retired_.push_back(std::move(handle)); }

  // Ends what has served and makes what make() hands out next. For a moment when nobody waits:
  // both together cost as much as what is left of starting a transfer.
  void tidyUp();
  std::size_t retiredCount() const { return retired_.size(); }

 private:
  EasyHandle prepared() const;

  const URLSessionConfiguration& configuration_;
  CurlLoop& loop_;
  // Used by one thread at a time, as the loop is: it needs no lock functions.
  std::unique_ptr<CURLSH, CurlCleanup<curl_share_cleanup>> share_;
  std::optional<EasyHandle> next_;
  std::vector<EasyHandle> retired_;
};

}  // namespace paperloom::internal
