#include "bench/chart.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace bench {

namespace {

constexpr double kLeft = 190;   // of the bars; labels stand before them
constexpr double kTop = 86;     // of the first row
constexpr double kPlot = 480;   // width of the bars' room
constexpr double kRow = 34;     // height of a row
constexpr double kBar = 11;     // height of a bar
constexpr double kGap = 14;     // between manners
constexpr double kRight = 170;  // room for the ratios
constexpr double kBottom = 48;  // room for the axis

// Readable on light and on dark.
constexpr const char *kStyle = R"(<style>
  text { font: 13px sans-serif; fill: #222 }
  .title { font-size: 16px; font-weight: bold }
  .small { font-size: 11px }
  .paper { fill: #fff }
  .library { fill: #1f6fb4 }
  .bare { fill: #a9b4bf }
  .grid { stroke: #ddd }
  @media (prefers-color-scheme: dark) {
    text { fill: #e6e6e6 }
    .paper { fill: #16191d }
    .library { fill: #5aa9e6 }
    .bare { fill: #6d7883 }
    .grid { stroke: #3a4048 }
  }
</style>
)";

// The distance between grid lines: 1, 2 or 5 times a power of ten, so that there are four to ten of them.
double grid_step(double largest) {
  const double power = std::pow(10, std::floor(std::log10(largest / 4)));
  for (const double factor : {5.0, 2.0})
    if (largest / (factor * power) >= 4) return factor * power;
  return power;
}

std::string text(double x, double y, const char *style, const char *anchor, const std::string &words) {
  return fmt::format("<text class=\"{}\" x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"{}\">{}</text>\n", style, x, y, anchor,
                     words);
}

std::string bar(const char *style, double y, double width) {
  return fmt::format("<rect class=\"{}\" x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" height=\"{}\"/>\n", style, kLeft, y,
                     width, kBar);
}

std::string grid(double largest, double scale, double bottom) {
  std::string lines;
  const double step = grid_step(largest);
  for (double value = 0; value <= largest; value += step) {
    const double x = kLeft + value * scale;
    lines += fmt::format("<line class=\"grid\" x1=\"{0:.1f}\" y1=\"{1}\" x2=\"{0:.1f}\" y2=\"{2:.1f}\"/>\n", x,
                         kTop - 8, bottom);
    lines += text(x, bottom + 16, "small", "middle", fmt::format("{:.0f}", value));
  }
  return lines +
         text(kLeft + kPlot / 2, bottom + 36, "small", "middle", "client processor time of one call, microseconds");
}

std::string legend() {
  return bar("library", 46, 14) + text(kLeft + 20, 56, "small", "start", "library") +
         fmt::format("<rect class=\"bare\" x=\"{}\" y=\"46\" width=\"14\" height=\"{}\"/>\n", kLeft + 90, kBar) +
         text(kLeft + 110, 56, "small", "start", "bare OpenSSL loop") +
         text(kLeft + kPlot + 12, 56, "small", "start", "of the bare loop (quartiles)");
}

std::string row(const CallCell &cell, double y, double scale) {
  const Spread ratio = spread_of_ratios(cell.library.microseconds, cell.bare.microseconds);
  return text(kLeft - 10, y + kBar + 5, "small", "end",
              fmt::format("{} {}, {} {}", cell.server->certificates, name_of(cell.manner), cell.threads,
                          cell.threads == 1 ? "thread" : "threads")) +
         bar("library", y, spread_of(cell.library.microseconds).median * scale) +
         bar("bare", y + kBar + 1, spread_of(cell.bare.microseconds).median * scale) +
         text(kLeft + kPlot + 12, y + kBar + 5, "small", "start",
              fmt::format("{:.2f} ({:.2f}-{:.2f})", ratio.median, ratio.low, ratio.high));
}

}  // namespace

std::string chart_of(const Results &results) {
  double largest = 0;
  for (const CallCell &cell : results.calls)
    largest =
        std::max({largest, spread_of(cell.library.microseconds).median, spread_of(cell.bare.microseconds).median});
  const double scale = kPlot / largest;
  std::string rows;
  double y = kTop;
  const CallCell *before = nullptr;
  for (const CallCell &cell : results.calls) {
    if (before != nullptr && before->manner != cell.manner) y += kGap;
    rows += row(cell, y, scale);
    y += kRow;
    before = &cell;
  }
  const double width = kLeft + kPlot + kRight;
  return fmt::format(
             "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {0} {1}\" width=\"{0}\" height=\"{1}\">\n", width,
             y + kBottom) +
         kStyle + "<rect class=\"paper\" width=\"100%\" height=\"100%\"/>\n" +
         text(kLeft, 28, "title", "start", "What a call of qRetrieveKey costs the client") + legend() +
         grid(largest, scale, y) + rows + "</svg>\n";
}

}  // namespace bench
