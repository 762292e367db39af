#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "paperloom/platform/internal/session/Transfer.h"

namespace paperloom::internal {
namespace {

constexpr std::size_t maximumIdleHandles = 32;

std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The file's certificates beside the system's: libcurl takes one file and one folder, and the
// system has both. Where it has no folder, both files in one buffer.
void trustAlso(CURL* handle, const std::filesystem::path& file) {
  const curl_version_info_data* info = curl_version_info(CURLVERSION_NOW);
  std::error_code ignored;
  if (info->capath != nullptr && std::filesystem::is_directory(info->capath, ignored)) {
    curl_easy_setopt(handle, CURLOPT_CAINFO, file.c_str());
    curl_easy_setopt(handle, CURLOPT_PROXY_CAINFO, file.c_str());
    return;
  }
  std::string both = contentsOf(info->cainfo != nullptr ? info->cainfo : "");
  both.append("\n").append(contentsOf(file));
  curl_blob blob{both.data(), both.size(), CURL_BLOB_COPY};
  curl_easy_setopt(handle, CURLOPT_CAINFO_BLOB, &blob);
  curl_easy_setopt(handle, CURLOPT_PROXY_CAINFO_BLOB, &blob);
}

void secure(CURL* handle) {
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 2L);
  curl_easy_setopt(handle, CURLOPT_PROXY_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(handle, CURLOPT_PROXY_SSL_VERIFYHOST, 2L);
  curl_easy_setopt(handle, CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
  curl_easy_setopt(handle, CURLOPT_PROXY_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(handle, CURLOPT_NETRC, long{CURL_NETRC_IGNORED});
}

}  // namespace

bool offersHTTP2() {
  const curl_version_info_data* info = curl_version_info(CURLVERSION_NOW);
  constexpr unsigned int needed = CURL_VERSION_BITS(8, 14, 0);
  return info->version_num >= needed && (info->features & CURL_VERSION_HTTP2) != 0;
}

EasyHandles::EasyHandles(const URLSessionConfiguration& configuration, CurlLoop& loop)
    : configuration_(configuration), loop_(loop) {}

EasyHandles::~EasyHandles() { clear(); }

void EasyHandles::clear() {
  std::for_each(idle_.begin(), idle_.end(), curl_easy_cleanup);
  idle_.clear();
}

CURL* EasyHandles::take() {
  if (idle_.empty()) return make();
  CURL* handle = idle_.back();
  idle_.pop_back();
  return handle;
}

void EasyHandles::giveBack(CURL* handle) {
  if (idle_.size() < maximumIdleHandles) {
    idle_.push_back(handle);
  } else {
    curl_easy_cleanup(handle);
  }
}

CURL* EasyHandles::make() const {
  CURL* handle = curl_easy_init();
  if (handle == nullptr) return nullptr;
  secure(handle);
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_CLOSESOCKETFUNCTION, &CurlLoop::onCloseSocket);
  curl_easy_setopt(handle, CURLOPT_CLOSESOCKETDATA, &loop_);
  // A name that is still being looked up must not hold up the loop when its request is given up.
  curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);
  curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(handle, CURLOPT_HTTP_CONTENT_DECODING, 0L);
  curl_easy_setopt(handle, CURLOPT_HTTP09_ALLOWED, 0L);
  const long version = offersHTTP2() ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1;
  curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, version);
  curl_easy_setopt(handle, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  curl_easy_setopt(handle, CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, 64L * 1024);
  // The idle timeout is the session's own; libcurl's for connecting must not come before it.
  const auto connecting = configuration_.timeoutIntervalForRequest + std::chrono::minutes(1);
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(connecting.count()));
  if (!configuration_.proxy.empty()) {
    curl_easy_setopt(handle, CURLOPT_PROXY, configuration_.proxy.c_str());
  }
  if (!configuration_.additionalCertificateAuthorities.empty()) {
    trustAlso(handle, configuration_.additionalCertificateAuthorities);
  }
  return handle;
}

}  // namespace paperloom::internal
