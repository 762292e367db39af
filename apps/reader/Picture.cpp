#include "apps/reader/Picture.h"

#include <chafa.h>

#include <algorithm>
#include <memory>
#include <string_view>

#include "apps/reader/Environment.h"
#include "apps/reader/SharedLibrary.h"
#include "apps/reader/TerminalQuery.h"

namespace paperloom::reader {
namespace {

// The functions of libchafa, and of the glib below it, under their own names.
struct Chafa {
  SharedLibrary library{"libchafa.so.0"};
#define PAPERLOOM_TAKE(function) \
  decltype(&::function) function = library.take<decltype(&::function)>(#function)
  PAPERLOOM_TAKE(chafa_calc_canvas_geometry);
  PAPERLOOM_TAKE(chafa_canvas_config_new);
  PAPERLOOM_TAKE(chafa_canvas_config_set_canvas_mode);
  PAPERLOOM_TAKE(chafa_canvas_config_set_cell_geometry);
  PAPERLOOM_TAKE(chafa_canvas_config_set_geometry);
  PAPERLOOM_TAKE(chafa_canvas_config_set_pixel_mode);
  PAPERLOOM_TAKE(chafa_canvas_config_set_symbol_map);
  PAPERLOOM_TAKE(chafa_canvas_config_unref);
  PAPERLOOM_TAKE(chafa_canvas_draw_all_pixels);
  PAPERLOOM_TAKE(chafa_canvas_new);
  PAPERLOOM_TAKE(chafa_canvas_print);
  PAPERLOOM_TAKE(chafa_canvas_unref);
  PAPERLOOM_TAKE(chafa_set_n_threads);
  PAPERLOOM_TAKE(chafa_symbol_map_add_by_tags);
  PAPERLOOM_TAKE(chafa_symbol_map_new);
  PAPERLOOM_TAKE(chafa_symbol_map_unref);
  PAPERLOOM_TAKE(chafa_term_db_detect);
  PAPERLOOM_TAKE(chafa_term_db_get_default);
  PAPERLOOM_TAKE(chafa_term_db_get_fallback_info);
  PAPERLOOM_TAKE(chafa_term_info_supplement);
  PAPERLOOM_TAKE(chafa_term_info_unref);
  PAPERLOOM_TAKE(g_get_environ);
  PAPERLOOM_TAKE(g_strfreev);
  PAPERLOOM_TAKE(g_string_free);
#undef PAPERLOOM_TAKE
};

const Chafa& chafa() {
  static const Chafa functions;
  return functions;
}

template <class T>
using Owned = std::unique_ptr<T, void (*)(T*)>;

bool isMultiplexed() {
  const std::string_view term = variable("TERM");
  return !variable("TMUX").empty() || !variable("STY").empty() || term.starts_with("screen") ||
         term.starts_with("tmux");
}

// Terminals that may show the questions in the place of answering them.
bool mayBeAsked() {
  const std::string_view term = variable("TERM");
  return !term.empty() && term != "dumb" && term != "linux" && !term.starts_with("vt") &&
         variable("TERM_PROGRAM") != "Apple_Terminal";
}

// The sequences of the terminal that the environment names, and of the usual protocols beside them.
Owned<ChafaTermInfo> sequences() {
  const Chafa& c = chafa();
  const std::unique_ptr<gchar*, void (*)(gchar**)> environment(c.g_get_environ(), c.g_strfreev);
  ChafaTermDb* const known = c.chafa_term_db_get_default();
  Owned<ChafaTermInfo> info(c.chafa_term_db_detect(known, environment.get()),
                            c.chafa_term_info_unref);
  const Owned<ChafaTermInfo> others(c.chafa_term_db_get_fallback_info(known),
                                    c.chafa_term_info_unref);
  c.chafa_term_info_supplement(info.get(), others.get());
  return info;
}

ChafaCanvasMode canvasMode(Terminal::Colours colours, bool pixels) {
  using Colours = Terminal::Colours;
  if (pixels || colours == Colours::direct) return CHAFA_CANVAS_MODE_TRUECOLOR;
  if (colours == Colours::indexed) return CHAFA_CANVAS_MODE_INDEXED_240;
  return colours == Colours::sixteen ? CHAFA_CANVAS_MODE_INDEXED_16 : CHAFA_CANVAS_MODE_FGBG;
}

// Half and quarter blocks are in every terminal's font.
void useBlocks(ChafaCanvasConfig* config) {
  const Chafa& c = chafa();
  const Owned<ChafaSymbolMap> symbols(c.chafa_symbol_map_new(), c.chafa_symbol_map_unref);
  for (const auto tag : {CHAFA_SYMBOL_TAG_SPACE, CHAFA_SYMBOL_TAG_HALF, CHAFA_SYMBOL_TAG_QUAD}) {
    c.chafa_symbol_map_add_by_tags(symbols.get(), tag);
  }
  c.chafa_canvas_config_set_symbol_map(config, symbols.get());
}

std::string indented(std::string_view rest, int indent) {
  std::string text;
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    text.append(static_cast<std::size_t>(indent), ' ').append(line) += '\n';
    rest.remove_prefix(std::min(rest.size(), line.size() + 1));
  }
  return text;
}

}  // namespace

Pictures::Way Pictures::way() {
  if (way_ == Way::unknown) way_ = find();
  return way_;
}

Pictures::Way Pictures::find() {
  if (wish_ == "never") return Way::none;
  if (wish_ == "symbols") return Way::symbols;
  if (wish_ == "sixel") return Way::sixel;
  if (wish_ == "kitty") return Way::kitty;
  if (wish_ == "iterm2") return Way::iterm2;
  if (!terminal_.interactive || terminal_.colours == Terminal::Colours::none) return Way::none;
  if (isMultiplexed()) return ask(true);  // what the terminal around it can show does not help
  const std::string_view term = variable("TERM");
  const std::string_view program = variable("TERM_PROGRAM");
  if (!variable("KITTY_WINDOW_ID").empty() || term == "xterm-kitty" || term == "xterm-ghostty" ||
      program == "ghostty") {
    return Way::kitty;
  }
  if (program == "iTerm.app" || program == "WezTerm" || program == "mintty" ||
      variable("LC_TERMINAL") == "iTerm2") {
    return Way::iterm2;
  }
  if (term.starts_with("mlterm") || term.starts_with("foot") || term.starts_with("yaft")) {
    return Way::sixel;
  }
  return ask(false);
}

Pictures::Way Pictures::ask(bool throughMultiplexer) {
  const TerminalAnswers answers =
      mayBeAsked() ? askTerminal(throughMultiplexer) : TerminalAnswers();
  if (answers.cellWidth > 0 && answers.cellHeight > 0) {
    terminal_.cellWidth = answers.cellWidth;
    terminal_.cellHeight = answers.cellHeight;
  }
  if (answers.kitty) return Way::kitty;
  if (answers.iterm2) return Way::iterm2;
  if (answers.sixel) return Way::sixel;
  return terminal_.colours >= Terminal::Colours::indexed ? Way::symbols : Way::none;
}

std::string Pictures::draw(const Image& image, int maxColumns, int maxRows, int indent) {
  if (!areShown() || !chafa().library.isComplete()) return {};
  const Chafa& c = chafa();
  constexpr int usualWidth = 10;
  constexpr int usualHeight = 20;
  const bool isKnown = terminal_.cellWidth > 0 && terminal_.cellHeight > 0;
  const int cellWidth = isKnown ? std::min(terminal_.cellWidth, 200) : usualWidth;
  const int cellHeight = isKnown ? std::min(terminal_.cellHeight, 200) : usualHeight;
  const double aspect = std::clamp(static_cast<double>(cellWidth) / cellHeight, 0.2, 2.0);
  // Pixels are not blown up, which would only make more of them to send.
  const int columnsWorth = std::max(1, (image.width() + cellWidth - 1) / cellWidth);
  gint columns = arePixels() ? std::min(maxColumns, columnsWorth) : maxColumns;
  gint rows = maxRows;
  c.chafa_calc_canvas_geometry(image.width(), image.height(), &columns, &rows,
                               static_cast<gfloat>(aspect), TRUE, FALSE);
  if (columns < 1 || rows < 1) return {};

  c.chafa_set_n_threads(1);  // a terminal's picture is too small to share out
  const Owned<ChafaCanvasConfig> config(c.chafa_canvas_config_new(), c.chafa_canvas_config_unref);
  c.chafa_canvas_config_set_geometry(config.get(), columns, rows);
  c.chafa_canvas_config_set_cell_geometry(config.get(), cellWidth, cellHeight);
  c.chafa_canvas_config_set_pixel_mode(config.get(),
                                       way() == Way::kitty    ? CHAFA_PIXEL_MODE_KITTY
                                       : way() == Way::iterm2 ? CHAFA_PIXEL_MODE_ITERM2
                                       : way() == Way::sixel  ? CHAFA_PIXEL_MODE_SIXELS
                                                              : CHAFA_PIXEL_MODE_SYMBOLS);
  c.chafa_canvas_config_set_canvas_mode(config.get(), canvasMode(terminal_.colours, arePixels()));
  useBlocks(config.get());

  const Owned<ChafaCanvas> canvas(c.chafa_canvas_new(config.get()), c.chafa_canvas_unref);
  c.chafa_canvas_draw_all_pixels(canvas.get(), CHAFA_PIXEL_RGBA8_UNASSOCIATED,
                                 image.pixels().data(), image.width(), image.height(),
                                 image.width() * 4);
  GString* drawn = c.chafa_canvas_print(canvas.get(), sequences().get());
  std::string text = indented({drawn->str, drawn->len}, indent);
  c.g_string_free(drawn, TRUE);
  return text;
}

}  // namespace paperloom::reader
