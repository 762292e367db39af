#define QT_NO_KEYWORDS

#include <QCoreApplication>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkDiskCache>
#include <QNetworkReply>

#include "bench/peers/HTTPClient.h"

namespace paperloom::bench {
namespace {

void needApplication() {
  static int count = 1;
  static char name[] = "bench";
  static char* arguments[] = {name, nullptr};
  static const auto& application = *new QCoreApplication(count, arguments);
  static_cast<void>(application);
}

class QtClient : public HTTPClient {
 public:
  explicit QtClient(const ClientOptions& options) {
    if (options.cacheFolder.empty()) return;
    auto* cache = new QNetworkDiskCache(&manager_);
    cache->setCacheDirectory(QString::fromStdString(options.cacheFolder.string()));
    cache->setMaximumCacheSize(qint64{200} << 20);
    manager_.setCache(cache);
  }

  std::size_t get(const std::vector<std::string>& urls, int width) override {
    urls_ = &urls;
    next_ = 0;
    open_ = urls.size();
    bytes_ = 0;
    for (int i = 0; i < width; ++i) startNext();
    loop_.exec();
    return bytes_;
  }

 private:
  void startNext() {
    const std::size_t index = next_++;
    if (index >= urls_->size()) return;
    QNetworkRequest request(QUrl(QString::fromStdString((*urls_)[index])));
    QNetworkReply* reply = manager_.get(request);
    QObject::connect(reply, &QNetworkReply::finished, &loop_, [this, reply] {
      bytes_ += static_cast<std::size_t>(reply->readAll().size());
      reply->deleteLater();
      startNext();
      if (--open_ == 0) loop_.quit();
    });
  }

  QNetworkAccessManager manager_;
  QEventLoop loop_;
  const std::vector<std::string>* urls_ = nullptr;
  std::size_t next_ = 0;
  std::size_t open_ = 0;
  std::size_t bytes_ = 0;
};

}  // namespace

std::unique_ptr<HTTPClient> makeQtClient(const ClientOptions& options) {
  needApplication();
  return std::make_unique<QtClient>(options);
}

}  // namespace paperloom::bench
