// The front page with its pictures in a GTK window: gtk [URL]. `paperloom serve --port 8080` is a
// service to try it with.
#include <glib-unix.h>
#include <gtk/gtk.h>

#include <memory>
#include <string>

#include "paperloom/network/DataCoordinator.h"
#include "paperloom/platform/DispatchQueue.h"

namespace {

constexpr int pictureWidth = 240;
std::string address = "http://127.0.0.1:8080";

// The smallest rendition that fills the width, else the largest.
const paperloom::URL& pictureURL(const paperloom::Asset& asset) {
  for (const auto& rendition : asset.renditions) {
    if (rendition.width >= pictureWidth) return rendition.url;
  }
  return asset.renditions.back().url;
}

GtkWidget* label(const std::string& text, const char* style) {
  GtkWidget* widget = gtk_label_new(nullptr);
  char* escaped = g_markup_escape_text(text.c_str(), -1);
  char* markup = g_strdup_printf("<span %s>%s</span>", style, escaped);
  gtk_label_set_markup(GTK_LABEL(widget), markup);
  gtk_label_set_wrap(GTK_LABEL(widget), TRUE);
  gtk_label_set_xalign(GTK_LABEL(widget), 0);
  gtk_widget_set_hexpand(widget, TRUE);
  g_free(markup);
  g_free(escaped);
  return widget;
}

// Draws the picture when it comes, on the main queue, which is this thread. The reference keeps the
// widget until then.
void requestPicture(GtkWidget* widget, const paperloom::URL& url) {
  std::shared_ptr<GtkWidget> picture(GTK_WIDGET(g_object_ref(widget)), g_object_unref);
  paperloom::DataCoordinator::shared().requestImageFromURL(
      url, [picture](std::shared_ptr<const paperloom::Image> image) {
        GBytes* pixels = g_bytes_new(image->pixels().data(), image->pixels().size());
        GdkTexture* texture =
            gdk_memory_texture_new(image->width(), image->height(), GDK_MEMORY_R8G8B8A8, pixels,
                                   static_cast<gsize>(image->width()) * 4);
        gtk_picture_set_paintable(GTK_PICTURE(picture.get()), GDK_PAINTABLE(texture));
        gtk_widget_set_size_request(picture.get(), pictureWidth,
                                    pictureWidth * image->height() / image->width());
        g_object_unref(texture);
        g_bytes_unref(pixels);
      });
}

void showStream(GtkBox* page, const paperloom::StreamProtocol& stream) {
  for (const auto& section : stream.sections()) {
    gtk_box_append(page, label(section->uid(), "foreground='#7f4f24'"));
    for (const auto& card : section->articleHeaders()) {
      GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 12);
      GtkWidget* picture = gtk_picture_new();
      gtk_widget_set_size_request(picture, pictureWidth, -1);
      gtk_box_append(GTK_BOX(row), picture);
      gtk_box_append(GTK_BOX(row), label(card->headline(), "size='14pt' weight='bold'"));
      gtk_box_append(page, row);
      if (card->cardAsset()) requestPicture(picture, pictureURL(*card->cardAsset()));
    }
  }
}

void activate(GtkApplication* application) {
  GtkWidget* window = gtk_application_window_new(application);
  gtk_window_set_title(GTK_WINDOW(window), "The front page");
  gtk_window_set_default_size(GTK_WINDOW(window), 640, 800);
  GtkWidget* scroller = gtk_scrolled_window_new();
  GtkBox* page = GTK_BOX(gtk_box_new(GTK_ORIENTATION_VERTICAL, 12));
  gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(scroller), GTK_WIDGET(page));
  gtk_window_set_child(GTK_WINDOW(window), scroller);
  gtk_window_present(GTK_WINDOW(window));

  auto& news = paperloom::DataCoordinator::shared();
  auto& mainQueue = paperloom::DispatchQueue::main();
  news.setBaseURL(paperloom::URL::parse(address));
  // Streams are answered on the session's thread: from there to this one by the main queue.
  news.requestStreamForSections(
      {"news", "sport"},
      [&mainQueue, page](auto stream) { mainQueue.async([=] { showStream(page, *stream); }); },
      [&mainQueue, page](const paperloom::PaperloomError& error) {
        mainQueue.async([=] { gtk_box_append(page, label(error.details(), "")); });
      });
}

gboolean pump(int, GIOCondition, gpointer) {
  paperloom::DispatchQueue::main().runPending();
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) address = argv[1];
  g_unix_fd_add(paperloom::DispatchQueue::main().fileDescriptor(), G_IO_IN, pump, nullptr);
  GtkApplication* application =
      gtk_application_new("example.paperloom.FrontPage", G_APPLICATION_NON_UNIQUE);
  g_signal_connect(application, "activate", G_CALLBACK(activate), nullptr);
  const int status = g_application_run(G_APPLICATION(application), 1, argv);
  g_object_unref(application);
  return status;
}
