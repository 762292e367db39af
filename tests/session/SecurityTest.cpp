#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "paperloom/testing/Fetch.h"
#include "paperloom/testing/ScriptedServer.h"
#include "paperloom/testing/TLSServer.h"
#include "paperloom/testing/TemporaryFolder.h"

namespace paperloom::test {
namespace {

using Code = URLError::Code;

const std::string whole = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\nConnection: close\r\n\r\nbody";

// Environment variables for the length of a test.
class Environment {
 public:
  explicit Environment(std::vector<std::pair<const char*, std::string>> variables)
      : variables_(std::move(variables)) {
    for (const auto& [name, value] : variables_) ::setenv(name, value.c_str(), 1);
  }
  ~Environment() {
    for (const auto& [name, value] : variables_) ::unsetenv(name);
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  const std::vector<std::pair<const char*, std::string>> variables_;
};

TEST(SecurityTest, onlyAServerThatATrustedAuthorityVouchesForIsSpokenToAndTheReasonIsSaid) {
  const TemporaryFolder folder;
  struct Case {
    const char* reason;  // none: it is trusted
    TLSServer::Options options;
    bool trusted = true;
  };
  const Case cases[] = {
      {nullptr, {}},
      {"from an issuer that is not trusted", {}, false},
      {"from an issuer that is not trusted", {.sendsAuthority = true}, false},
      {"is self-signed", {.selfSigned = true}},
      {"for another host", {.subject = "DNS:other.invalid"}},
      {"for another host", {.subject = "IP:127.0.0.2"}},
      {"has expired", {.lastDay = -1}},
      {"not valid yet", {.firstDay = 1, .lastDay = 2}},
      {"SSL connect error", {.onlyTLS11 = true}},
  };
  for (Case c : cases) {
    SCOPED_TRACE(c.reason != nullptr ? c.reason : "trusted");
    c.options.answer = whole;
    TLSServer server(c.options);
    server.writeAuthority(folder.path() / "authority.pem");
    // None of these may bring trust that the configuration does not.
    const Environment tempting({{"SSL_CERT_FILE", (folder.path() / "authority.pem").string()},
                                {"CURL_CA_BUNDLE", (folder.path() / "authority.pem").string()},
                                {"SSL_CERT_DIR", folder.path().string()}});
    const std::filesystem::path authority = c.trusted ? folder.path() / "authority.pem" : "";
    URLSession session({.additionalCertificateAuthorities = authority});
    const Answer received = fetch(session, URLRequest(server.url()));
    EXPECT_EQ(server.requests(), c.reason != nullptr ? 0 : 1);
    EXPECT_EQ(received.body(), c.reason != nullptr ? "no data" : "body");
    if (c.reason == nullptr) continue;
    ASSERT_EQ(received.code(), Code::secureConnectionFailed);
    EXPECT_THAT(received.error->localizedDescription, ::testing::HasSubstr(c.reason));
  }
}

TEST(SecurityTest, aMissingOrBrokenAuthorityFileTrustsNobody) {
  const TemporaryFolder folder;
  TLSServer server({.answer = whole});
  std::ofstream(folder.path() / "broken.pem") << "-----BEGIN CERTIFICATE-----\nnonsense\n";
  for (const char* file : {"missing.pem", "broken.pem"}) {
    URLSession session({.additionalCertificateAuthorities = folder.path() / file});
    EXPECT_EQ(fetch(session, URLRequest(server.url())).code(), Code::secureConnectionFailed);
  }
}

TEST(SecurityTest, aHostWithPinnedKeysIsSpokenToWithOneOfThemAlone) {
  const TemporaryFolder folder;
  TLSServer server({.answer = whole, .subject = "DNS:localhost"});
  const std::string named = "https://localhost:" + std::to_string(*server.url().port()) + "/";
  server.writeAuthority(folder.path() / "authority.pem");
  ScriptedServer leading(answer("", "Location: " + named + "\r\n", "302 Found"));
  const std::string right = server.publicKey();
  const std::string wrong = "sha256//" + std::string(43, 'A') + "=";
  struct Case {
    std::map<std::string, std::vector<std::string>> pins;
    std::string url;
    const char* reason;  // none: the server is spoken to
  };
  const char* const noKey = "is not a public key";
  const Case cases[] = {
      {{{"localhost", {right}}}, named, nullptr},
      {{{"LocalHost.", {wrong, right}}}, named, nullptr},
      {{{"other.invalid", {wrong}}}, named, nullptr},
      {{{"localhost", {wrong}}}, named, "none of those that are pinned"},
      {{{"localhost", {wrong, wrong}}}, leading.url().absoluteString(), "none of those"},
      {{{"localhost", {}}}, named, noKey},
      {{{"localhost", {right, "sha256//short="}}}, named, noKey},
      {{{"localhost", {(folder.path() / "authority.pem").string()}}}, named, noKey},
      {{{"localhost", {right}}}, "http" + named.substr(5), "without TLS"},
      {{{"localhost", {right}}}, "https://local%68ost/", "percent"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.pins) + " " + c.url);
    URLSession session({.additionalCertificateAuthorities = folder.path() / "authority.pem",
                        .pinnedPublicKeys = c.pins});
    const int before = server.requests();
    const Answer received = fetch(session, URLRequest(*URL::parse(c.url)));
    EXPECT_EQ(server.requests() - before, c.reason != nullptr ? 0 : 1);
    if (c.reason == nullptr) continue;
    ASSERT_EQ(received.code(), Code::secureConnectionFailed);
    EXPECT_THAT(received.error->localizedDescription, ::testing::HasSubstr(c.reason));
  }
}

TEST(SecurityTest, aRedirectNeverLeadsFromHTTPSToHTTP) {
  const TemporaryFolder folder;
  ScriptedServer plain(answer("stolen"));
  TLSServer server({.answer = "HTTP/1.1 302 Found\r\nLocation: " + plain.url().absoluteString() +
                              "\r\nContent-Length: 0\r\n\r\n"});
  server.writeAuthority(folder.path() / "authority.pem");
  URLSession session({.additionalCertificateAuthorities = folder.path() / "authority.pem"});
  const Answer refused = fetch(session, URLRequest(server.url()));
  EXPECT_EQ(refused.code(), Code::redirectRefused);
  EXPECT_EQ(refused.errorText(), "the server redirected from https to http");
  EXPECT_EQ(plain.connections(), 0);
}

// Decides only where no session has been made before, as in a run of one test alone.
TEST(SecurityTest, theKeysOfConnectionsAreWrittenNowhere) {
  const TemporaryFolder folder;
  const Environment tempting({{"SSLKEYLOGFILE", (folder.path() / "keys").string()}});
  TLSServer server({.answer = whole});
  server.writeAuthority(folder.path() / "authority.pem");
  URLSession session({.additionalCertificateAuthorities = folder.path() / "authority.pem"});
  EXPECT_EQ(fetch(session, URLRequest(server.url())).body(), "body");
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "keys"));
  EXPECT_STREQ(std::getenv("SSLKEYLOGFILE"), (folder.path() / "keys").c_str());
}

