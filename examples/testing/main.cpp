// A host's tests with the installed kit and no test framework.
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

#include "paperloom/identity/AuthDataCoordinator.h"
#include "paperloom/network/AuthSessionManager.h"
#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/network/DataCoordinator.h"
#include "paperloom/testing/AnsweringSessionManager.h"
#include "paperloom/testing/Captured.h"
#include "paperloom/testing/MovableClock.h"
#include "paperloom/testing/SampleAccounts.h"
#include "paperloom/testing/SampleDocuments.h"
#include "paperloom/testing/SampleService.h"
#include "paperloom/testing/ScriptedServer.h"
#include "paperloom/testing/TLSServer.h"
#include "paperloom/testing/TemporaryFolder.h"
#include "paperloom/testing/Waiting.h"

using namespace paperloom;

namespace {

void check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "not so: %s\n", what);
  std::exit(1);
}

// What a coordinator makes of the configuration: how it came, or why it did not.
std::string configuration(DataCoordinator& news) {
  return test::captured<std::string>(
      [&](auto done) {
        news.requestAppMetadata(
            [done](auto, const Provenance& provenance) {
              done(provenance.fromCache ? "copy" : "fresh");
            },
            [done](const PaperloomError& error) { done(error.details()); });
      },
      "the configuration");
}

void theSampleServiceMisbehavesAndItsTokensRunOut() {
  const test::TemporaryFolder folder;
  test::MovableClock clock;
  auto service = std::move(*sample::SampleService::start());
  DataCoordinator news(std::make_shared<ContentSessionManager>(
      std::make_shared<URLCache>(1 << 20, 1 << 20, folder.path())));
  news.setBaseURL(URL::parse(service->baseURL()));
  check(configuration(news) == "fresh", "the service answers");
  service->setFaults(*sample::FaultPlan::parse("status=/config:500"));
  check(configuration(news) == "fresh", "a fresh copy needs no service");
  clock.advance(std::chrono::hours(1));
  check(configuration(news) == "copy", "a stale copy stands in for a failure");
  check(service->requests().size() == 2, "a fresh copy makes no request");

  const auto& account = sample::sampleAccounts().front();
  AuthDataCoordinator identity(std::make_shared<AuthSessionManager>(URLSessionConfiguration{}));
  identity.setBaseURL(URL::parse(service->identityURL()));
  using Authorisation = std::shared_ptr<const ContentAuthorisationProtocol>;
  const auto login = test::captured<RequestResult<Authorisation>>([&](auto done) {
    identity.login(std::string(account.identifier), std::string(account.authKey),
                   AuthenticationLoginCredentialType::emailAndPassword, done);
  });
  const auto entitlement = [&] {
    return test::captured<RequestResult<Entitlement>>([&](auto done) {
             identity.checkEntitlement(
                 std::get<request::Success<Authorisation>>(login).item->accessToken(), done);
           })
        .index();
  };
  check(entitlement() == 0, "the premium account may read");
  clock.advance(std::chrono::hours(2));
  check(entitlement() == 1, "two hours later its token has run out");
}

void answersAreGivenByURLWhenTheTestLikes() {
  auto manager = std::make_shared<test::AnsweringSessionManager>();
  DataCoordinator news(manager);
  news.setBaseURL(URL::parse("http://paper.example"));
  check(configuration(news).find("http://paper.example/config") != std::string::npos,
        "what nothing is known for fails and says so");
  manager->answer("/config", sample::document("/config"), {.fromCache = true});
  check(configuration(news) == "copy", "provenance is as the test says");
  manager->answer("/stream", PaperloomError::networkError("down"));
  manager->answer("/stream?uids=sport", sample::document("/stream?uids=sport"));
  manager->hold();
  std::string said;
  for (const char* section : {"sport", "news"}) {
    news.requestStreamForSections(
        {section}, [&](auto stream) { said += stream->sections().front()->uid(); },
        [&](const PaperloomError& error) { said += " " + error.details(); });
  }
  check(said.empty(), "held answers wait");
  manager->release();
  check(said == "sport down", "a query goes before a path");
}

void documentsAreReady() {
  for (const std::string& path : sample::documentPaths()) {
    if (path.starts_with("/articles/")) sample::article(path.substr(10));
    if (path.starts_with("/images/")) sample::image(path.substr(8));
  }
  check(sample::stream({"coast", "news"})->sections().size() == 2, "sections are chosen");
  check(sample::stream()->sections().size() == sample::appMetadata()->sectionMetadata().size(),
        "no choice is all of them");
}

void serversSayWhatTheyAreTold() {
  const test::TemporaryFolder folder;
  test::ScriptedServer cut(
      {test::send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\ncut"), test::closeConnection()});
  test::TLSServer secure({.answer = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody"});
  secure.writeAuthority(folder.path() / "authority.pem");
  URLSessionConfiguration trusting;
  trusting.additionalCertificateAuthorities = folder.path() / "authority.pem";
  URLSession session(trusting);
  const auto body = [&](const URL& url) {
    return test::captured<std::string>([&](auto done) {
      session
          .dataTask(URLRequest(url),
                    [done](const auto& data, const auto&, const auto&) {
                      done(data ? std::string(data->view()) : "nothing");
                    })
          ->resume();
    });
  };
  check(body(cut.url()) == "nothing", "a cut body is none");
  check(body(secure.url()) == "body", "the test's authority is trusted");
}

}  // namespace

int main() {
  theSampleServiceMisbehavesAndItsTokensRunOut();
  answersAreGivenByURLWhenTheTestLikes();
  documentsAreReady();
  serversSayWhatTheyAreTold();
}
