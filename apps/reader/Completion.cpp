#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <map>

#include "apps/reader/Help.h"

namespace paperloom::reader {
namespace {

// Every command with what is typed to get there: "", "stream", "cache explain".
void forEachCommand(const CommandInfo& command, const std::string& path,
                    const std::function<void(const std::string&, const CommandInfo&)>& visit) {
  visit(path, command);
  for (const CommandInfo& each : command.commands) {
    forEachCommand(each, path.empty() ? each.name : path + " " + each.name, visit);
  }
}

std::string joined(const std::vector<std::string>& words) {
  return fmt::format("{}", fmt::join(words, " "));
}

bool takesFile(const OptionInfo& option) { return option.value == "FILE"; }
bool takesFolder(const OptionInfo& option) { return option.value == "DIR"; }

// The inside of a quoted word of every shell.
std::string insideQuotes(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '\'') {
      result += "'\\''";
    } else {
      result += c;
    }
  }
  return result;
}

// The rest of `paperloom help ...` and the commands below `command`.
std::vector<std::string> wordsAfter(const CommandInfo& program, const CommandInfo& command) {
  std::vector<std::string> words;
  for (const CommandInfo& each : command.name == "help" ? program.commands : command.commands) {
    words.push_back(each.name);
  }
  for (const OptionInfo& argument : command.arguments) {
    words.insert(words.end(), argument.choices.begin(), argument.choices.end());
  }
  return words;
}

std::string bash(const CommandInfo& program) {
  std::map<std::string, std::string> values;  // by what they complete to
  std::string words;
  std::string options;
  std::string paths;
  forEachCommand(program, "", [&](const std::string& path, const CommandInfo& command) {
    std::vector<std::string> names;
    bool files = false;
    for (const OptionInfo& argument : command.arguments) files = files || takesFile(argument);
    for (const OptionInfo& option : command.options) {
      names.insert(names.end(), option.names.begin(), option.names.end());
      if (option.value.empty()) continue;
      std::string& same = values[takesFile(option)        ? "_paperloom_take -f"
                                 : takesFolder(option)    ? "_paperloom_take -d"
                                 : option.choices.empty() ? ":"
                                                          : fmt::format("_paperloom_take -W '{}'",
                                                                        joined(option.choices))];
      for (const std::string& name : option.names) {
        const std::string pattern = "|" + name + "|";
        if ((same + "|").find(pattern) == std::string::npos) same += "|" + name;
      }
    }
    if (!path.empty()) paths += fmt::format("{}'{}'", paths.empty() ? "" : "|", path);
    words +=
        fmt::format("    '{}') words='{}' options='{}'{} ;;\n", path,
                    joined(wordsAfter(program, command)), joined(names), files ? " files=yes" : "");
  });
  for (const OptionInfo& option : program.options) options += " " + joined(option.names);
  std::string takesValue;
  std::string completeValue;
  for (const auto& [command, names] : values) {
    takesValue += names;
    completeValue += fmt::format("    {}) {}; return ;;\n", names.substr(1), command);
  }
  return fmt::format(R"(# bash completion for paperloom; made by `paperloom completion bash`
_paperloom_take() {{
  [[ $1 == -W ]] || compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen "$@" -- "$current")
}}
_paperloom() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD-1]}}
  local path= word words= options= files= skip= given= i
  local IFS=$' \t\n'
  case $previous in
{1}  esac
  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${{COMP_WORDS[i]}}
    if [[ -n $skip ]]; then skip=; continue; fi
    case $word in
      {2}) skip=yes; continue ;;
      -*) continue ;;
    esac
    case "${{path:+$path }}$word" in
      {3}) path="${{path:+$path }}$word" ;;
      *) given=yes ;;
    esac
  done
  case $path in
{0}  esac
  [[ -z $given ]] || words=
  if [[ $current == -* ]]; then words="$options{4}" files=; fi
  _paperloom_take -W "$words"
  [[ -z $files || ${{#COMPREPLY[@]}} -gt 0 ]] || _paperloom_take -f
}}
complete -F _paperloom paperloom
)",
                     words, completeValue, takesValue.substr(1), paths, options);
}

// In zsh a colon and brackets end a description.
std::string zshText(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == ':' || c == '[' || c == ']' || c == '\\') result += '\\';
    result += c;
  }
  return insideQuotes(result);
}

std::string zshValue(const OptionInfo& option) {
  if (option.value.empty()) return "";
  std::string action;
  if (takesFile(option)) action = "_files";
  if (takesFolder(option)) action = "_files -/";
  if (!option.choices.empty()) action = "(" + joined(option.choices) + ")";
  return fmt::format(":{}:{}", zshText(option.value), action);
}

