#include "apps/reader/Picture.h"

#include <chafa.h>

#include <algorithm>
#include <memory>
#include <string_view>

namespace paperloom::reader {
namespace {

template <class T, void (*release)(T*)>
struct Release {
  void operator()(T* object) const { release(object); }
};
template <class T, void (*release)(T*)>
using Handle = std::unique_ptr<T, Release<T, release>>;

using TermInfo = Handle<ChafaTermInfo, chafa_term_info_unref>;
using SymbolMap = Handle<ChafaSymbolMap, chafa_symbol_map_unref>;
using CanvasConfig = Handle<ChafaCanvasConfig, chafa_canvas_config_unref>;
using Canvas = Handle<ChafaCanvas, chafa_canvas_unref>;

struct FreeStrings {
  void operator()(gchar** strings) const { g_strfreev(strings); }
};

TermInfo detectTerminal() {
  const std::unique_ptr<gchar*, FreeStrings> environment(g_get_environ());
  return TermInfo(chafa_term_db_detect(chafa_term_db_get_default(), environment.get()));
}

ChafaPixelMode pixelMode(const ChafaTermInfo* terminal) {
  if (chafa_term_info_have_seq(terminal, CHAFA_TERM_SEQ_BEGIN_KITTY_IMMEDIATE_IMAGE_V1) != 0) {
    return CHAFA_PIXEL_MODE_KITTY;
  }
  if (chafa_term_info_have_seq(terminal, CHAFA_TERM_SEQ_BEGIN_ITERM2_IMAGE) != 0) {
    return CHAFA_PIXEL_MODE_ITERM2;
  }
  if (chafa_term_info_have_seq(terminal, CHAFA_TERM_SEQ_BEGIN_SIXELS) != 0) {
    return CHAFA_PIXEL_MODE_SIXELS;
  }
  return CHAFA_PIXEL_MODE_SYMBOLS;
}

}  // namespace

bool canShowPictures(const Terminal& terminal) {
  return terminal.interactive && terminal.colours >= Terminal::Colours::indexed;
}

std::string drawPicture(const Image& image, const Terminal& terminal, int maxColumns, int maxRows,
                        int indent) {
  if (!canShowPictures(terminal)) return {};
  gint columns = maxColumns;
  gint rows = maxRows;
  chafa_calc_canvas_geometry(image.width(), image.height(), &columns, &rows,
                             static_cast<gfloat>(terminal.cellAspect), TRUE, FALSE);
  if (columns < 1 || rows < 1) return {};

  chafa_set_n_threads(1);  // a terminal's picture is too small to share out
  const TermInfo info = detectTerminal();
  const ChafaPixelMode mode = pixelMode(info.get());
  const CanvasConfig config(chafa_canvas_config_new());
  chafa_canvas_config_set_geometry(config.get(), columns, rows);
  chafa_canvas_config_set_pixel_mode(config.get(), mode);
  chafa_canvas_config_set_canvas_mode(config.get(), terminal.colours == Terminal::Colours::direct
                                                        ? CHAFA_CANVAS_MODE_TRUECOLOR
                                                        : CHAFA_CANVAS_MODE_INDEXED_240);
  // Half and quarter blocks are in every terminal's font.
  const SymbolMap symbols(chafa_symbol_map_new());
  for (const auto tag : {CHAFA_SYMBOL_TAG_SPACE, CHAFA_SYMBOL_TAG_HALF, CHAFA_SYMBOL_TAG_QUAD}) {
    chafa_symbol_map_add_by_tags(symbols.get(), tag);
  }
  chafa_canvas_config_set_symbol_map(config.get(), symbols.get());

  const Canvas canvas(chafa_canvas_new(config.get()));
  chafa_canvas_draw_all_pixels(canvas.get(), CHAFA_PIXEL_RGBA8_UNASSOCIATED, image.pixels().data(),
                               image.width(), image.height(), image.width() * 4);
  GString* drawn = chafa_canvas_print(canvas.get(), info.get());
  std::string_view rest(drawn->str, drawn->len);
  std::string text;
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    text.append(static_cast<std::size_t>(indent), ' ').append(line) += '\n';
    rest.remove_prefix(std::min(rest.size(), line.size() + 1));
  }
  g_string_free(drawn, TRUE);
  return text;
}

}  // namespace paperloom::reader
