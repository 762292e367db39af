#include <fmt/format.h>

#include "apps/reader/ArticleView.h"
#include "apps/reader/Commands.h"
#include "apps/reader/Files.h"
#include "apps/reader/FrontPage.h"
#include "apps/reader/IdentityJSON.h"
#include "apps/reader/Picture.h"
#include "apps/reader/RecordJSON.h"
#include "paperloom/identity/IdentityParsers.h"
#include "paperloom/model/ArticleParser.h"
#include "paperloom/model/DocumentParsers.h"

namespace paperloom::reader {
namespace {

void show(Host& host, const AppMetadataProtocol& metadata) {
  printConfiguration(host.output(), metadata);
}

void show(Host& host, const StreamProtocol& stream) { printFrontPage(host.output(), stream); }

void show(Host& host, const ArticleProtocol& article) {
  printArticle(host, article, {.loggedIn = true, .premium = true}, false);
}

void show(Host& host, const Image& image) {
  const Terminal& terminal = host.output().terminal();
  host.output().write(host.pictures().draw(image, terminal.columns, terminal.rows - 3));
  host.output().line(fmt::format("{} x {} pixels", image.width(), image.height()));
}

// The person's own file: its secrets are shown.
template <class Record>
void showFields(Host& host, const Record& record) {
  host.output().line(dump(toJSON(record)));
}

void show(Host& host, const ContentAuthorisationProtocol& record) { showFields(host, record); }

void show(Host& host, const RegistrationResponseModelProtocol& record) { showFields(host, record); }

template <class Parser>
void parse(Host& host, const Parser& parser, const std::string& path) {
  const auto parsed = parser.parse(Data(readInput(path)));
  if (!parsed) throw Failure(parsed.error());
  constexpr bool isImage = std::is_same_v<std::decay_t<decltype(**parsed)>, Image>;
  if (host.json() || !isImage) host.output().beginPage();
  if (host.json()) {
    host.output().line(dump(toJSON(**parsed)));
  } else {
    show(host, **parsed);
  }
}

using KindParser = void (*)(Host&, const std::string& path);

template <auto make>
void parseKind(Host& host, const std::string& path) {
  parse(host, *make(), path);
}

const std::map<std::string, KindParser>& kinds() {
  static const std::map<std::string, KindParser> table = {
      {"config", parseKind<makeConfigParser>},
      {"stream", parseKind<makeStreamParser>},
      {"article", parseKind<std::make_shared<ArticleParser>>},
      {"image", parseKind<makeImageParser>},
      {"authorisation", parseKind<makeAuthenticationParser>},
      {"registration", parseKind<makeRegistrationParser>},
  };
  return table;
}

}  // namespace

void addParseCommand(CLI::App& app, Action& action) {
  struct Arguments {
    std::string kind;
    std::string path;
  };
  auto arguments = std::make_shared<Arguments>();
  auto* command = app.add_subcommand("parse", "Parse a document from a file or standard input");
  command->group(toolsGroup);
  std::vector<std::string> names;
  for (const auto& [name, parser] : kinds()) names.push_back(name);
  oneOf(command->add_option("kind", arguments->kind, "What the document is"), names)->required();
  command->add_option("file", arguments->path, "The file, or - for standard input")->required();
  command->callback([&action, arguments] {
    action = [arguments](Host& host) { kinds().at(arguments->kind)(host, arguments->path); };
  });
}

}  // namespace paperloom::reader
