#include "simulator/drawing.hpp"

#include <cairo.h>

#include <algorithm>
#include <memory>
#include <numbers>
#include <stdexcept>

namespace quillmere::simulator {

namespace {

struct Colour {
  double red;
  double green;
  double blue;
};

constexpr Colour background = {0.97, 0.97, 0.98};
constexpr Colour ink = {0.12, 0.13, 0.16};
constexpr Colour faint = {0.55, 0.57, 0.62};
constexpr Colour line = {0.80, 0.82, 0.86};
constexpr Colour paper = {1, 1, 1};
constexpr Colour accent = {0.13, 0.37, 0.72};
constexpr Colour keyboardGrey = {0.85, 0.87, 0.90};

constexpr double textSize = 24;
constexpr double titleSize = 34;
constexpr double inset = 20;
constexpr double cornerRadius = 12;
constexpr int titleBarHeight = 56;

class Canvas {
 public:
  explicit Canvas(int scale)
      : surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, mirror.width * scale,
                                           mirror.height * scale),
                cairo_surface_destroy),
        context(cairo_create(surface.get()), cairo_destroy) {
    cairo_scale(context.get(), scale, scale);
    use(background);
    cairo_paint(context.get());
  }

  void box(const Bounds& bounds, Colour fill, double radius = cornerRadius) {
    outline(bounds, radius);
    use(fill);
    cairo_fill(context.get());
  }

  void frame(const Bounds& bounds, Colour colour, double width) {
    outline(bounds, cornerRadius);
    use(colour);
    cairo_set_line_width(context.get(), width);
    cairo_stroke(context.get());
  }

  void rule(const Bounds& bounds) {
    use(line);
    cairo_set_line_width(context.get(), 1);
    cairo_move_to(context.get(), bounds.x, bounds.y + bounds.height - 0.5);
    cairo_line_to(context.get(), bounds.x + bounds.width, bounds.y + bounds.height - 0.5);
    cairo_stroke(context.get());
  }

  /// Writes at half the height of the box, cut off at its end.
  void text(const Bounds& bounds, const std::string& words, Colour colour, double size,
            bool isCentred = false) {
    cairo_save(context.get());
    cairo_rectangle(context.get(), bounds.x, bounds.y, bounds.width, bounds.height);
    cairo_clip(context.get());
    cairo_select_font_face(context.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                           size > textSize ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(context.get(), size);
    cairo_font_extents_t font{};
    cairo_font_extents(context.get(), &font);
    cairo_text_extents_t extents{};
    cairo_text_extents(context.get(), words.c_str(), &extents);
    const double left = isCentred ? (bounds.width - extents.x_advance) / 2 : inset;
    use(colour);
    cairo_move_to(context.get(), bounds.x + left,
                  bounds.y + (bounds.height + font.ascent - font.descent) / 2);
    cairo_show_text(context.get(), words.c_str());
    cairo_restore(context.get());
  }

  [[nodiscard]] std::string png() const {
    std::string bytes;
    const cairo_status_t status = cairo_surface_write_to_png_stream(
        surface.get(),
        [](void* to, const unsigned char* data, unsigned int length) {
          static_cast<std::string*>(to)->append(reinterpret_cast<const char*>(data), length);
          return CAIRO_STATUS_SUCCESS;
        },
        &bytes);
    if (status != CAIRO_STATUS_SUCCESS) throw std::runtime_error(cairo_status_to_string(status));
    return bytes;
  }

 private:
  void use(Colour colour) {
    cairo_set_source_rgb(context.get(), colour.red, colour.green, colour.blue);
  }

  void outline(const Bounds& bounds, double radius) {
    constexpr double quarter = std::numbers::pi / 2;
    const double left = bounds.x + radius;
    const double right = bounds.x + bounds.width - radius;
    const double top = bounds.y + radius;
    const double bottom = bounds.y + bounds.height - radius;
    cairo_new_sub_path(context.get());
    cairo_arc(context.get(), right, top, radius, -quarter, 0);
    cairo_arc(context.get(), right, bottom, radius, 0, quarter);
    cairo_arc(context.get(), left, bottom, radius, quarter, 2 * quarter);
    cairo_arc(context.get(), left, top, radius, 2 * quarter, 3 * quarter);
    cairo_close_path(context.get());
  }

  std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> surface;
  std::unique_ptr<cairo_t, decltype(&cairo_destroy)> context;
};

/// A box at the end of a line, filled when checked.
void drawCheck(Canvas& canvas, const VisibleNode& node) {
  if (!node.isChecked) return;
  const Bounds& row = node.bounds;
  const Bounds mark = {row.x + row.width - 56, row.y + (row.height - 32) / 2, 32, 32};
  if (*node.isChecked) canvas.box(mark, accent);
  canvas.frame(mark, accent, 2);
}

/// A bar beside a list that shows where the visible part is.
void drawScrollBar(Canvas& canvas, const VisibleNode& list) {
  if (!list.isScrollable()) return;
  const int length = list.bounds.height / 2;
  const int room = list.bounds.height - length;
  const int top = !list.canScrollUp ? 0 : list.canScrollDown ? room / 2 : room;
  canvas.box({list.bounds.x + list.bounds.width - 8, list.bounds.y + top, 6, length}, faint, 3);
}

void draw(Canvas& canvas, const VisibleNode& node) {
  const bool isEmptyField = node.isEditable() && node.text.empty();
  std::string shown = isEmptyField ? std::string(node.hint) : node.text;
  // Control characters have no glyph, and a NUL would end the text.
  std::ranges::replace_if(
      shown, [](char each) { return static_cast<unsigned char>(each) < ' '; }, ' ');
  switch (node.role) {
    case Role::label:
      canvas.text(node.bounds, shown, ink, node.bounds.height >= 60 ? 30 : textSize);
      break;
    case Role::button:
      canvas.box(node.bounds, accent);
      canvas.text(node.bounds, shown, paper, textSize, true);
      break;
    case Role::textField:
      canvas.box(node.bounds, paper);
      canvas.frame(node.bounds, node.isFocused ? accent : line, node.isFocused ? 4 : 2);
      canvas.text(node.bounds, shown, isEmptyField ? faint : ink, textSize);
      break;
    case Role::toggle:
    case Role::listItem:
      canvas.text(node.bounds, shown, ink, textSize);
      canvas.rule(node.bounds);
      drawCheck(canvas, node);
      break;
    case Role::list:
      canvas.box(node.bounds, paper);
      drawScrollBar(canvas, node);
      break;
    case Role::webView:
      canvas.box(node.bounds, paper);
      canvas.frame(node.bounds, line, 1);
      break;
    case Role::webText:
      canvas.text(node.bounds, shown, ink, node.bounds.height >= 60 ? titleSize : 22);
      break;
    case Role::keyboard:
      canvas.box(node.bounds, keyboardGrey, 0);
      canvas.text(node.bounds, shown, ink, textSize, true);
      break;
  }
}

}  // namespace

std::string pngOf(const View& view) {
  Canvas canvas(view.scale);
  const Bounds titleBar = {0, 0, mirror.width, titleBarHeight};
  canvas.box(titleBar, ink, 0);
  canvas.text(titleBar, std::string(view.title), paper, 20);
  for (const VisibleNode& node : view.nodes) draw(canvas, node);
  return canvas.png();
}

}  // namespace quillmere::simulator
