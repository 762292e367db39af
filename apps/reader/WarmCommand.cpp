#include <fmt/format.h>

#include <algorithm>

#include "apps/reader/Commands.h"
#include "apps/reader/RecordJSON.h"
#include "apps/reader/Text.h"
#include "apps/reader/Warming.h"

namespace paperloom::reader {
namespace {

// What bounds the fetching, and how pictures are drawn.
struct Bounds {
  std::optional<std::int64_t> bytes;
  std::optional<std::int64_t> seconds;
  std::optional<std::int64_t> pictureWidth;

  void add(CLI::App& command) {
    amount(command.add_option("--max-bytes", bytes, "Take no more from the network"), byteUnits)
        ->option_text("SIZE");
    amount(command.add_option("--max-time", seconds, "Give up what is not there by then"),
           timeUnits)
        ->option_text("TIME");
    amount(command.add_option("--picture-width", pictureWidth,
                              "Pictures for so many pixels, in place of 600"),
           {})
        ->option_text("PIXELS");
  }

  void apply(WarmingPlan& plan) const {
    if (bytes) plan.maximumBytes = *bytes;
    if (seconds) {
      plan.maximumTime = std::chrono::seconds(std::min<std::int64_t>(*seconds, 366 * 86'400));
    }
    if (pictureWidth) plan.pictureWidth = static_cast<double>(*pictureWidth);
  }
};

struct WarmOptions {
  Bounds bounds;
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
  WarmingPlan& plan = warming.plan();
  options.bounds.apply(plan);
  if (options.stream) {
    plan.frontPage = host.stream(options.sections).record;
  } else {
    for (const std::string& url : options.urls) plan.documents.push_back(host.resolve(url));
  }
  if (std::string trouble = warming.finish(); !trouble.empty()) throw Failure(std::move(trouble));
}

struct KeepOptions {
  Bounds bounds;
  std::string name;
  std::vector<std::string> urls;
  bool stream = false;
  std::vector<std::string> sections;
};

std::string noSet(Host& host, const std::string& name) {
  std::vector<std::string> names;
  for (const OfflineSet& set : host.offlineSets()->sets()) names.push_back(set.name);
  return fmt::format("nothing is kept as {}{}", printableText(name),
                     printableText(guess(name, names)));
}

void keep(Host& host, const KeepOptions& options) {
  const auto& sets = host.offlineSets();
  Warming warming(host, true);
  WarmingPlan& plan = warming.plan();
  if (options.urls.empty() && !options.stream) {
    const auto set = sets->set(options.name);
    if (!set || set->isDamaged) {
      throw usageFailure(noSet(host, options.name) + ": name URLs, or say --stream");
    }
    WarmingPlan again = refreshPlan(*set);
    plan.documents = std::move(again.documents);
    plan.articles = std::move(again.articles);
    plan.frontPages = std::move(again.frontPages);
  }
  for (const std::string& url : options.urls) plan.articles.push_back(host.resolve(url));
  if (options.stream) plan.sections = options.sections;
  options.bounds.apply(plan);
  plan.offlineSets = sets;
  plan.keepAs = options.name;
  if (std::string trouble = warming.finish(); !trouble.empty()) throw Failure(std::move(trouble));
}

void kept(Host& host) {
  const std::vector<OfflineSet> sets = host.offlineSets()->sets();
  if (host.json()) {
    JSON rows = JSON::array();
    for (const OfflineSet& set : sets) rows.push_back(toJSON(set));
    return host.output().line(dump({{"sets", std::move(rows)}}));
  }
  if (sets.empty()) return host.output().sentence("Nothing is kept.");
  host.output().beginPage();
  const Date now = currentDate();
  for (const OfflineSet& set : sets) {
    const auto since = std::chrono::floor<std::chrono::seconds>(now - set.fetchedAt);
    const std::string what =
        set.isDamaged
            ? "damaged: keep it again, or drop it"
            : fmt::format("{}, {}", count(set.urls.size(), "document"), describeAge(since));
    host.output().row(fmt::format("{:>10}  {}", byteSize(set.bytes), what), 48,
                      printableLine(set.name));
  }
}

void drop(Host& host, const std::string& name) {
  if (!host.offlineSets()->remove(name)) throw Failure(noSet(host, name));
  if (host.json()) return host.output().line(dump({{"dropped", name}}));
  host.output().sentence(printableText(name) + " is not kept any more.");
}

void addKeepCommand(CLI::App& app, Action& action) {
  auto options = std::make_shared<KeepOptions>();
  auto* command = app.add_subcommand(
      "keep", "Keep stories or a front page, with their pictures, whatever else the cache does");
  command->group(cacheGroup);
  command->add_option("name", options->name, "What it is to be called; alone, it is fetched anew")
      ->required();
  command->add_option("url", options->urls, "Stories to keep");
  command->add_flag("--stream", options->stream, "The front page and all that it leads to");
  command->add_option("--sections", options->sections, "Only these sections of the front page")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->option_text("A,B")
      ->needs("--stream");
  options->bounds.add(*command);
  command->callback(
      [&action, options] { action = [options](Host& host) { keep(host, *options); }; });
}

void addKeptCommands(CLI::App& app, Action& action) {
  app.add_subcommand("kept", "What is kept: size, documents, age, name")
      ->group(cacheGroup)
      ->callback([&action] { action = kept; });
  auto name = std::make_shared<std::string>();
  auto* command = app.add_subcommand("drop", "Keep something no longer");
  command->group(cacheGroup);
  command->add_option("name", *name, "What it is called")->required();
  command->callback([&action, name] { action = [name](Host& host) { drop(host, *name); }; });
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
  options->bounds.add(*command);
  command->callback(
      [&action, options] { action = [options](Host& host) { warm(host, *options); }; });
  addKeepCommand(app, action);
  addKeptCommands(app, action);
}

}  // namespace paperloom::reader
