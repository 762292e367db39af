#include <fmt/format.h>

#include "apps/reader/Commands.h"
#include "apps/reader/FrontPage.h"
#include "apps/reader/Identity.h"
#include "apps/reader/IdentityWords.h"
#include "apps/reader/Printing.h"
#include "apps/reader/Warming.h"
#include "paperloom/model/Renditions.h"
#include "paperloom/testing/SampleAccounts.h"

namespace paperloom::reader {
namespace {

// The tour has an account of its own, so that a person who is logged in stays it.
class Tour {
 public:
  explicit Tour(Host& host) : host_(host), identity_(host, AccountStore::inMemory()) {}
  Tour(const Tour&) = delete;
  Tour& operator=(const Tour&) = delete;

  void run() {
    chapter("The configuration", "paperloom config");
    const auto configuration = host_.appMetadata();
    printConfiguration(host_.output(), *configuration.record);
    printProvenance(host_, configuration.provenance);

    chapter("The front page", "paperloom stream");
    const auto front = host_.stream({});
    printNumberedFrontPage(host_, *front.record);
    printProvenance(host_, front.provenance);

    chapter("A story with its picture", "paperloom article URL");
    const URL story = storyWithPicture(*front.record);
    read(story);

    visitAccount(*front.record);
    goOffline(front.record, story);
  }

 private:
  void chapter(const std::string& title, const std::string& command) {
    host_.output().line();
    host_.output().sentence(host_.style().bold("━━ " + title) + "  " + host_.style().dim(command),
                            3);
    host_.output().line();
    host_.output().flush();
  }

  void say(const std::string& sentence) {
    host_.output().sentence(sentence);
    host_.output().flush();
  }

  void read(const URL& url) {
    const auto answer = host_.article(url);
    printArticle(host_, *answer.record, accessOf(identity_.store()), true);
    printProvenance(host_, answer.provenance);
  }

  void visitAccount(const StreamProtocol& stream) {
    const auto premium = premiumStory(stream);
    if (premium) {
      chapter("A premium story, for somebody who is not logged in", "paperloom article URL");
      read(*premium);
    }
    chapter("Logging in", "paperloom login");
    const sample::SampleAccount& sample = sample::sampleAccounts().front();
    const auto login = identity_.login(std::string(sample.identifier), std::string(sample.authKey));
    say(fmt::format("{}: {}", sample.identifier, sentence(login)));

    chapter("What may this account read?", "paperloom entitlement");
    const auto check = identity_.check(account());
    say(sentence(check, identity_.isRefreshed()));

    chapter("New tokens for old", "paperloom refresh");
    const auto refresh = identity_.refresh(account());
    say(sentence(refresh, identity_.isRefreshed()));

    if (premium) {
      chapter("The premium story again", "paperloom article URL");
      read(*premium);
    }
  }

  Account account() {
    auto account = identity_.store().load();
    if (!account) throw Failure("the login of the demo account failed");
    return std::move(*account);
  }

  void goOffline(const std::shared_ptr<const StreamProtocol>& front, const URL& story) {
    chapter("Filling the cache for the way", "paperloom warm --stream");
    {
      Warming warming(host_, false);
      warming.plan().frontPage = front;
      warming.finish();
    }
    chapter("The service goes away", "");
    host_.stopEmbeddedService();
    say("The embedded sample service is stopped. What follows is read from the cache.");

    chapter("The front page, offline", "paperloom stream");
    const auto again = host_.stream({});
    printNumberedFrontPage(host_, *again.record);
    printProvenance(host_, again.provenance);

    chapter("The story, offline", "paperloom article URL");
    read(story);
  }

  // The first card that fits, with its address.
  template <class Predicate>
  std::optional<URL> firstCard(const StreamProtocol& stream, Predicate fits) {
    for (const auto& card : cardsOf(stream)) {
      const auto url = host_.resolveIfPossible(card->URL());
      if (url && fits(*card, *url)) return url;
    }
    return {};
  }

  URL storyWithPicture(const StreamProtocol& stream) {
    const auto url = firstCard(stream, [&](const ArticleHeaderProtocol& card, const URL& address) {
      return card.cardAsset() && !card.isPremium() &&
             !assetsOf(*host_.article(address).record).empty();
    });
    if (!url) throw Failure("the front page has no story with a picture to show");
    return *url;
  }

  std::optional<URL> premiumStory(const StreamProtocol& stream) {
    return firstCard(stream, [&](const ArticleHeaderProtocol& card, const URL& address) {
      return card.isPremium() &&
             isWalled(*host_.article(address).record, {.loggedIn = true, .premium = false});
    });
  }

  Host& host_;
  Identity identity_;
};

void demo(Host& host) {
  if (!host.usesEmbeddedService()) {
    throw usageFailure(
        "the demo ends the service that it reads from; run it without --content-url and "
        "--identity-url");
  }
  if (host.json()) throw usageFailure("the demo is for people; it has no --json");
  Tour(host).run();
}

}  // namespace

void addDemoCommand(CLI::App& app, Action& action) {
  app.add_subcommand("demo", "A guided tour: read, fill the cache, lose the network, read on")
      ->group(toolsGroup)
      ->callback([&action] { action = demo; });
}

}  // namespace paperloom::reader
