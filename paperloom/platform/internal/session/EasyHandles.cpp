#include "paperloom/platform/internal/session/EasyHandles.h"

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace paperloom::internal {
namespace {

// While it lives, the environment variable is empty. Nothing but one pointer changes, so that other
// threads may go on reading the environment, which unsetenv() would forbid.
class EmptiedVariable {
 public:
  explicit EmptiedVariable(const std::string& name) : emptied_(name + "=") {
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
      if (!std::string_view(*entry).starts_with(emptied_)) continue;
      entry_ = entry;
      original_ = std::atomic_ref(*entry).exchange(emptied_.data());
      return;
    }
  }
  ~EmptiedVariable() {
    if (entry_ != nullptr) std::atomic_ref(*entry_).store(original_);
  }
  EmptiedVariable(const EmptiedVariable&) = delete;
  EmptiedVariable& operator=(const EmptiedVariable&) = delete;

 private:
  std::string emptied_;
  char** entry_ = nullptr;
  char* original_ = nullptr;
};

std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The file's certificates beside the system's: libcurl takes one file and one folder, and the
// system has both. Where it has no folder, both files in one buffer.
void trustAlso(EasyHandle& handle, const std::filesystem::path& file) {
  const curl_version_info_data* info = curl_version_info(CURLVERSION_NOW);
  std::error_code ignored;
  if (info->capath != nullptr && std::filesystem::is_directory(info->capath, ignored)) {
    handle.set(CURLOPT_CAINFO, file.c_str());
    handle.set(CURLOPT_PROXY_CAINFO, file.c_str());
    return;
  }
  std::string both = contentsOf(info->cainfo != nullptr ? info->cainfo : "");
  both.append("\n").append(contentsOf(file));
  curl_blob blob{both.data(), both.size(), CURL_BLOB_COPY};
  handle.set(CURLOPT_CAINFO_BLOB, &blob);
  handle.set(CURLOPT_PROXY_CAINFO_BLOB, &blob);
}

void secure(EasyHandle& handle) {
  handle.set(CURLOPT_SSL_VERIFYPEER, 1L);
  handle.set(CURLOPT_SSL_VERIFYHOST, 2L);
  handle.set(CURLOPT_PROXY_SSL_VERIFYPEER, 1L);
  handle.set(CURLOPT_PROXY_SSL_VERIFYHOST, 2L);
  handle.set(CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
  handle.set(CURLOPT_PROXY_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
  handle.set(CURLOPT_PROTOCOLS_STR, "http,https");
  handle.set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  handle.set(CURLOPT_NETRC, long{CURL_NETRC_IGNORED});
}

}  // namespace

void prepareLibcurl() {
  static const CURLcode initialised = [] {
    const EmptiedVariable keyLog("SSLKEYLOGFILE");
    return curl_global_init(CURL_GLOBAL_DEFAULT);
  }();
  static_cast<void>(initialised);
}

bool offersHTTP2() {
  static const bool offered = [] {
    const curl_version_info_data* info = curl_version_info(CURLVERSION_NOW);
    constexpr unsigned int needed = CURL_VERSION_BITS(8, 14, 0);
    return info->version_num >= needed && (info->features & CURL_VERSION_HTTP2) != 0;
  }();
  return offered;
}

EasyHandles::EasyHandles(const URLSessionConfiguration& configuration, CurlLoop& loop)
    : configuration_(configuration), loop_(loop), share_(curl_share_init()) {
  if (!share_) return;
  const auto code = curl_share_setopt(share_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  if (code != CURLSHE_OK) share_.reset();  // every connection has a whole handshake
}

EasyHandle EasyHandles::make() {
  if (next_) return *std::exchange(next_, std::nullopt);
  return prepared();
}

void EasyHandles::tidyUp() {
  retired_.clear();
  if (!next_) next_ = prepared();
}

EasyHandle EasyHandles::prepared() const {
  EasyHandle handle;
  secure(handle);
  handle.set(CURLOPT_SHARE, share_.get());
  handle.set(CURLOPT_NOSIGNAL, 1L);
  handle.set(CURLOPT_CLOSESOCKETFUNCTION, &CurlLoop::onCloseSocket);
  handle.set(CURLOPT_CLOSESOCKETDATA, &loop_);
  // A name that is still being looked up must not hold up the loop when its request is given up.
  handle.set(CURLOPT_QUICK_EXIT, 1L);
  handle.set(CURLOPT_FOLLOWLOCATION, 0L);
  handle.set(CURLOPT_HTTP_CONTENT_DECODING, 0L);
  handle.set(CURLOPT_HTTP_TRANSFER_DECODING, 0L);  // of chunks, which libcurl judges too mildly
  handle.set(CURLOPT_HTTP09_ALLOWED, 0L);
  const long version = offersHTTP2() ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1;
  handle.set(CURLOPT_HTTP_VERSION, version);
  handle.set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  handle.set(CURLOPT_PATH_AS_IS, 1L);
  // The idle timeout is the session's own; libcurl's for connecting must not come before it.
  const auto connecting = configuration_.timeoutIntervalForRequest + std::chrono::minutes(1);
  handle.set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(connecting.count()));
  if (!configuration_.proxy.empty()) {
    handle.set(CURLOPT_PROXY, configuration_.proxy.c_str());
    handle.set(CURLOPT_NOPROXY, "");  // whatever the variable no_proxy says
  }
  if (!configuration_.additionalCertificateAuthorities.empty()) {
    trustAlso(handle, configuration_.additionalCertificateAuthorities);
  }
  return handle;
}

}  // namespace paperloom::internal
