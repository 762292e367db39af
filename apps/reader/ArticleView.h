#pragma once

#include "apps/reader/Host.h"

namespace paperloom::reader {

// What the reader may see.
struct Access {
  bool loggedIn = false;
  bool premium = false;
};

// Whether the article's wall stands in this reader's way.
bool isWalled(const ArticleProtocol& article, const Access& access);

// Prints an article for people: behind a wall, its beginning and the wall. Pictures are requested
// only where the terminal can show them, and not at all with `pictures` false.
void printArticle(Host& host, const ArticleProtocol& article, const Access& access, bool pictures);

}  // namespace paperloom::reader
