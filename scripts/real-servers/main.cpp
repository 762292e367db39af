// Shows what the library promises of the wire against nginx, HAProxy and Apache, and against a peer
// that speaks broken HTTP/2: paperloom_real_servers TEMPLATES FOLDER. FOLDER has authority.pem and
// server.pem (certificate and key of 127.0.0.1); the servers' files and logs come below it.

#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <thread>
#include <vector>

#include "Places.h"
#include "Servers.h"

namespace paperloom::servers {
namespace {

int run(const std::filesystem::path& templates, const std::filesystem::path& folder) {
  std::printf("-- %s\n", curl_version());
  const std::filesystem::path identity = folder / "server.pem";
  const std::filesystem::path authority = folder / "authority.pem";
  test::ScriptedServer origin(originAnswer);
  const std::string address = origin.url().origin().substr(std::string("http://").size());
  const Server::Values values{{"FOLDER", folder}, {"SERVER", identity}, {"ORIGIN", address}};
  Server nginx({"nginx", "-e", folder / "nginx.log", "-c"}, templates / "nginx.conf", values);
  Server haproxy({"haproxy", "-db", "-f"}, templates / "haproxy.cfg", values);
  Server apache({"apache2", "-D", "FOREGROUND", "-f"}, templates / "apache.conf", values);

  std::vector<Place> places;
  for (const auto& [name, server, reload] :
       {std::tuple("nginx", &nginx, SIGHUP), std::tuple("haproxy", &haproxy, 0),
        std::tuple("apache", &apache, SIGUSR1)}) {
    for (const bool http2 : {true, false}) {
      Place place{name + std::string(http2 ? " h2" : " h1"),
                  server->port(http2 ? "H2" : "H1"),
                  http2,
                  {},
                  authority};
      if (reload != 0)
        place.reload = [server = server, reload = reload] { server->signal(reload); };
      places.push_back(place);
    }
  }
  Report report;
  std::vector<std::thread> threads;
  for (const Place& place : places) threads.emplace_back([&] { checkPlace(place, report); });
  for (std::thread& thread : threads) thread.join();
  for (const bool http2 : {true, false}) {
    const int port = haproxy.port(http2 ? "PATIENT2" : "PATIENT1");
    checkPatientPlace({http2 ? "haproxy h2" : "haproxy h1", port, http2, {}, authority}, report);
  }
  if (offersHTTP2()) {
    checkHTTP2(identity, authority, report);
  } else {
    std::printf("skip HTTP/2 peer: HTTP/2 is not offered with this libcurl\n");
  }
  return report.broken() == 0 ? 0 : 1;
}

}  // namespace
}  // namespace paperloom::servers

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return paperloom::servers::run(argv[1], argv[2]);
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "FAIL %s\n", problem.what());
    return 1;
  }
}
