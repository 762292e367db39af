// The front page with its pictures in a Qt window: qt [URL]. `paperloom serve --port 8080` is a
// service to try it with.
#include <QApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPixmap>
#include <QPointer>
#include <QScrollArea>
#include <QSocketNotifier>
#include <QVBoxLayout>

#include "paperloom/network/DataCoordinator.h"
#include "paperloom/platform/DispatchQueue.h"

namespace {

constexpr int pictureWidth = 240;

// The smallest rendition that fills the width, else the largest.
const paperloom::URL& pictureURL(const paperloom::Asset& asset) {
  for (const auto& rendition : asset.renditions) {
    if (rendition.width >= pictureWidth) return rendition.url;
  }
  return asset.renditions.back().url;
}

void addCard(QVBoxLayout* page, const paperloom::ArticleHeaderProtocol& card) {
  auto* picture = new QLabel;
  picture->setFixedWidth(pictureWidth);
  auto* headline = new QLabel(QString::fromStdString(card.headline()));
  headline->setWordWrap(true);
  headline->setStyleSheet("font-size: 18px; font-weight: bold");
  auto* row = new QHBoxLayout;
  row->addWidget(picture);
  row->addWidget(headline, 1);
  page->addLayout(row);
  if (!card.cardAsset()) return;
  // The answer comes on the main queue, which is this thread; the label may be gone by then.
  paperloom::DataCoordinator::shared().requestImageFromURL(
      pictureURL(*card.cardAsset()),
      [label = QPointer<QLabel>(picture)](std::shared_ptr<const paperloom::Image> image) {
        if (!label) return;
        const QImage pixels(image->pixels().data(), image->width(), image->height(),
                            QImage::Format_RGBA8888);
        label->setPixmap(
            QPixmap::fromImage(pixels).scaledToWidth(pictureWidth, Qt::SmoothTransformation));
      });
}

void showStream(QVBoxLayout* page, const paperloom::StreamProtocol& stream) {
  for (const auto& section : stream.sections()) {
    auto* name = new QLabel(QString::fromStdString(section->uid()).toUpper());
    name->setStyleSheet("color: #7f4f24; font-size: 13px");
    page->addWidget(name);
    for (const auto& card : section->articleHeaders()) addCard(page, *card);
  }
}

}  // namespace

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  auto& mainQueue = paperloom::DispatchQueue::main();
  QSocketNotifier notifier(mainQueue.fileDescriptor(), QSocketNotifier::Read);
  QObject::connect(&notifier, &QSocketNotifier::activated, [&] { mainQueue.runPending(); });

  QScrollArea window;
  auto* page = new QVBoxLayout;
  auto* content = new QWidget;
  content->setLayout(page);
  window.setWidget(content);
  window.setWidgetResizable(true);
  window.setWindowTitle("The front page");
  window.resize(640, 800);
  window.show();

  auto& news = paperloom::DataCoordinator::shared();
  news.setBaseURL(paperloom::URL::parse(argc > 1 ? argv[1] : "http://127.0.0.1:8080"));
  // Streams are answered on the session's thread: from there to this one by the main queue.
  news.requestStreamForSections(
      {"news", "sport"}, [&](auto stream) { mainQueue.async([=] { showStream(page, *stream); }); },
      [&](const paperloom::PaperloomError& error) {
        mainQueue.async(
            [=] { page->addWidget(new QLabel(QString::fromStdString(error.details()))); });
      });
  return QApplication::exec();
}
