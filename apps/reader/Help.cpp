#include "apps/reader/Help.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/reader/Text.h"

namespace paperloom::reader {
namespace {

struct Row {
  std::string label;
  std::string text;
};

class Page {
 public:
  explicit Page(int width) : width_(std::max(width, 20)) {}

  std::string text() && { return std::move(text_); }

  void blank() { text_ += "\n"; }

  // Lines after the first stand below the words, not below `lead`.
  void paragraph(std::string_view words, std::string lead = {}) {
    const int hanging = displayWidth(lead);
    for (const std::string& line : wrap(words, width_ - hanging)) {
      text_ += lead + line + "\n";
      lead = spaces(hanging);
    }
  }

  // Labels beside their texts, or above them where there is little room.
  void rows(std::string_view title, const std::vector<Row>& rows) {
    if (rows.empty()) return;
    constexpr int widest = 26;
    const int most = width_ < 60 ? width_ / 3 : widest;
    int label = 0;
    bool above = false;
    for (const Row& row : rows) {
      const int columns = displayWidth(row.label);
      if (columns <= most) label = std::max(label, columns);
      above = above || (columns > most && width_ < 60);
    }
    blank();
    text_ += std::string(title) + ":\n";
    for (const Row& row : rows) put(row, above ? 4 : label + 4, above);
  }

 private:
  static std::string spaces(int count) { return std::string(static_cast<std::size_t>(count), ' '); }

  void put(const Row& row, int column, bool above) {
    const int taken = 2 + displayWidth(row.label);
    const bool beside = !above && taken + 2 <= column;
    for (const std::string& line : wrap(row.label, width_ - 2)) text_ += "  " + line + "\n";
    if (row.text.empty()) return;
    if (beside) text_.back() = ' ';
    std::string indent = spaces(beside ? column - taken - 1 : column);
    for (const std::string& line : wrap(row.text, width_ - column)) {
      text_ += indent + line + "\n";
      indent = spaces(column);
    }
  }

  int width_;
  std::string text_;
};

template <class Item, class Make>
void grouped(Page& page, const std::vector<Item>& items, std::string_view unnamed, Make row) {
  std::vector<std::string> groups;
  for (const Item& item : items) {
    if (std::find(groups.begin(), groups.end(), item.group) == groups.end()) {
      groups.push_back(item.group);
    }
  }
  for (const std::string& group : groups) {
    std::vector<Row> rows;
    for (const Item& item : items) {
      if (item.group == group) rows.push_back(row(item));
    }
    page.rows(group == "Subcommands" ? unnamed : std::string_view(group), rows);
  }
}

Row rowOf(const OptionInfo& option) { return {labelOf(option), textOf(option)}; }

void firstSteps(Page& page) {
  page.rows("First steps", {{"paperloom demo", "a guided tour"},
                            {"paperloom stream", "today's front page"},
                            {"paperloom article 3", "the third story of the page printed last"},
                            {"paperloom help COMMAND", "what a command understands"}});
  page.blank();
  page.paragraph("Exit status: 0 done, 1 failed, 2 wrong usage, 130 ended by Ctrl-C.");
}

}  // namespace

std::string helpText(const std::string& path, const CommandInfo& command, int width) {
  Page page(width);
  page.paragraph(command.text);
  page.blank();
  page.paragraph(usageOf(path, command), "Usage: ");
  std::vector<Row> arguments;
  for (const OptionInfo& argument : command.arguments) arguments.push_back(rowOf(argument));
  page.rows("Arguments", arguments);
  grouped(page, command.commands, "Commands", [](const CommandInfo& each) {
    return Row{each.name, each.text};
  });
  grouped(page, command.options, "Options", rowOf);
  if (path == command.name) {
    firstSteps(page);
  } else {
    page.blank();
    page.paragraph("`paperloom help` lists the options that every command understands.");
  }
  return std::move(page).text();
}

}  // namespace paperloom::reader
