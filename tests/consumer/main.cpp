// A host that knows only what was installed.
#include <cstdio>
#include <string_view>

#include "paperloom/Version.h"
#include "paperloom/network/DataCoordinator.h"

#if !PAPERLOOM_VERSION_AT_LEAST(1, 0) || PAPERLOOM_VERSION_AT_LEAST(PAPERLOOM_VERSION_MAJOR + 1, 0)
#error "the version's macros do not compare"
#endif

int main() {
  auto& coordinator = paperloom::DataCoordinator::shared();
  coordinator.setBaseURL(paperloom::URL::parse("http://127.0.0.1:9"));
  std::size_t sections = 0;
  coordinator.requestOfflineStream(
      [&](auto stream) { sections = stream->sections().size(); },
      [](const paperloom::PaperloomError& error) { std::puts(error.details().c_str()); });
  const std::string_view running(reinterpret_cast<const char*>(PaperloomVersionString));
  return sections > 0 && running == PAPERLOOM_VERSION && PaperloomVersionNumber >= 1 ? 0 : 1;
}
