// The front page and its first story as text: console [URL]. `paperloom serve --port 8080` is a
// service to try it with.
#include <cstdio>
#include <memory>
#include <variant>

#include "paperloom/network/DataCoordinator.h"
#include "paperloom/platform/DispatchQueue.h"

namespace {

using paperloom::DispatchQueue;

void printArticle(const paperloom::ArticleProtocol& article) {
  std::printf("\n%s\n", article.headline().c_str());
  for (const auto& item : article.contents()) {
    if (const auto* body = std::get_if<paperloom::ArticleContentItem::Body>(&item.value)) {
      std::printf("\n%s\n", body->text.c_str());
    }
  }
}

// The address of the first story; null when there is none.
const paperloom::URL* printFrontPage(const paperloom::StreamProtocol& stream) {
  const paperloom::URL* first = nullptr;
  for (const auto& section : stream.sections()) {
    std::printf("\n%s\n", section->uid().c_str());
    for (const auto& card : section->articleHeaders()) {
      std::printf("  %s\n", card->headline().c_str());
      if (first == nullptr) first = &card->URL();
    }
  }
  return first;
}

}  // namespace

int main(int argc, char** argv) {
  auto& news = paperloom::DataCoordinator::shared();
  news.setBaseURL(paperloom::URL::parse(argc > 1 ? argv[1] : "http://127.0.0.1:8080"));

  int status = 0;
  const auto fail = [&](const paperloom::PaperloomError& error) {
    DispatchQueue::main().async([&status, error] {
      std::fprintf(stderr, "error: %s\n", error.details().c_str());
      status = 1;
      DispatchQueue::main().stop();
    });
  };
  // A stream is answered on the session's thread, which hands it on to this one; an article comes
  // on the main queue, which this thread runs.
  news.requestStreamForSections(
      {"news", "sport", "culture"},
      [&](std::shared_ptr<const paperloom::StreamProtocol> stream) {
        DispatchQueue::main().async([&, stream] {
          const paperloom::URL* first = printFrontPage(*stream);
          if (first == nullptr) return DispatchQueue::main().stop();
          news.requestArticle(
              *first,
              [](std::shared_ptr<const paperloom::ArticleProtocol> article) {
                printArticle(*article);
                DispatchQueue::main().stop();
              },
              fail);
        });
      },
      fail);
  DispatchQueue::main().run();
  return status;
}
