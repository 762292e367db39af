#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "apps/reader/CommandInfo.h"
#include "apps/reader/Host.h"

namespace paperloom::reader {

// What the command line asks for, run once it has been read whole.
using Action = std::function<void(Host&)>;

// Each adds a group of commands to the command line; the one that is given sets `action`. The help
// texts live with the commands.
void addReadingCommands(CLI::App& app, Action& action);
void addWarmCommand(CLI::App& app, Action& action);
void addCacheCommands(CLI::App& app, Action& action);
void addParseCommand(CLI::App& app, Action& action);
void addCheckCommand(CLI::App& app, Action& action);
void addServiceCommands(CLI::App& app, Action& action);
void addAccountCommands(CLI::App& app, Action& action);
void addDemoCommand(CLI::App& app, Action& action);

inline constexpr auto readingGroup = "Reading";
inline constexpr auto cacheGroup = "Cache";
inline constexpr auto toolsGroup = "Tools";

}  // namespace paperloom::reader
