#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>

#include "apps/reader/Commands.h"
#include "apps/reader/Failure.h"
#include "apps/reader/Signals.h"
#include "apps/reader/Text.h"
#include "paperloom/Version.h"

namespace paperloom::reader {
namespace {

constexpr auto description =
    "Reads the news in a terminal.\n"
    "Without --content-url a small sample newspaper, compiled into this program, is read.";

constexpr auto footer =
    "\nFirst steps:\n"
    "  paperloom demo                 a guided tour\n"
    "  paperloom stream               today's front page\n"
    "  paperloom article 3            the third story of the front page printed last\n"
    "  paperloom COMMAND --help       what a command understands\n"
    "\nExit status: 0 done, 1 failed, 2 wrong usage, 130 ended by Ctrl-C.";

void addGlobalOptions(CLI::App& app, GlobalOptions& global) {
  app.add_option("--content-url", global.contentURL, "Root of the content service")
      ->type_name("URL");
  app.add_option("--identity-url", global.identityURL, "Root of the identity service")
      ->type_name("URL");
  app.add_option("--data-dir", global.dataDirectory,
                 "Folder for cache and settings, in place of the user's XDG folders")
      ->type_name("DIR");
  app.add_flag("--json", global.json, "Print JSON for programs");
}

// One sentence on what is wrong. Arguments that a command did not ask for are not repeated, as one
// of them may be a password that should never have been there.
std::string sentenceFor(const CLI::App& app, const CLI::ParseError& error) {
  if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && app.get_subcommands().empty()) {
    const std::vector<std::string> rest = app.remaining();
    return rest.empty() ? "say a command" : "there is no such command or option: " + rest.front();
  }
  if (dynamic_cast<const CLI::ExtrasError*>(&error) == nullptr) return error.what();
  std::string names;
  for (const std::string& extra : app.remaining(true)) {
    if (extra.starts_with('-')) names += " " + extra.substr(0, extra.find('='));
  }
  return "there is more than this command understands" + (names.empty() ? "" : ":" + names);
}

int usage(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream out;
  std::ostringstream sentence;
  if (app.exit(error, out, sentence) == 0) {
    Output output;
    output.write(out.str());
    output.flush();
    return 0;
  }
  std::cerr << "error: " << printableText(sentenceFor(app, error))
            << "; --help tells what is understood\n";
  return usageStatus;
}

int run(int argc, char** argv) {
  CLI::App app{description, "paperloom"};
  app.set_version_flag("--version", reinterpret_cast<const char*>(PaperloomVersionString));
  app.require_subcommand(1);
  app.get_formatter()->label("SUBCOMMAND", "COMMAND");
  app.fallthrough();
  app.option_defaults()->always_capture_default(false);

  GlobalOptions global;
  Action action;
  addGlobalOptions(app, global);
  addReadingCommands(app, action);
  addAccountCommands(app, action);
  addWarmCommand(app, action);
  addCacheCommands(app, action);
  addParseCommand(app, action);
  addServiceCommands(app, action);
  addDemoCommand(app, action);
  app.footer(footer);  // after the commands, which would inherit it
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return usage(app, error);
  }

  Host host(global);
  action(host);
  host.output().flush();
  return 0;
}

// A file that is opened must not take the place of a standard stream that the parent has closed.
void reopenStandardStreams() {
  for (int fd = ::open("/dev/null", O_RDWR); fd >= 0; fd = ::open("/dev/null", O_RDWR)) {
    if (fd <= STDERR_FILENO) continue;
    ::close(fd);
    return;
  }
}

// Leaves the last word to standard error even when standard output is a terminal in mid-line.
int fail(const std::string& text, int status) {
  std::fflush(stdout);
  if (!text.empty()) std::cerr << "error: " << printableText(text) << "\n";
  return status;
}

}  // namespace
}  // namespace paperloom::reader

int main(int argc, char** argv) {
  using namespace paperloom::reader;
  reopenStandardStreams();
  Signals::install();
  try {
    return run(argc, argv);
  } catch (const Failure& failure) {
    return fail(failure.text, failure.status);
  } catch (const Interrupted& interrupted) {
    return fail("", 128 + interrupted.signal);
  } catch (const std::exception& error) {
    return fail(error.what(), 1);
  }
}
