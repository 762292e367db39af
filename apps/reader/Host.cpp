#include "apps/reader/Host.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <exception>

#include "apps/reader/Environment.h"
#include "apps/reader/Files.h"
#include "apps/reader/Signals.h"
#include "apps/reader/Text.h"
#include "paperloom/platform/ApplicationDirectories.h"
#include "paperloom/platform/ImageDecoder.h"

namespace paperloom::reader {
namespace {

bool isWebURL(const URL& url) {
  return !url.host().empty() && (url.scheme() == "http" || url.scheme() == "https");
}

URL webURL(const std::string& text, std::string_view what) {
  auto url = URL::parse(text);
  if (!url || !isWebURL(*url)) {
    throw Failure(fmt::format("{} is not an http or https URL: {}", what, printableText(text)));
  }
  return std::move(*url);
}

// The port that the embedded service had last time: with the same one again, the cached answers of
// earlier runs are found under their URLs.
int rememberedPort(const std::filesystem::path& file) {
  const std::string text = readOwnFile(file).value_or("");
  int port = 0;
  std::from_chars(text.data(), text.data() + text.size(), port);
  return port > 1023 && port < 65'536 ? port : 0;
}

void rememberPort(const std::filesystem::path& file, int port) {
  try {
    writeWholeFile(file, std::to_string(port) + "\n", 0600, Durable::no);
  } catch (const Failure&) {
    // Nothing but a warm cache next time depends on it.
  }
}

// The embedded service is reached directly, whatever proxy the environment names. No thread runs
// yet that might read the environment.
void exemptLoopbackFromProxies() {
  std::string exempt(variable("no_proxy"));
  if (exempt.empty()) exempt = variable("NO_PROXY");
  if (exempt == "*") return;
  exempt += exempt.empty() ? "127.0.0.1" : ",127.0.0.1";
  ::setenv("no_proxy", exempt.c_str(), 1);
}

class PictureParser final : public ParserProtocol<std::shared_ptr<const Picture>> {
 public:
  tl::expected<Item, ParserError> parse(const Data& data) const override {
    auto image = ImageDecoder::current()->decode(data.view());
    if (!image) return tl::unexpected(PaperloomError::parsingFailed("no picture"));
    return std::make_shared<const Picture>(Picture{std::move(image), data});
  }
};

}  // namespace

Host::Host(GlobalOptions options)
    : options_(std::move(options)),
      output_(options_.coloursWhen()),
      pictures_(output_.terminal(), options_.pictures) {
  if (options_.contentURL.empty() || options_.identityURL.empty()) exemptLoopbackFromProxies();
  if (options_.dataDirectory.empty()) return;
  const auto directory = std::filesystem::absolute(options_.dataDirectory);
  std::error_code ignored;
  if (std::filesystem::exists(directory, ignored) &&
      !std::filesystem::is_directory(directory, ignored)) {
    throw Failure("--data-dir is not a folder: " + printableText(options_.dataDirectory));
  }
  ApplicationDirectories::setCachesDirectory(directory);
  ApplicationDirectories::setSettingsDirectory(directory);
  ApplicationDirectories::setDataDirectory(directory);
}

// Requests in flight are cancelled while the service still answers.
Host::~Host() {
  coordinator_.reset();
  sessionManager_.reset();
}

std::filesystem::path Host::file(std::string_view name) const {
  return ApplicationDirectories::settingsDirectory() / name;
}

sample::SampleService& Host::service() {
  if (service_) return *service_;
  const auto memory = file("sample-port");
  const int port = rememberedPort(memory);
  auto started = sample::SampleService::start({.port = port});
  if (!started && port != 0) started = sample::SampleService::start();
  if (!started) throw Failure("the embedded sample service does not start: " + started.error());
  service_ = std::move(*started);
  if (port == 0) rememberPort(memory, service_->port());
  return *service_;
}

const URL& Host::contentURL() {
  if (!contentURL_) {
    contentURL_ = options_.contentURL.empty() ? webURL(service().baseURL(), "The service's URL")
                                              : webURL(options_.contentURL, "--content-url");
  }
  return *contentURL_;
}

URL Host::identityURL() {
  return options_.identityURL.empty() ? webURL(service().identityURL(), "The service's URL")
                                      : webURL(options_.identityURL, "--identity-url");
}

URL Host::frontPageURL() {
  auto url = contentURL().appendingPathComponent("stream").replacingQueryItems({{"uids", ""}});
  if (!url) throw Failure("--content-url is too long");
  return std::move(*url);
}

URL Host::resolve(const std::string& text) {
  auto url = URL::parse(text);
  if (url) url = resolveIfPossible(*url);
  if (!url) throw Failure("not an http or https URL: " + printableText(text));
  return std::move(*url);
}

std::optional<URL> Host::resolveIfPossible(const URL& address) {
  if (!address.scheme().empty()) return isWebURL(address) ? std::optional(address) : std::nullopt;
  if (!address.host().empty()) return {};
  // A path counts from the root itself, whether or not that ends in a slash.
  const std::string& text = address.absoluteString();
  const auto start = text.find_first_not_of('/');
  if (start == std::string::npos) return {};
  return contentURL().appendingPathComponent("x").resolving(text.substr(start));
}

const std::shared_ptr<OfflineSets>& Host::offlineSets() {
  if (!offlineSets_) offlineSets_ = std::make_shared<OfflineSets>();
  return offlineSets_;
}

const std::shared_ptr<ContentSessionManager>& Host::sessionManager() {
  if (!sessionManager_) {
    sessionManager_ = std::make_shared<ContentSessionManager>();
    sessionManager_->setOfflineSets(offlineSets());
  }
  return sessionManager_;
}

DataCoordinator& Host::content() {
  if (!coordinator_) {
    coordinator_ = std::make_unique<DataCoordinator>(sessionManager());
    coordinator_->setBaseURL(contentURL());
  }
  return *coordinator_;
}

namespace {

std::exception_ptr& thrownLater() {
  static std::exception_ptr thrown;
  return thrown;
}

}  // namespace

void Host::later(std::function<void()> work) {
  DispatchQueue::main().async([work = std::move(work)] {
    try {
      work();
    } catch (...) {
      if (!thrownLater()) thrownLater() = std::current_exception();
    }
  });
}

Failure Host::failureOf(std::string_view what, const PaperloomError& error,
                        const Provenance& from) {
  Failure failure(error);
  failure.httpStatus = from.statusCode;
  if (error.which() != PaperloomError::Case::networkError) return failure;
  const int status = from.statusCode.value_or(200);
  if (status == 404 || status == 410) {
    failure.text = fmt::format("the service has no such {} ({})", what, status);
  } else if (status < 200 || status > 399) {
    failure.text = fmt::format("the service gives no {}: it answers with status {}", what, status);
  } else if (from.error) {
    failure.text = "no answer, and no copy of an earlier one: " + from.error->localizedDescription;
  } else {
    return failure;
  }
  failure.details = failure.text;
  return failure;
}

std::string Host::nameOf(const URL& url) const {
  if (service_ && URL::parse(service_->baseURL())->origin() == url.origin()) {
    return "the sample service";
  }
  const std::string host = printableText(url.host());
  const auto port = url.port();
  const bool isUsual = !port || *port == (url.scheme() == "https" ? 443 : 80);
  return isUsual ? host : fmt::format("{}:{}", host, *port);
}

void Host::waitUntil(const std::function<bool()>& done, const std::string& whom) {
  DispatchQueue& queue = DispatchQueue::main();
  waiting_.emplace(whom);
  while (!done()) {
    Signals::throwIfReceived();
    std::array<pollfd, 2> waiting = {pollfd{queue.fileDescriptor(), POLLIN, 0},
                                     pollfd{Signals::fileDescriptor(), POLLIN, 0}};
    ::poll(waiting.data(), waiting.size(), waiting_->untilTick());
    waiting_->tick();
    queue.runPending();
    if (auto thrown = std::exchange(thrownLater(), nullptr)) std::rethrow_exception(thrown);
  }
  waiting_.reset();
}

Answer<AppMetadataProtocol> Host::appMetadata(const CopyUse<AppMetadataProtocol>& use) {
  const auto ask = [&](auto success, auto failure) {
    if (!use.refresh) return content().requestAppMetadata(success, failure);
    content().requestAppMetadata(*use.refresh, success, failure);
  };
  return await<AppMetadataProtocol>("configuration", contentURL(), ask, use);
}

Answer<StreamProtocol> Host::stream(const std::vector<std::string>& sections,
                                    const CopyUse<StreamProtocol>& use) {
  const auto ask = [&](auto success, auto failure) {
    if (!use.refresh) return content().requestStreamForSections(sections, success, failure);
    content().requestStreamForSections(sections, *use.refresh, success, failure);
  };
  auto answer = await<StreamProtocol>("front page", contentURL(), ask, use);
  const auto found = [&](const std::string& uid) {
    const SectionList& all = answer.record->sections();
    return std::any_of(all.begin(), all.end(),
                       [&](const auto& each) { return each->uid() == uid; });
  };
  const auto missing = std::find_if_not(sections.begin(), sections.end(), found);
  if (missing != sections.end()) throw Failure(noSection(*missing));
  return answer;
}

std::string Host::noSection(const std::string& uid) {
  std::vector<std::string> names;
  try {
    for (const auto& each : appMetadata().record->sectionMetadata()) {
      names.push_back(printableLine(each->uid()));
    }
  } catch (const Failure&) {
    // The sentence is true without them.
  }
  return fmt::format("there is no section {}{}{}", printableText(uid),
                     names.empty() ? "" : "; there are ", fmt::join(names, ", "));
}

Answer<StreamProtocol> Host::offlineStream() {
  return await<StreamProtocol>("front page", contentURL(), [&](auto success, auto failure) {
    content().requestOfflineStream(std::move(success), std::move(failure));
  });
}

Answer<ArticleProtocol> Host::article(const URL& url, const CopyUse<ArticleProtocol>& use) {
  const auto ask = [&](auto success, auto failure) {
    if (!use.refresh) return content().requestArticle(url, success, failure);
    return content().requestArticle(url, *use.refresh, success, failure);
  };
  return await<ArticleProtocol>("story", url, ask, use);
}

Answer<Image> Host::image(const URL& url) {
  return await<Image>("picture", url, [&](auto success, auto) {
    content().requestImageFromURL(url, success, [success] { success(nullptr, {}); });
  });
}

Answer<Picture> Host::picture(const URL& url) {
  return await<Picture>("picture", url, [&](auto success, auto failure) {
    using Item = std::shared_ptr<const Picture>;
    sessionManager()->getDocument<Item>(
        url, std::make_shared<const PictureParser>(),
        [success, failure](Result<Item> result, const Provenance& provenance) {
          using Case = PaperloomError::Case;
          if (!result && result.error().which() == Case::networkError) {
            return failure(result.error(), provenance);
          }
          success(result ? std::move(*result) : nullptr, provenance);
        },
        ContentSessionManager::Parsing::beside);
  });
}

void Host::stopEmbeddedService() {
  if (service_) service_->stop();
}

}  // namespace paperloom::reader
