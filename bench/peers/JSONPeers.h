#pragma once

#include <string>
#include <vector>

namespace paperloom::bench {

// A decoder of JSON that is built in, and whether it takes a text: into its own values and no
// further.
struct JSONPeer {
  const char* name;
  bool (*decodes)(const std::string& text);
};

std::vector<JSONPeer> jsonPeers();

}  // namespace paperloom::bench
