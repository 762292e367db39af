// A host that knows only what was installed.
#include <cstdio>
#include <cstring>

#include "paperloom/Version.h"
#include "paperloom/network/DataCoordinator.h"

int main() {
  auto& coordinator = paperloom::DataCoordinator::shared();
  coordinator.setBaseURL(paperloom::URL::parse("http://127.0.0.1:9"));
  std::size_t sections = 0;
  coordinator.requestOfflineStream(
      [&](auto stream) { sections = stream->sections().size(); },
      [](const paperloom::PaperloomError& error) { std::puts(error.details().c_str()); });
  const bool hasVersion =
      std::strlen(reinterpret_cast<const char*>(PaperloomVersionString)) >= 5 &&
      PaperloomVersionNumber > 0;
  return sections > 0 && hasVersion ? 0 : 1;
}