TEST(SecurityTest, passwordsOfTheUsersNetrcAreNeverSent) {
  const TemporaryFolder folder;
  std::ofstream(folder.path() / ".netrc") << "machine 127.0.0.1 login user password secret\n";
  const Environment home({{"HOME", folder.path().string()}});
  ScriptedServer server(answer("x"));
  URLSession session({});
  fetch(session, URLRequest(server.url()));
  EXPECT_EQ(server.requests().at(0).field("Authorization"), "");
}

TEST(SecurityTest, aProxyIsUsedWhenTheConfigurationOrTheUsualVariablesNameOne) {
  ScriptedServer proxy(answer("by proxy"));
  const std::string address = proxy.url().origin();
  const URL target = *URL::parse("http://name.invalid/page");
  {
    const Environment exempting({{"no_proxy", "name.invalid"}, {"NO_PROXY", "*"}});
    URLSession session({.proxy = address});
    EXPECT_EQ(fetch(session, URLRequest(target)).body(), "by proxy");
    EXPECT_EQ(proxy.requests().at(0).target, "http://name.invalid/page");
  }
  const Environment variables({{"http_proxy", address}, {"no_proxy", "name2.invalid"}});
  URLSession session({});
  EXPECT_EQ(fetch(session, URLRequest(target)).body(), "by proxy");
  EXPECT_EQ(fetch(session, URLRequest(*URL::parse("http://name2.invalid/"))).code(),
            Code::cannotFindHost);
}

TEST(SecurityTest, aProxyThatRefusesATunnelIsQuotedWithItsStatus) {
  for (const char* status : {"403 Forbidden", "407 Proxy Authentication Required", "502 Gone"}) {
    ScriptedServer proxy(answer("its own page", "", status));
    URLSession session({.proxy = proxy.url().origin()});
    const Answer received = fetch(session, URLRequest(*URL::parse("https://name.invalid/")));
    ASSERT_EQ(received.code(), Code::cannotConnectToHost);
    EXPECT_FALSE(received.response);
    EXPECT_THAT(received.error->localizedDescription,
                ::testing::HasSubstr("status " + std::string(status, 3)));
  }
}

}  // namespace
}  // namespace paperloom::test
