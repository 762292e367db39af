#include "apps/reader/CommandInfo.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <numeric>

#include "paperloom/platform/NearestName.h"

namespace paperloom::reader {
namespace {

constexpr char separator = '|';

std::vector<std::string> split(std::string_view text) {
  std::vector<std::string> words;
  while (!text.empty()) {
    const std::string_view word = text.substr(0, text.find(separator));
    words.emplace_back(word);
    text.remove_prefix(std::min(text.size(), word.size() + 1));
  }
  return words;
}

std::string upperCase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

OptionInfo describe(const CLI::Option& option) {
  OptionInfo info;
  for (const auto& name : option.get_snames()) info.names.push_back("-" + name);
  for (const auto& name : option.get_lnames()) info.names.push_back("--" + name);
  info.text = option.get_description();
  info.group = option.get_group();
  info.required = option.get_required();
  info.repeated = option.get_expected_max() > 1;
  if (option.get_items_expected_max() == 0) return info;  // a flag
  const std::string type = option.get_type_name();
  if (type.find(separator) != std::string::npos) info.choices = split(type);
  info.value = option.get_option_text();
  if (info.value.empty()) {
    info.value = info.names.empty() ? upperCase(option.get_name(true)) : type;
  }
  return info;
}

}  // namespace

CommandInfo describe(const CLI::App& app) {
  CommandInfo info{app.get_name(), app.get_description(), app.get_group(), {}, {}, {}};
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group().empty()) continue;
    (option->get_positional() ? info.arguments : info.options).push_back(describe(*option));
  }
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    info.commands.push_back(describe(*command));
  }
  return info;
}

CLI::Option* oneOf(CLI::Option* option, const std::vector<std::string>& choices) {
  option->type_name(fmt::format("{}", fmt::join(choices, std::string(1, separator))));
  return option->check(CLI::Validator(
      [choices](std::string& value) -> std::string {
        if (std::find(choices.begin(), choices.end(), value) != choices.end()) return "";
        return fmt::format("{} is not {}{}", value, alternatives(choices), guess(value, choices));
      },
      ""));
}

const Units timeUnits = {{"s", 1}, {"m", 60}, {"h", 3'600}, {"d", 86'400}};
const Units byteUnits = {{"KB", 1'000}, {"MB", 1'000'000}, {"GB", 1'000'000'000}};

CLI::Option* amount(CLI::Option* option, Units units) {
  return option->transform(CLI::Validator(
      [units = std::move(units)](std::string& value) -> std::string {
        std::int64_t number = -1;
        const char* const end = value.data() + value.size();
        const auto [unit, error] = std::from_chars(value.data(), end, number);
        const auto factor = units.find(std::string(unit, end));
        const bool isKnown = unit == end || factor != units.end();
        const std::int64_t each = unit == end || !isKnown ? 1 : factor->second;
        if (error != std::errc() || number < 0 || !isKnown ||
            number > std::numeric_limits<std::int64_t>::max() / each) {
          std::vector<std::string> names;
          for (const auto& [name, size] : units) names.push_back(name);
          return fmt::format("{} is not a number{}", value,
                             names.empty() ? "" : ", alone or with " + alternatives(names));
        }
        value = std::to_string(number * each);
        return "";
      },
      ""));
}

std::string alternatives(const std::vector<std::string>& words) {
  std::string text;
  for (std::size_t i = 0; i < words.size(); ++i) {
    text += (i == 0 ? "" : i + 1 < words.size() ? ", " : " or ") + words[i];
  }
  return text;
}

std::string guess(const std::string& word, const std::vector<std::string>& names) {
  const std::string best = nearestName(word, names);
  return best.empty() ? "" : fmt::format("; did you mean {}?", best);
}

std::string labelOf(const OptionInfo& option) {
  std::string label = fmt::format("{}", fmt::join(option.names, ", "));
  if (option.value.empty()) return label;
  if (!label.empty()) label += " ";
  return label + option.value + (option.names.empty() && option.repeated ? "..." : "");
}

std::string textOf(const OptionInfo& option) {
  if (option.choices.empty()) return option.text;
  return option.text + ": " + alternatives(option.choices);
}

std::string usageOf(const std::string& path, const CommandInfo& command) {
  std::string text = path;
  const bool hasOptions =
      std::any_of(command.options.begin(), command.options.end(),
                  [](const OptionInfo& option) { return option.names.back() != "--help"; });
  if (hasOptions) text += " [OPTIONS]";
  for (const OptionInfo& option : command.options) {
    if (option.required) text += " " + labelOf(option);
  }
  for (const OptionInfo& argument : command.arguments) {
    text += argument.required ? " " + labelOf(argument) : " [" + labelOf(argument) + "]";
  }
  if (!command.commands.empty()) text += path == command.name ? " COMMAND" : " [COMMAND]";
  return text;
}

}  // namespace paperloom::reader
