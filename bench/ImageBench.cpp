// What a photograph costs when it is decoded to the size that a host draws, beside the whole of it.

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/Ratios.h"
#include "bench/peers/ImagePeers.h"
#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/network/DataCoordinator.h"
#include "paperloom/platform/DispatchQueue.h"
#include "paperloom/platform/ImageDecoder.h"

#include <jpeglib.h>

namespace paperloom::bench {
namespace {

constexpr int width = 4000;
constexpr int height = 3000;
constexpr ImageSize drawn{400, 400};

// Of twelve megapixels, with something to see at every scale.
const std::string& photograph() {
  static const std::string file = [] {
    jpeg_compress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&info, &out, &size);
    info.image_width = width;
    info.image_height = height;
    info.input_components = 3;
    info.in_color_space = JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_start_compress(&info, TRUE);
    std::vector<JSAMPLE> row(std::size_t{width} * 3);
    for (unsigned y = 0; y < height; ++y) {
      for (unsigned x = 0; x < width * 3; ++x) {
        row[x] = static_cast<JSAMPLE>((x * y >> 14U) + (x ^ y) % 5 + y / 16);
      }
      JSAMPROW rows = row.data();
      jpeg_write_scanlines(&info, &rows, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    std::string bytes(reinterpret_cast<char*>(out), size);
    std::free(out);
    return bytes;
  }();
  return file;
}

void decodeWhole(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(StandardImageDecoder().decode(photograph()));
}

void decodeToFit(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(StandardImageDecoder().decodeToFit(photograph(), drawn));
  }
}

void scaledBy(benchmark::State& state, const ImagePeer& peer) {
  for (auto _ : state) {
    if (!peer.scales(photograph(), drawn.width, drawn.height)) state.SkipWithError("no picture");
  }
}

// From the call to the callback, of a picture that has been shown before.
void showAgain(benchmark::State& state) {
  const auto cache = std::make_shared<URLCache>(64 << 20, 0, "");
  const URL url = *URL::parse("http://127.0.0.1:9/picture.jpg");
  const Date now = currentDate();
  const HTTPHeaders fields{{"Content-Type", "image/jpeg"},
                           {"ETag", "\"bbbed9cd9a775c55\""},
                           {"Cache-Control", "max-age=86400"},
                           {"Vary", "Accept-Encoding"}};
  cache->storeCachedResponse({{url, 200, fields}, Data(photograph()), now, now}, URLRequest(url));
  DataCoordinator coordinator(std::make_shared<ContentSessionManager>(cache));
  const auto show = [&] {
    bool shown = false;
    coordinator.requestImageFromURL(url, drawn, [&](const auto&) { shown = true; });
    while (!shown) DispatchQueue::main().runPending();
  };
  show();
  for (auto _ : state) show();
}

// The memory in KB that a process of its own needs on top of what it had.
template <class Work>
double peakOf(Work work) {
  const pid_t child = fork();
  if (child == 0) {
    rusage before{};
    rusage after{};
    getrusage(RUSAGE_SELF, &before);
    work();
    getrusage(RUSAGE_SELF, &after);
    std::_Exit(static_cast<int>(std::min(255L, (after.ru_maxrss - before.ru_maxrss) / 256)));
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WEXITSTATUS(status) * 256.0;
}

}  // namespace
}  // namespace paperloom::bench

int main(int argc, char** argv) {
  using namespace paperloom;
  using namespace paperloom::bench;
  photograph();
  const double whole = peakOf([] { StandardImageDecoder().decode(photograph()); });
  std::printf("a photograph of %zu KB\n", photograph().size() / 1024);
  const double fitted = peakOf([] { StandardImageDecoder().decodeToFit(photograph(), drawn); });

  using benchmark::RegisterBenchmark;
  RegisterBenchmark("PhotographWhole", decodeWhole)->Unit(benchmark::kMillisecond);
  RegisterBenchmark("PhotographToFit", decodeToFit)->Unit(benchmark::kMillisecond);
  for (const ImagePeer& peer : imagePeers()) {
    RegisterBenchmark(peer.name, scaledBy, peer)->Unit(benchmark::kMillisecond);
  }
  RegisterBenchmark("ShownAgain", showAgain)->Unit(benchmark::kMicrosecond);
  benchmark::Initialize(&argc, argv);
  BestTimes best;  // a peer scales on several threads
  benchmark::RunSpecifiedBenchmarks(&best);
  const double toFit = best.of("PhotographToFit");
  printRatio("photograph-12MP-at-400-pixels/whole", toFit, best.of("PhotographWhole"), "<= 0.3");
  for (const ImagePeer& peer : imagePeers()) {
    printRatio((std::string("photograph-12MP-at-400-pixels/") + peer.name).c_str(), toFit,
               best.of(peer.name), "<= 1");
  }
  printRatio("picture-shown-again-us", best.of("ShownAgain") * 1e6, "< 5");
  printRatio("photograph-12MP-at-400-pixels/whole-peak-memory", fitted / whole, "<= 0.05");
}
