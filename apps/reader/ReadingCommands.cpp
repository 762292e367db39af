#include <fmt/format.h>
#include <unistd.h>

#include <charconv>

#include "apps/reader/AccountStore.h"
#include "apps/reader/Commands.h"
#include "apps/reader/Files.h"
#include "apps/reader/FrontPage.h"
#include "apps/reader/Picture.h"
#include "apps/reader/Printing.h"
#include "apps/reader/RecordJSON.h"
#include "apps/reader/Text.h"
#include "paperloom/model/Renditions.h"

namespace paperloom::reader {
namespace {

// What is said of the copy in the cache.
struct CopyOptions {
  std::optional<std::int64_t> maximumAge;  // in seconds
  bool copyFirst = false;

  void add(CLI::App& command) {
    amount(command.add_option("--max-age", maximumAge,
                              "Show the copy in the cache, without asking, when it is no older"),
           timeUnits)
        ->option_text("AGE");
    command
        .add_flag("--copy-first", copyFirst,
                  "Show the copy in the cache at once, then what the service has")
        ->excludes("--max-age");
  }
};

// Asks, and prints the answer. Of what follows a copy that has been printed only what is new is,
// for people; programs are given both.
template <class T, class Ask, class Print>
void show(Host& host, const CopyOptions& options, Ask ask, Print print) {
  CopyUse<T> use;
  if (options.maximumAge)
    use.refresh = Refresh::ifOlderThan(std::chrono::seconds(*options.maximumAge));
  bool isShown = false;
  if (options.copyFirst) {
    use.refresh = Refresh::afterTheCopy();
    use.show = [&](const Answer<T>& copy) {
      print(host, copy);
      host.output().flush();
      isShown = true;
    };
  }
  const Answer<T> answer = ask(use);
  const bool isTheCopy =
      answer.provenance.fromCache || answer.provenance.source == Provenance::Source::revalidated;
  if (isShown && isTheCopy && !host.json()) return printProvenance(host, answer.provenance);
  print(host, answer);
}

void printConfig(Host& host, const Answer<AppMetadataProtocol>& answer) {
  if (host.json()) return printJSON(host, toJSON(*answer.record), answer.provenance);
  host.output().beginPage();
  printConfiguration(host.output(), *answer.record);
  printProvenance(host, answer.provenance);
}

void printStream(Host& host, const Answer<StreamProtocol>& answer) {
  if (host.json()) return printJSON(host, toJSON(*answer.record), answer.provenance);
  host.output().beginPage();
  printNumberedFrontPage(host, *answer.record);
  printProvenance(host, answer.provenance);
}

// A card's number on the front page printed last, else an address.
URL articleURL(Host& host, const std::string& text) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return host.resolve(text);
  const auto url = numberedCard(host, number);
  if (!url) {
    throw Failure(
        fmt::format("no story {} on the front page printed last; see `paperloom stream`", number));
  }
  return host.resolve(*url);
}

void printStory(Host& host, const Answer<ArticleProtocol>& answer) {
  if (host.json()) return printJSON(host, toJSON(*answer.record), answer.provenance);
  const bool hasPixels = !assetsOf(*answer.record).empty() && host.pictures().arePixels();
  if (!hasPixels) host.output().beginPage();
  printArticle(host, *answer.record, accessOf(accountStore(host)), true);
  printProvenance(host, answer.provenance);
}

void image(Host& host, const std::string& address, const std::string& out) {
  if (host.json() && out == "-") {
    throw usageFailure("--json and --out - both want standard output");
  }
  const URL url = host.resolve(address);
  const auto answer = host.picture(url);
  if (!answer.record) {
    throw Failure("no image can be loaded from " + printableText(url.absoluteString()));
  }
  const Image& image = *answer.record->image;
  if (out == "-") return host.output().write(answer.record->bytes.view());
  if (!out.empty()) writeWholeFile(out, answer.record->bytes.view(), 0644, Durable::yes);
  if (host.json()) return printJSON(host, toJSON(image), answer.provenance);
  if (out.empty()) {
    const Terminal& terminal = host.output().terminal();
    host.output().write(host.pictures().draw(image, terminal.columns, terminal.rows - 3));
  }
  host.output().line(fmt::format("{} x {} pixels{}", image.width(), image.height(),
                                 out.empty() ? "" : ", saved as " + printableText(out)));
  printProvenance(host, answer.provenance);
}

}  // namespace

void addReadingCommands(CLI::App& app, Action& action) {
  const auto add = [&](const char* name, const char* help) {
    auto* command = app.add_subcommand(name, help);
    command->group(readingGroup);
    return command;
  };
  struct Arguments {
    CopyOptions copy;
    std::vector<std::string> sections;
    std::string address;
    std::string out;
  };
  auto arguments = std::make_shared<Arguments>();

  auto* command = add("config", "The sections, their names and colours");
  arguments->copy.add(*command);
  command->callback([&action, arguments] {
    action = [arguments](Host& host) {
      const auto ask = [&](const auto& use) { return host.appMetadata(use); };
      show<AppMetadataProtocol>(host, arguments->copy, ask, printConfig);
    };
  });

  command = add("stream", "The front page");
  command->add_option("--sections", arguments->sections, "Only these sections, in this order")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->option_text("A,B");
  arguments->copy.add(*command);
  command->callback([&action, arguments] {
    action = [arguments](Host& host) {
      const auto ask = [&](const auto& use) { return host.stream(arguments->sections, use); };
      show<StreamProtocol>(host, arguments->copy, ask, printStream);
    };
  });

  command = add("article", "One story: its URL, or its number on the front page printed last");
  command->add_option("url", arguments->address, "URL, path on the content service, or number")
      ->required();
  arguments->copy.add(*command);
  command->callback([&action, arguments] {
    action = [arguments](Host& host) {
      const URL url = articleURL(host, arguments->address);
      const auto ask = [&](const auto& use) { return host.article(url, use); };
      show<ArticleProtocol>(host, arguments->copy, ask, printStory);
    };
  });

  command = add("image", "One picture, shown in the terminal or saved");
  command->add_option("url", arguments->address, "URL, or path on the content service")->required();
  command->add_option("--out", arguments->out, "Save the file as it came; - is standard output")
      ->type_name("FILE");
  command->callback([&action, arguments] {
    action = [arguments](Host& host) { image(host, arguments->address, arguments->out); };
  });

  add("offline", "The front page that comes with the library, without any network")
      ->callback(
          [&action] { action = [](Host& host) { printStream(host, host.offlineStream()); }; });
}

}  // namespace paperloom::reader
