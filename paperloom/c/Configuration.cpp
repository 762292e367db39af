#include <chrono>
#include <string>

#include "paperloom/Version.h"
#include "paperloom/c/internal/Client.h"
#include "paperloom/c/internal/Struct.h"
#include "paperloom/c/internal/Text.h"
#include "paperloom/network/LatestDateStore.h"
#include "paperloom/platform/ApplicationDirectories.h"
#include "paperloom/platform/DispatchQueue.h"

namespace paperloom::c {
namespace {

constexpr std::int64_t megabyte = 1'048'576;

tl::unexpected<const char*> refused(const char* reason) {
  return tl::unexpected<const char*>(reason);
}

template <class Number>
Number orDefault(Number given, Number standard) {
  return given != 0 ? given : standard;
}

std::shared_ptr<URLCache> cache(std::int64_t memory, std::int64_t disk, paperloom_text folder,
                                const char* standardFolder) {
  return std::make_shared<URLCache>(memory, disk, string(folder).value_or(standardFolder));
}

URLSessionConfiguration session(const paperloom_configuration& given) {
  using std::chrono::milliseconds;
  URLSessionConfiguration session;
  session.timeoutIntervalForRequest =
      milliseconds(orDefault<std::int64_t>(given.request_timeout, 20'000));
  session.timeoutIntervalForResource =
      milliseconds(orDefault<std::int64_t>(given.resource_timeout, 600'000));
  session.httpMaximumConnectionsPerHost = orDefault<std::int32_t>(given.connections, 6);
  session.maximumBodySize = orDefault(given.maximum_body_size, 32 * megabyte);
  session.additionalCertificateAuthorities = string(given.certificates).value_or("");
  session.proxy = string(given.proxy).value_or("");
  session.userAgentProduct = string(given.user_agent_product).value_or("");
  return session;
}

// What is wrong with the lists, if anything is.
const char* readLists(const paperloom_configuration& given, URLSessionConfiguration& session) {
  for (size_t i = 0; given.headers != nullptr && i < given.header_count; ++i) {
    auto name = string(given.headers[i].name);
    if (!name) return "a header has no name";
    session.defaultHeaders.add(std::move(*name), string(given.headers[i].value).value_or(""));
  }
  for (size_t i = 0; given.header_origins != nullptr && i < given.header_origin_count; ++i) {
    auto url = webURL(given.header_origins[i]);
    if (!url) return "an origin of headers is not an http or https URL";
    session.defaultHeaderOrigins.push_back(std::move(*url));
  }
  for (size_t i = 0; given.pins != nullptr && i < given.pin_count; ++i) {
    const auto host = string(given.pins[i].host);
    if (!host) return "a pinned key has no host";
    session.pinnedPublicKeys[*host].push_back(string(given.pins[i].key).value_or(""));
  }
  return nullptr;
}

}  // namespace

tl::expected<Settings, const char*> readSettings(const paperloom_configuration* configuration) {
  const auto given = readStruct(configuration);
  if (!given) return refused("the configuration has no size of this interface");

  Settings settings;
  settings.contentURL = webURL(given->content_url);
  settings.identityURL = webURL(given->identity_url);
  if (given->content_url.data != nullptr && !settings.contentURL) {
    return refused("content_url is not an http or https URL");
  }
  if (given->identity_url.data != nullptr && !settings.identityURL) {
    return refused("identity_url is not an http or https URL");
  }
  for (const std::int64_t number :
       {given->request_timeout, given->resource_timeout, std::int64_t{given->connections},
        given->maximum_body_size, given->cache_memory, given->cache_disk}) {
    if (number < 0) return refused("a number of the configuration is below 0");
  }
  URLSessionConfiguration both = session(*given);
  for (const auto& url : {settings.contentURL, settings.identityURL}) {
    if (url) both.defaultHeaderOrigins.push_back(*url);
  }
  if (const char* const fault = readLists(*given, both)) return refused(fault);
  settings.content = settings.identity = std::move(both);
  settings.content.urlCache =
      cache(orDefault(given->cache_memory, 8 * megabyte),
            orDefault(given->cache_disk, 100 * megabyte), given->cache_folder, "url-cache");
  settings.identity.urlCache =
      cache(10 * megabyte, 10 * megabyte, given->identity_cache_folder, "auth-url-cache");
  settings.keepTokens = given->keep_tokens;
  settings.keepUserData = given->keep_user_data;
  return settings;
}

}  // namespace paperloom::c

using namespace paperloom;
using namespace paperloom::c;

paperloom_text paperloom_text_from(const char* string) {
  return {string, string != nullptr ? std::char_traits<char>::length(string) : 0};
}

uint32_t paperloom_version() {
  return PAPERLOOM_VERSION_MAJOR * 1'000'000 + PAPERLOOM_VERSION_MINOR * 1'000 +
         PAPERLOOM_VERSION_PATCH;
}

paperloom_text paperloom_version_text() { return paperloom_text_from(PAPERLOOM_VERSION); }

int paperloom_file_descriptor() { return DispatchQueue::main().fileDescriptor(); }

size_t paperloom_run_pending() { return DispatchQueue::main().runPending(); }

bool paperloom_set_application_name(paperloom_text name) {
  return ApplicationDirectories::setApplicationName(c::string(name).value_or(""));
}

void paperloom_set_caches_directory(paperloom_text path) {
  ApplicationDirectories::setCachesDirectory(c::string(path).value_or(""));
}

void paperloom_set_settings_directory(paperloom_text path) {
  ApplicationDirectories::setSettingsDirectory(c::string(path).value_or(""));
}

double paperloom_time_elapsed_since_last_request() {
  return LatestDateStore::shared().timeElapsedSinceLastRequest();
}
