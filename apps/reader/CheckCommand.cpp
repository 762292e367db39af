#include "apps/reader/Checking.h"
#include "apps/reader/Commands.h"

namespace paperloom::reader {
namespace {

struct CheckOptions {
  std::string kind;
  std::string document;
  std::string stream;
  bool junit = false;
  bool sarif = false;
};

bool isWebAddress(const std::string& text) {
  return text.starts_with("http://") || text.starts_with("https://");
}

void check(Host& host, const CheckOptions& options, bool isStream) {
  if (host.json() + options.junit + options.sarif > 1) {
    throw usageFailure("say one of --json, --junit and --sarif");
  }
  Checking checking(host);
  if (isStream) {
    if (!options.kind.empty()) throw usageFailure("say --stream or a kind, not both");
    checking.checkURL("stream",
                      options.stream.empty() ? host.frontPageURL() : host.resolve(options.stream),
                      true);
  } else if (options.document.empty()) {
    throw usageFailure("say a kind and a document, or --stream");
  } else if (isWebAddress(options.document)) {
    checking.checkURL(options.kind, host.resolve(options.document), false);
  } else {
    checking.checkFile(options.kind, options.document);
  }

  const auto documents = checking.finish();
  Output& output = host.output();
  output.beginPage();
  if (host.json()) {
    output.line(findingsAsJSON(documents));
  } else if (options.junit) {
    output.line(findingsAsJUnit(documents));
  } else if (options.sarif) {
    output.line(findingsAsSARIF(documents, checkedRules()));
  } else {
    printFindings(output, documents);
  }
  output.flush();
  if (needsWork(documents)) throw Failure("", 1);
}

}  // namespace

void addCheckCommand(CLI::App& app, Action& action) {
  auto options = std::make_shared<CheckOptions>();
  auto* command = app.add_subcommand(
      "check", "Find what readers do not get of a document or of a whole front page, and why");
  command->group(toolsGroup);
  oneOf(command->add_option("kind", options->kind, "What the document is"), checkedKinds());
  command->add_option("document", options->document, "The file, its URL, or - for standard input");
  auto* stream = command
                     ->add_option("--stream", options->stream,
                                  "A whole front page with the articles and pictures that its "
                                  "cards lead to: the content service's, or the one at this URL")
                     ->expected(0, 1)
                     ->option_text("[URL]");
  command->add_flag("--junit", options->junit, "Print the findings as a JUnit report");
  command->add_flag("--sarif", options->sarif, "Print the findings as SARIF 2.1.0");
  command->callback([&action, options, stream] {
    action = [options, isStream = stream->count() > 0](Host& host) {
      check(host, *options, isStream);
    };
  });
}

}  // namespace paperloom::reader
