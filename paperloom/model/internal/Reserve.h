#pragma once

#include <algorithm>
#include <cstddef>

#include "paperloom/platform/JSON.h"

namespace paperloom {

// Makes room for the records of a list, but for no more than usual documents hold: how long a list
// claims to be is the sender's choice, and most of it may turn out to be no records at all.
template <class Records>
void reserveFor(Records& records, const JSONObjectList& list) {
  constexpr std::size_t usual = 64;
  records.reserve(std::min(list.size(), usual));
}

}  // namespace paperloom
