#include "apps/reader/Printing.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cctype>
#include <iostream>

#include "apps/reader/Files.h"
#include "apps/reader/FrontPage.h"
#include "apps/reader/Text.h"

namespace paperloom::reader {
namespace {

constexpr std::string_view numbersFile = "front-page";

}  // namespace

void printJSON(Host& host, JSON json, const Provenance& provenance) {
  addProvenance(json, provenance);
  host.output().beginPage();
  host.output().line(dump(json));
}

void printProvenance(Host& host, const Provenance& provenance) {
  host.output().flush();
  std::string text = describe(provenance);
  text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  const Terminal terminal = Terminal::of(STDERR_FILENO);
  const Style style(terminal);
  for (const std::string& line : wrap(text, terminal.interactive ? terminal.columns : 1000)) {
    std::cerr << style.dim(line) << "\n";
  }
}

void printNumberedFrontPage(Host& host, const StreamProtocol& stream) {
  std::string lines;
  for (const auto& card : cardsOf(stream)) lines += card->URL().absoluteString() + "\n";
  try {
    writeWholeFile(host.file(numbersFile), lines, 0600, Durable::no);
  } catch (const Failure&) {
    // The page can be read all the same; only its numbers mean nothing.
  }
  printFrontPage(host.output(), stream);
  if (host.output().terminal().interactive) {
    host.output().sentence(host.style().dim("Read a story by its number: paperloom article 1"));
  }
}

std::optional<std::string> numberedCard(const Host& host, std::size_t number) {
  const auto bytes = readOwnFile(host.file(numbersFile));
  std::string_view rest = bytes ? std::string_view(*bytes) : std::string_view();
  for (std::size_t line = 1; !rest.empty(); ++line) {
    const std::string_view url = rest.substr(0, rest.find('\n'));
    if (line == number) return std::string(url);
    rest.remove_prefix(std::min(rest.size(), url.size() + 1));
  }
  return {};
}

}  // namespace paperloom::reader
