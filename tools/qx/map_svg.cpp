#include "map_svg.h"

#include <algorithm>
#include <cmath>

#include "chain_bars.h"
#include "number_text.h"

namespace qx::tool {

namespace {

constexpr std::size_t kWidth = 1000;
constexpr std::size_t kMargin = 20;
constexpr std::size_t kLine = 20;
constexpr std::size_t kBars = 500;  // length of the longest

// Text between tags; what XML does not have is replaced.
std::string Escaped(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '&') {
            escaped += "&amp;";
        } else if (c == '<') {
            escaped += "&lt;";
        } else if (c == '>') {
            escaped += "&gt;";
        } else {
            escaped += byte >= 0x20 && byte < 0x7F ? c : '?';
        }
    }
    return escaped;
}

std::string Rectangle(std::size_t x, std::size_t y, std::size_t width, std::size_t height, std::string_view colour,
                      const std::string& content = "") {
    return "<rect x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\" width=\"" + std::to_string(width) +
           "\" height=\"" + std::to_string(height) + "\" fill=\"" + std::string(colour) + "\">" + content + "</rect>\n";
}

std::string TextAt(std::size_t x, std::size_t y, std::string_view text) {
    return "<text x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\">" + Escaped(text) + "</text>\n";
}

std::string About(const GroupMap& map, std::size_t index) {
    const MapCell& cell = map.Cells()[index];
    std::string text = map.Range(index) + ": " + Counted(cell.Records, "record") + ", " + OneDecimal(map.Fill(cell)) +
                       " frames a group, longest chain " + Grouped(cell.LongestChain);
    if (cell.Damaged > 0) {
        text += ", damaged: " + Grouped(cell.Damaged);
    }
    return "<title>" + text + "</title>";
}

}  // namespace

std::string MapSvg(const GroupMap& map, const std::string& caption) {
    const std::vector<MapCell>& cells = map.Cells();
    const std::size_t room = kWidth - 2 * kMargin;
    // Cells are square: as many columns as give about 16 to 10.
    const auto wanted = static_cast<std::size_t>(std::ceil(std::sqrt(static_cast<double>(cells.size()) * 1.6)));
    const std::size_t side = std::min<std::size_t>(room / wanted, 40);
    const std::size_t columns = room / side;
    std::size_t y = kMargin + kLine;

    std::string body = TextAt(kMargin, kMargin + kLine / 2, caption);
    for (std::size_t i = 0; i < cells.size(); ++i) {
        body += Rectangle(kMargin + i % columns * side, y + i / columns * side, side - (side > 4 ? 1 : 0),
                          side - (side > 4 ? 1 : 0), map.ShadeOf(cells[i]).Colour, About(map, i));
    }
    y += (cells.size() + columns - 1) / columns * side + kLine;

    const std::size_t legendColumn = room / 5;
    for (std::size_t i = 0; i < GroupMap::Shades().size(); ++i) {
        const MapShade& shade = GroupMap::Shades()[i];
        const std::size_t x = kMargin + i % 5 * legendColumn;
        body += Rectangle(x, y + i / 5 * kLine, 14, 14, shade.Colour);
        body += TextAt(x + 20, y + i / 5 * kLine + 12, shade.Meaning);
    }
    y += 3 * kLine;

    const std::vector<ChainBar> bars = ChainBars(map.Totals());
    std::uint64_t most = 1;
    for (const ChainBar& bar : bars) {
        most = std::max(most, bar.Groups);
    }
    for (const ChainBar& bar : bars) {
        const auto length =
            static_cast<std::size_t>(static_cast<double>(bar.Groups) / static_cast<double>(most) * kBars);
        body += TextAt(kMargin, y + 12, "chains of " + bar.Label);
        body += Rectangle(kMargin + 200, y, std::max<std::size_t>(length, 1), 14, "#2f9e6e");
        body += TextAt(kMargin + 210 + length, y + 12, Counted(bar.Groups, "group"));
        y += kLine;
    }
    const std::string size = std::to_string(kWidth) + ' ' + std::to_string(y + kMargin);
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + size +
           "\" font-family=\"sans-serif\" font-size=\"13\">\n" + Rectangle(0, 0, kWidth, y + kMargin, "white") + body +
           "</svg>\n";
}

}  // namespace qx::tool
