#include <fmt/format.h>

#include "apps/reader/Help.h"
#include "paperloom/Version.h"

namespace paperloom::reader {
namespace {

// Text for troff: nothing in it is a request, and hyphens stay what can be typed.
std::string roff(std::string_view text) {
  std::string result;
  bool lineBegins = true;
  for (const char c : text) {
    if (lineBegins && (c == '.' || c == '\'')) result += "\\&";
    if (c == '-') {
      result += "\\-";
    } else if (c == '\\') {
      result += "\\e";
    } else {
      result += c;
    }
    lineBegins = c == '\n';
  }
  return result;
}

struct Entry {
  std::string label;
  std::string text;
};

std::string list(const std::vector<Entry>& entries) {
  std::string text;
  for (const Entry& entry : entries) {
    text += fmt::format(".TP\n.B {}\n{}\n", roff(entry.label), roff(entry.text));
  }
  return text;
}

void addOptions(std::vector<Entry>& entries, const std::vector<OptionInfo>& options) {
  for (const OptionInfo& option : options) {
    if (!option.names.empty() && option.names.back() == "--help") continue;
    entries.push_back({labelOf(option), textOf(option) + "."});
  }
}

std::string section(const std::string& path, const CommandInfo& command) {
  std::string text = fmt::format(".SS {}\n{}.\n", roff(usageOf(path, command)), roff(command.text));
  std::vector<Entry> entries;
  addOptions(entries, command.arguments);
  addOptions(entries, command.options);
  text += list(entries);
  for (const CommandInfo& each : command.commands) text += section(path + " " + each.name, each);
  return text;
}

const std::vector<Entry> environmentEntries = {
    {"NO_COLOR", "When it is not empty, no colours and no pictures."},
    {"CLICOLOR_FORCE, FORCE_COLOR",
     "When neither empty nor 0, colours also where standard output is no terminal. FORCE_COLOR=2 "
     "gives 256 colours, FORCE_COLOR=3 all of them."},
    {"COLUMNS", "How wide the text may be, in place of the terminal's width."},
    {"PAGER",
     "Shows output that is longer than the terminal, less -FRX without it; empty or cat for none."},
    {"PAPERLOOM_KEYRING",
     "never: tokens are kept in the file, and come back from the desktop's keyring with the next "
     "refresh or entitlement."},
    {"TERM, COLORTERM, TERM_PROGRAM", "What the terminal can show."},
    {"XDG_CACHE_HOME, XDG_CONFIG_HOME", "Where the cache and the settings lie."},
    {"http_proxy, https_proxy, all_proxy, no_proxy", "The way into the network."},
};

const std::vector<Entry> fileEntries = {
    {"~/.cache/paperloom/", "What has been fetched."},
    {"~/.config/paperloom/account.json",
     "The account, with its tokens where no secret service of the desktop keeps them."},
};

const std::vector<Entry> statusEntries = {{"0", "Done."},
                                          {"1", "Failed; one line on standard error says why."},
                                          {"2", "Wrong usage."},
                                          {"130", "Ended by Ctrl-C."}};

}  // namespace

std::string manualPage(const CommandInfo& program) {
  std::string text = fmt::format(
      ".TH PAPERLOOM 1 \"\" \"paperloom {}\" \"User Commands\"\n.SH NAME\npaperloom \\- reads the "
      "news in a terminal\n.SH SYNOPSIS\n.B paperloom\n[\\fIOPTIONS\\fR] \\fICOMMAND\\fR "
      "...\n.SH DESCRIPTION\n{}\n.PP\nOptions may stand before or after the command.\n.SH "
      "OPTIONS\n",
      reinterpret_cast<const char*>(PaperloomVersionString), roff(program.text));
  std::vector<Entry> entries;
  addOptions(entries, program.options);
  text += list(entries) + ".SH COMMANDS\n";
  for (const CommandInfo& command : program.commands) text += section(command.name, command);
  text += ".SH EXIT STATUS\n" + list(statusEntries);
  text += ".SH ENVIRONMENT\n" + list(environmentEntries);
  text += ".SH FILES\n" + list(fileEntries);
  text += ".SH EXAMPLES\n" +
          list({{"paperloom demo", "A guided tour."},
                {"paperloom stream --sections news,sport", "Two sections of the front page."},
                {"paperloom article 3", "The third story of the front page printed last."},
                {"paperloom warm --stream", "Fetches all of it, for a way without a network."}});
  return text;
}

}  // namespace paperloom::reader
