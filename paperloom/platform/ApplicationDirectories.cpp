#include "paperloom/platform/ApplicationDirectories.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>
#include <utility>

#include "paperloom/platform/Guarded.h"
#include "paperloom/platform/internal/base/PrivateFolders.h"

namespace paperloom {
namespace {

struct Choices {
  std::string name = "paperloom";
  std::filesystem::path caches;
  std::filesystem::path settings;
  std::filesystem::path data;
};

Guarded<Choices>& choices() {
  static auto* instance = new Guarded<Choices>;
  return *instance;
}

std::filesystem::path absoluteVariable(const char* variable) {
  const char* value = std::getenv(variable);
  std::filesystem::path path = value != nullptr ? value : "";
  return path.is_absolute() ? path : std::filesystem::path();
}

std::filesystem::path homeDirectory() {
  if (auto home = absoluteVariable("HOME"); !home.empty()) return home;
  std::array<char, 16384> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found) {
    return {};
  }
  const std::filesystem::path home = found->pw_dir != nullptr ? found->pw_dir : "";
  return home.is_absolute() ? home : std::filesystem::path();
}

std::filesystem::path directory(std::filesystem::path Choices::*chosen, const char* variable,
                                const char* underHome) {
  const Choices all = choices().get();
  std::filesystem::path result = all.*chosen;
  if (result.empty()) {
    auto base = absoluteVariable(variable);
    if (base.empty()) {
      const auto home = homeDirectory();
      if (home.empty()) return {};
      base = home / underHome;
    }
    result = base / all.name;
  }
  internal::createPrivateFolders(result);
  return result;
}

void choose(std::filesystem::path Choices::*field, std::filesystem::path path) {
  std::error_code error;
  if (!path.empty()) {
    auto absolute = std::filesystem::absolute(path, error);
    if (!error) path = std::move(absolute);
  }
  choices().change([&](Choices& all) { all.*field = std::move(path); });
}

}  // namespace

bool ApplicationDirectories::setApplicationName(std::string_view name) {
  if (name.empty() || name == "." || name == "..") return false;
  if (name.find('/') != std::string_view::npos || name.find('\0') != std::string_view::npos) {
    return false;
  }
  choices().change([&](Choices& all) { all.name = name; });
  return true;
}

void ApplicationDirectories::setCachesDirectory(std::filesystem::path directory) {
  choose(&Choices::caches, std::move(directory));
}

void ApplicationDirectories::setSettingsDirectory(std::filesystem::path directory) {
  choose(&Choices::settings, std::move(directory));
}

void ApplicationDirectories::setDataDirectory(std::filesystem::path directory) {
  choose(&Choices::data, std::move(directory));
}

std::filesystem::path ApplicationDirectories::cachesDirectory() {
  return directory(&Choices::caches, "XDG_CACHE_HOME", ".cache");
}

std::filesystem::path ApplicationDirectories::settingsDirectory() {
  return directory(&Choices::settings, "XDG_CONFIG_HOME", ".config");
}

std::filesystem::path ApplicationDirectories::dataDirectory() {
  return directory(&Choices::data, "XDG_DATA_HOME", ".local/share");
}

}  // namespace paperloom
