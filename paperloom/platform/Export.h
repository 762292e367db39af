#pragma once

// Marks what the shared library exports; everything else stays hidden. The mark is the same for
// the library and its users, so that type information is shared between them.
#define PAPERLOOM_EXPORT __attribute__((visibility("default")))
