#pragma once

#include <string_view>

namespace paperloom::reader {

// Shows a page in the person's pager ($PAGER, or `less -FRX`) and waits until it has been left;
// false, with nothing shown, when there is none or it cannot be started.
bool showInPager(std::string_view page);

}  // namespace paperloom::reader
