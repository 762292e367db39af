#pragma once

#include <string>
#include <vector>

namespace paperloom::bench {

// A reader of pictures that scales while it reads, and whether it makes one of at most that size
// out of a file's bytes.
struct ImagePeer {
  const char* name;
  bool (*scales)(const std::string& file, int width, int height);
};

std::vector<ImagePeer> imagePeers();

}  // namespace paperloom::bench
