#pragma once

#include <string>

#include "paperloom/network/Provenance.h"

namespace paperloom::reader {

// "network", "cache", "revalidated", "stale" or "library"
std::string word(const Provenance& provenance);

// For people: "from the cache, fetched 3 minutes ago"
std::string sentence(const Provenance& provenance);

}  // namespace paperloom::reader
