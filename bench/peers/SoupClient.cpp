#include <libsoup/soup.h>

#include "bench/peers/HTTPClient.h"

namespace paperloom::bench {
namespace {

class SoupClient : public HTTPClient {
 public:
  explicit SoupClient(const ClientOptions& options) {
    session_ = soup_session_new_with_options("max-conns", 64, "max-conns-per-host", 16, nullptr);
    if (options.cacheFolder.empty()) return;
    cache_ = soup_cache_new(options.cacheFolder.c_str(), SOUP_CACHE_SINGLE_USER);
    soup_cache_set_max_size(cache_, 200U << 20);
    soup_session_add_feature(session_, SOUP_SESSION_FEATURE(cache_));
    soup_cache_load(cache_);
  }
  ~SoupClient() override {
    if (cache_ != nullptr) {
      soup_cache_flush(cache_);
      soup_cache_dump(cache_);  // the index by which the next finds the files
      g_object_unref(cache_);
    }
    g_object_unref(session_);
    g_main_loop_unref(loop_);
  }
  SoupClient(const SoupClient&) = delete;
  SoupClient& operator=(const SoupClient&) = delete;

  std::size_t get(const std::vector<std::string>& urls, int width) override {
    urls_ = &urls;
    next_ = 0;
    open_ = urls.size();
    bytes_ = 0;
    for (int i = 0; i < width; ++i) startNext();
    g_main_loop_run(loop_);
    return bytes_;
  }

 private:
  void startNext() {
    const std::size_t index = next_++;
    if (index >= urls_->size()) return;
    SoupMessage* message = soup_message_new("GET", (*urls_)[index].c_str());
    soup_session_send_and_read_async(session_, message, G_PRIORITY_DEFAULT, nullptr, &onAnswer,
                                     this);
    g_object_unref(message);
  }

  static void onAnswer(GObject*, GAsyncResult* result, void* self) {
    auto& client = *static_cast<SoupClient*>(self);
    GBytes* body = soup_session_send_and_read_finish(client.session_, result, nullptr);
    if (body != nullptr) {
      client.bytes_ += g_bytes_get_size(body);
      g_bytes_unref(body);
    }
    client.startNext();
    if (--client.open_ == 0) g_main_loop_quit(client.loop_);
  }

  GMainLoop* loop_ = g_main_loop_new(nullptr, FALSE);
  SoupSession* session_ = nullptr;
  SoupCache* cache_ = nullptr;
  const std::vector<std::string>* urls_ = nullptr;
  std::size_t next_ = 0;
  std::size_t open_ = 0;
  std::size_t bytes_ = 0;
};

}  // namespace

std::unique_ptr<HTTPClient> makeSoupClient(const ClientOptions& options) {
  return std::make_unique<SoupClient>(options);
}

}  // namespace paperloom::bench
