#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "apps/reader/Failure.h"
#include "apps/reader/Output.h"
#include "apps/reader/Picture.h"
#include "apps/reader/StatusLine.h"
#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/network/DataCoordinator.h"
#include "paperloom/network/ProvenanceWords.h"
#include "paperloom/platform/DispatchQueue.h"
#include "paperloom/platform/OfflineSets.h"
#include "paperloom/testing/SampleService.h"

namespace paperloom::reader {

// What every command understands.
struct GlobalOptions {
  std::string contentURL;
  std::string identityURL;
  std::string dataDirectory;
  bool json = false;
  std::string colour;    // "auto", "always" or "never"
  std::string pictures;  // as in Pictures

  Terminal::When coloursWhen() const {
    using When = Terminal::When;
    return colour == "always" ? When::always : colour == "never" ? When::never : When::automatic;
  }
};

template <class T>
struct Answer {
  std::shared_ptr<const T> record;
  Provenance provenance;
};

// How a request goes about the copy in the cache, where HTTP is not to say so; and, with
// Refresh::afterTheCopy(), what is done with the copy, before its successor has come.
template <class T>
struct CopyUse {
  std::optional<Refresh> refresh{};
  std::function<void(const Answer<T>&)> show{};
};

// An image and the bytes that it came as.
struct Picture {
  std::shared_ptr<const Image> image;
  Data bytes;
};

// The host application of one command: the coordinator it asks, the embedded sample service when
// no other is named, and the loop that pumps the main queue while it waits.
class Host {
 public:
  explicit Host(GlobalOptions options);
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  Output& output() { return output_; }
  const Style& style() const { return output_.style(); }
  Pictures& pictures() { return pictures_; }
  bool json() const { return options_.json; }

  // Where the reader keeps its own small files.
  std::filesystem::path file(std::string_view name) const;

  // The root of the content and of the identity endpoints; the embedded service starts with the
  // first question for a URL that is not given.
  const URL& contentURL();
  URL identityURL();
  // Of all sections.
  URL frontPageURL();
  // A URL as a person or a document gives it; one without a scheme counts from the content root.
  URL resolve(const std::string& text);
  // The same for a document's address; nothing when it is not one of the web.
  std::optional<URL> resolveIfPossible(const URL& address);

  // What is kept for the time without a network; answers come from there, too.
  const std::shared_ptr<OfflineSets>& offlineSets();
  DataCoordinator& content();
  const std::shared_ptr<ContentSessionManager>& sessionManager();

  // Has the main queue do `work`. What it throws ends the next waitUntil(), since nothing may leave
  // a function that the queue calls. Any thread.
  static void later(std::function<void()> work);
  // Pumps the main queue until `done`; throws Interrupted on Ctrl-C. `whom` is who is waited for,
  // as a person would call it; empty for a wait that is not shown.
  void waitUntil(const std::function<bool()>& done, const std::string& whom);
  // Something has come of what is waited for.
  void waitsForTheNext() {
    if (waiting_) waiting_->restart();
  }
  // Who answers there: a host with its port, or the embedded service.
  std::string nameOf(const URL& url) const;

  // The coordinator's requests, waited for. All throw Failure.
  Answer<AppMetadataProtocol> appMetadata(const CopyUse<AppMetadataProtocol>& use = {});
  // Fails also when the service does not have one of the sections.
  Answer<StreamProtocol> stream(const std::vector<std::string>& sections,
                                const CopyUse<StreamProtocol>& use = {});
  Answer<StreamProtocol> offlineStream();
  Answer<ArticleProtocol> article(const URL& url, const CopyUse<ArticleProtocol>& use = {});
  // Null when the image cannot be loaded.
  Answer<Image> image(const URL& url);
  Answer<Picture> picture(const URL& url);

  bool usesEmbeddedService() const {
    return options_.contentURL.empty() && options_.identityURL.empty();
  }
  // Ends the embedded service, if it runs; its URLs stay what they were.
  void stopEmbeddedService();

 private:
  template <class T>
  using Outcome = std::variant<std::monostate, Answer<T>, Failure>;

  // Starts a request by `start(success, failure)` and waits for its outcome, which is brought to
  // the main queue from wherever it is answered. `what` is asked for, as in "such story".
  template <class T, class Start>
  Answer<T> await(std::string_view what, const URL& url, Start start, const CopyUse<T>& use = {}) {
    struct Outcomes {
      Outcome<T> copy;
      Outcome<T> last;
    };
    auto outcomes = std::make_shared<Outcomes>();
    start(
        [outcomes](std::shared_ptr<const T> record, const Provenance& provenance) {
          DispatchQueue::main().async(
              [outcomes, answer = Answer<T>{std::move(record), provenance}] {
                (answer.provenance.isFollowed ? outcomes->copy : outcomes->last) = answer;
              });
        },
        [outcomes, what](const PaperloomError& error, const Provenance& from) {
          DispatchQueue::main().async(
              [outcomes, failure = failureOf(what, error, from)] { outcomes->last = failure; });
        });
    const auto* outcome = &outcomes->last;
    waitUntil([&] { return outcomes->copy.index() + outcome->index() != 0; }, nameOf(url));
    if (const auto* copy = std::get_if<Answer<T>>(&outcomes->copy); copy && use.show) {
      use.show(*copy);
    }
    waitUntil([&] { return outcome->index() != 0; }, nameOf(url));
    if (auto* failure = std::get_if<Failure>(outcome)) throw *failure;
    return std::get<Answer<T>>(*outcome);
  }

  static Failure failureOf(std::string_view what, const PaperloomError& error,
                           const Provenance& from);

  sample::SampleService& service();
  std::string noSection(const std::string& uid);

  GlobalOptions options_;
  Output output_;
  Pictures pictures_;
  std::optional<Waiting> waiting_;
  std::unique_ptr<sample::SampleService> service_;
  std::optional<URL> contentURL_;
  std::shared_ptr<OfflineSets> offlineSets_;
  std::shared_ptr<ContentSessionManager> sessionManager_;
  std::unique_ptr<DataCoordinator> coordinator_;
};

}  // namespace paperloom::reader
