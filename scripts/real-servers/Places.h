#pragma once

#include <curl/curl.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "Relay.h"
#include "Report.h"
#include "paperloom/platform/URLCache.h"
#include "paperloom/platform/URLSession.h"

namespace paperloom::servers {

// One listener of a real server that stands before the origin below.
struct Place {
  std::string name;
  int port;
  bool speaksHTTP2;
  std::function<void()> reload{};  // has the server take its configuration anew
  std::filesystem::path authority{};

  URL url(const std::string& target) const {
    return *URL::parse("https://127.0.0.1:" + std::to_string(port) + target);
  }
  URL url(const Relay& relay, const std::string& target) const {
    return *URL::parse("https://" + relay.origin() + target);
  }
  URLSessionConfiguration configuration() const {
    URLSessionConfiguration made;
    made.additionalCertificateAuthorities = authority;
    return made;
  }
};

inline std::shared_ptr<URLCache> memoryCache() {
  return std::make_shared<URLCache>(std::int64_t{64} << 20, 0, "");
}

// What README.md promises of the libcurl that is loaded.
inline bool offersHTTP2() { return curl_version_info(CURLVERSION_NOW)->version_num >= 0x080E00; }

// The origin behind the real servers: "/whole/..." and "/post" are answered in full, "/cut/length"
// and "/cut/chunks" in half.
inline constexpr std::size_t bodySize = 20'000;
std::string wholeBody(const std::string& target);
test::Script originAnswer(const test::ScriptedServer::Request& request);

// The promises kept at one place, and those that only a server that misbehaves can show.
void checkPlace(const Place& place, Report& report);
void checkPatientPlace(const Place& place, Report& report);
void checkHTTP2(const std::filesystem::path& identity, const std::filesystem::path& authority,
                Report& report);

}  // namespace paperloom::servers
