#include "apps/reader/Commands.h"
#include "apps/reader/Warming.h"

namespace paperloom::reader {
namespace {

struct WarmOptions {
  std::vector<std::string> urls;
  bool stream = false;
  std::vector<std::string> sections;
  bool force = false;
};

void warm(Host& host, const WarmOptions& options) {
  if (options.stream == !options.urls.empty()) {
    throw usageFailure("name the URLs to warm, or say --stream");
  }
  Warming warming(host, options.force);
  if (options.stream) {
    warming.addStream(host.stream(options.sections).record);
  } else {
    for (const std::string& url : options.urls) warming.add(host.resolve(url));
  }
  if (std::string trouble = warming.finish(); !trouble.empty()) throw Failure(std::move(trouble));
}

}  // namespace

void addWarmCommand(CLI::App& app, Action& action) {
  auto options = std::make_shared<WarmOptions>();
  auto* command = app.add_subcommand(
      "warm", "Fill the cache ahead of time: the URLs given, or a whole front page");
  command->group(cacheGroup);
  command->add_option("url", options->urls, "Documents and images to fetch");
  command->add_flag("--stream", options->stream,
                    "Every article of the front page and the pictures that go with it");
  command->add_option("--sections", options->sections, "Only these sections of the front page")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->option_text("A,B");
  command->add_flag("--force", options->force, "Fetch also what is cached already");
  command->callback(
      [&action, options] { action = [options](Host& host) { warm(host, *options); }; });
}

}  // namespace paperloom::reader