std::string zshOptions(const std::vector<OptionInfo>& options) {
  std::string text;
  for (const OptionInfo& option : options) {
    const std::string once = option.repeated ? "*" : "(" + joined(option.names) + ")";
    for (const std::string& name : option.names) {
      text += fmt::format(" \\\n      '{}{}[{}]{}'", once, name, zshText(option.text),
                          zshValue(option));
    }
  }
  return text;
}

std::string zshDescribe(const std::vector<CommandInfo>& commands) {
  std::string text = "local -a commands; commands=(";
  for (const CommandInfo& each : commands) {
    text += fmt::format("\n      '{}:{}'", each.name, zshText(each.text));
  }
  return text + ")\n      _describe command commands";
}

std::string zsh(const CommandInfo& program) {
  std::string functions;
  forEachCommand(program, "", [&](const std::string& path, const CommandInfo& command) {
    std::string name = "_paperloom" + (path.empty() ? "" : "_" + path);
    std::replace(name.begin(), name.end(), ' ', '_');
    functions += fmt::format("{}() {{\n  local state line; typeset -A opt_args\n", name);
    std::string arguments = zshOptions(command.options);
    if (!path.empty()) arguments += zshOptions(program.options);
    const bool nested = !command.commands.empty() || command.name == "help";
    for (const OptionInfo& argument : command.arguments) {
      if (nested) break;
      arguments +=
          fmt::format(" \\\n      '{}{}'", argument.repeated ? "*" : "", zshValue(argument));
    }
    if (nested) arguments += " \\\n      '1:command:->command' '*::argument:->argument'";
    functions += fmt::format("  _arguments -C -S{}\n", arguments);
    if (nested) {
      functions +=
          fmt::format("  case $state in\n    command)\n      {} ;;\n",
                      zshDescribe(command.name == "help" ? program.commands : command.commands));
      if (!command.commands.empty()) {
        functions += fmt::format(
            "    argument)\n      (( $+functions[{0}_$words[1]] )) && {0}_$words[1] ;;\n", name);
      }
      functions += "  esac\n";
    }
    functions += "}\n\n";
  });
  return "#compdef paperloom\n# made by `paperloom completion zsh`\n\n" + functions +
         "if [ \"$funcstack[1]\" = \"_paperloom\" ]; then\n  _paperloom \"$@\"\nelse\n  compdef "
         "_paperloom paperloom\nfi\n";
}

std::string fishOption(const std::string& condition, const OptionInfo& option) {
  std::string text = "complete -c paperloom" + condition;
  for (const std::string& name : option.names) {
    text += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
  }
  if (takesFile(option)) {
    text += " -r -F";
  } else if (takesFolder(option)) {
    text += " -x -a '(__fish_complete_directories)'";
  } else if (!option.value.empty()) {
    text += " -x";
    if (!option.choices.empty()) text += fmt::format(" -a '{}'", joined(option.choices));
  }
  return text + fmt::format(" -d '{}'\n", insideQuotes(option.text));
}

std::string fish(const CommandInfo& program) {
  std::string text = "# made by `paperloom completion fish`\ncomplete -c paperloom -f\n";
  for (const OptionInfo& option : program.options) text += fishOption("", option);
  forEachCommand(program, "", [&](const std::string& path, const CommandInfo& command) {
    std::string seen = path.empty() ? "__fish_use_subcommand" : "";
    for (std::string_view rest = path; !rest.empty();) {
      const std::string_view word = rest.substr(0, rest.find(' '));
      seen += fmt::format("{}__fish_seen_subcommand_from {}", seen.empty() ? "" : "; and ", word);
      rest.remove_prefix(std::min(rest.size(), word.size() + 1));
    }
    const std::string condition = fmt::format(" -n '{}'", seen);
    if (!path.empty()) {
      for (const OptionInfo& option : command.options) text += fishOption(condition, option);
    }
    for (const OptionInfo& argument : command.arguments) {
      if (takesFile(argument)) text += "complete -c paperloom" + condition + " -F\n";
    }
    std::vector<std::string> names;
    for (const CommandInfo& each : command.commands) names.push_back(each.name);
    const std::string fresh =
        path.empty() || names.empty()
            ? condition
            : fmt::format(" -n '{}; and not __fish_seen_subcommand_from {}'", seen, joined(names));
    for (const CommandInfo& each : command.commands) {
      text += fmt::format("complete -c paperloom{} -a {} -d '{}'\n", fresh, each.name,
                          insideQuotes(each.text));
    }
    if (!command.commands.empty()) return;
    const auto words = wordsAfter(program, command);
    if (!words.empty()) {
      text += fmt::format("complete -c paperloom{} -a '{}'\n", condition, joined(words));
    }
  });
  return text;
}

}  // namespace

std::string completionFor(const std::string& shell, const CommandInfo& program) {
  return shell == "bash" ? bash(program) : shell == "zsh" ? zsh(program) : fish(program);
}

}  // namespace paperloom::reader
