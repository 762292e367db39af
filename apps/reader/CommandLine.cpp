#include "apps/reader/CommandLine.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "apps/reader/Failure.h"
#include "apps/reader/Help.h"
#include "apps/reader/Text.h"
#include "paperloom/Version.h"

namespace paperloom::reader {
namespace {

constexpr auto description =
    "Reads the news in a terminal. Without --content-url a small sample newspaper, compiled into "
    "this program, is read.";

}  // namespace

CommandLine::CommandLine() : app_(description, "paperloom") {
  app_.set_version_flag("-V,--version", reinterpret_cast<const char*>(PaperloomVersionString),
                        "Print the version and exit");
  app_.set_help_flag("-h,--help", "Print this help and exit");
  app_.require_subcommand(1);
  app_.fallthrough();
  app_.option_defaults()->always_capture_default(false);
  addGlobalOptions();
  addReadingCommands(app_, action_);
  addAccountCommands(app_, action_);
  addWarmCommand(app_, action_);
  addCacheCommands(app_, action_);
  addParseCommand(app_, action_);
  addCheckCommand(app_, action_);
  addServiceCommands(app_, action_);
  addDemoCommand(app_, action_);
  addOwnCommands();
}

void CommandLine::addGlobalOptions() {
  app_.add_option("--content-url", global_.contentURL, "Root of the content service")
      ->type_name("URL");
  app_.add_option("--identity-url", global_.identityURL, "Root of the identity service")
      ->type_name("URL");
  app_.add_option("--data-dir", global_.dataDirectory,
                  "Folder for cache and settings, in place of the user's XDG folders")
      ->type_name("DIR");
  app_.add_flag("--json", global_.json, "Print JSON for programs");
  oneOf(app_.add_option("--color", global_.colour, "When to use colours"),
        {"auto", "always", "never"})
      ->option_text("WHEN");
  oneOf(app_.add_option("--pictures", global_.pictures, "How to show pictures"),
        {"auto", "never", "symbols", "sixel", "kitty", "iterm2"})
      ->option_text("HOW");
}

void CommandLine::addOwnCommands() {
  auto words = std::make_shared<std::vector<std::string>>();
  auto* command = app_.add_subcommand("help", "What the program or a command understands");
  command->group(toolsGroup);
  command->add_option("command", *words, "The command");
  command->callback(
      [this, words] { action_ = [this, words](Host& host) { help(host.output(), *words); }; });

  auto shell = std::make_shared<std::string>();
  command = app_.add_subcommand("completion", "The completion of this program for a shell");
  command->group(toolsGroup);
  oneOf(command->add_option("shell", *shell, "The shell"), {"bash", "zsh", "fish"})->required();
  command->callback([this, shell] {
    action_ = [this, shell](Host& host) {
      host.output().write(completionFor(*shell, describe(app_)));
    };
  });

  command = app_.add_subcommand("manual", "The manual page, as man -l - reads it");
  command->group(toolsGroup);
  command->callback([this] {
    action_ = [this](Host& host) { host.output().write(manualPage(describe(app_))); };
  });
}

const CLI::App& CommandLine::given(std::string& path) const {
  const CLI::App* command = &app_;
  path = app_.get_name();
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
    path += " " + command->get_name();
  }
  return *command;
}

void CommandLine::printHelp(Output& output, const CLI::App& command,
                            const std::string& path) const {
  output.beginPage();
  output.write(helpText(path, describe(command), output.terminal().textWidth()));
  output.flush();
}

void CommandLine::help(Output& output, const std::vector<std::string>& words) const {
  const CLI::App* command = &app_;
  std::string path = app_.get_name();
  for (const std::string& word : words) {
    const CommandInfo info = describe(*command);
    std::vector<std::string> names;
    for (const CommandInfo& each : info.commands) names.push_back(each.name);
    if (std::find(names.begin(), names.end(), word) == names.end()) {
      throw usageFailure(
          fmt::format("there is no command {}{}", printableText(word), guess(word, names)));
    }
    command = command->get_subcommand(word);
    path += " " + word;
  }
  printHelp(output, *command, path);
}

std::string CommandLine::guessFor(const std::string& word) const {
  std::string path;
  const CLI::App& command = given(path);
  std::vector<std::string> names;
  for (const CLI::App* each : {&app_, &command}) {
    const CommandInfo info = describe(*each);
    if (word.starts_with('-')) {
      for (const OptionInfo& option : info.options) {
        std::copy(option.names.begin(), option.names.end(), std::back_inserter(names));
      }
    } else if (each == &command) {
      for (const CommandInfo& below : info.commands) names.push_back(below.name);
    }
  }
  return guess(word, names);
}

// One sentence on what is wrong. Arguments that a command did not ask for are not repeated, as one
// of them may be a password that should never have been there.
std::string CommandLine::sentenceFor(const CLI::ParseError& error) const {
  const std::vector<std::string> extras = app_.remaining(true);
  if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr &&
      app_.get_subcommands().empty()) {
    if (extras.empty()) return "say a command";
    return "there is no such command or option: " + extras.front() + guessFor(extras.front());
  }
  if (dynamic_cast<const CLI::ExtrasError*>(&error) == nullptr) return error.what();
  std::string names;
  std::string meant;
  for (const std::string& extra : extras) {
    const std::string name = extra.substr(0, extra.find('='));
    if (extra.starts_with('-')) names += " " + name;
    if (meant.empty()) meant = guessFor(name);
  }
  return "there is more than this command understands" + (names.empty() ? "" : ":" + names) + meant;
}

bool CommandLine::parse(int argc, char** argv) {
  try {
    app_.parse(argc, argv);
    return true;
  } catch (const CLI::CallForHelp&) {
    Output output(global_.coloursWhen());
    std::string path;
    const CLI::App& command = given(path);
    printHelp(output, command, path);
  } catch (const CLI::CallForVersion& version) {
    Output output;
    output.line(version.what());
    output.flush();
  } catch (const CLI::ParseError& error) {
    std::string sentence = sentenceFor(error);
    if (!sentence.ends_with('?')) sentence += "; --help tells what is understood";
    throw usageFailure(std::move(sentence));
  }
  return false;
}

}  // namespace paperloom::reader
