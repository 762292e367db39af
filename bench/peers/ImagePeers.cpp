#include "bench/peers/ImagePeers.h"

#ifdef PAPERLOOM_BENCH_GDK_PIXBUF
#include <gdk-pixbuf/gdk-pixbuf.h>
#endif
#ifdef PAPERLOOM_BENCH_QT_GUI
#include <QBuffer>
#include <QImageReader>
#endif

namespace paperloom::bench {
namespace {

#ifdef PAPERLOOM_BENCH_GDK_PIXBUF
bool gdkPixbufScales(const std::string& file, int width, int height) {
  GInputStream* stream = g_memory_input_stream_new_from_data(
      file.data(), static_cast<gssize>(file.size()), nullptr);
  GdkPixbuf* picture =
      gdk_pixbuf_new_from_stream_at_scale(stream, width, height, TRUE, nullptr, nullptr);
  g_object_unref(stream);
  if (picture == nullptr) return false;
  g_object_unref(picture);
  return true;
}
#endif

#ifdef PAPERLOOM_BENCH_QT_GUI
bool qtScales(const std::string& file, int width, int height) {
  QByteArray bytes = QByteArray::fromRawData(file.data(), static_cast<qsizetype>(file.size()));
  QBuffer buffer(&bytes);
  QImageReader reader(&buffer);
  reader.setAutoTransform(true);
  reader.setScaledSize(reader.size().scaled(width, height, Qt::KeepAspectRatio));
  return !reader.read().isNull();
}
#endif

}  // namespace

std::vector<ImagePeer> imagePeers() {
  return {
#ifdef PAPERLOOM_BENCH_GDK_PIXBUF
      {"gdk-pixbuf", &gdkPixbufScales},
#endif
#ifdef PAPERLOOM_BENCH_QT_GUI
      {"qt", &qtScales},
#endif
  };
}

}  // namespace paperloom::bench
