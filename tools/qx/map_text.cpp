#include "map_text.h"

#include <algorithm>

#include "chain_bars.h"
#include "number_text.h"

namespace qx::tool {

namespace {

constexpr std::size_t kMostRows = 24;

std::string RightAligned(const std::string& text, std::size_t width) {
    return std::string(width - std::min(width, text.size()), ' ') + text;
}

// Signs that look alike are coloured together.
class ColouredSigns {
  public:
    explicit ColouredSigns(bool coloured) : coloured_(coloured) {}

    void Add(const MapShade& shade) {
        if (coloured_ && shade.TerminalColour != colour_) {
            text_ += "\x1B[" + std::to_string(shade.TerminalColour) + 'm';
            colour_ = shade.TerminalColour;
        }
        text_ += shade.Sign;
    }

    std::string Text() const { return colour_ == 0 ? text_ : text_ + "\x1B[0m"; }

  private:
    const bool coloured_;
    int colour_ = 0;
    std::string text_;
};

// The shades in use, as many in a line as it takes.
std::string Legend(const GroupMap& map, std::size_t width, bool coloured) {
    std::string text;
    std::size_t column = 0;
    for (const MapShade& shade : GroupMap::Shades()) {
        if (std::none_of(map.Cells().begin(), map.Cells().end(),
                         [&](const MapCell& cell) { return &map.ShadeOf(cell) == &shade; })) {
            continue;
        }
        const std::size_t needed = 2 + shade.Meaning.size();
        if (column > 0 && column + 3 + needed > width) {
            text += '\n';
            column = 0;
        }
        ColouredSigns sign(coloured);
        sign.Add(shade);
        text += (column > 0 ? "   " : "") + sign.Text() + ' ' + std::string(shade.Meaning);
        column += (column > 0 ? 3 : 0) + needed;
    }
    return text + '\n';
}

std::string Bars(const GroupTotals& totals, std::size_t width) {
    const std::vector<ChainBar> bars = ChainBars(totals);
    std::size_t labels = 0;
    std::size_t numbers = 0;
    std::uint64_t most = 1;
    for (const ChainBar& bar : bars) {
        labels = std::max(labels, bar.Label.size());
        numbers = std::max(numbers, Grouped(bar.Groups).size());
        most = std::max(most, bar.Groups);
    }
    const std::size_t before = labels + 2 + numbers + 1;
    const std::size_t room = width > before ? width - before : 0;
    std::string text;
    for (const ChainBar& bar : bars) {
        const auto length = static_cast<std::size_t>(static_cast<double>(bar.Groups) / static_cast<double>(most) *
                                                     static_cast<double>(room));
        text += RightAligned(bar.Label, labels) + "  " + RightAligned(Grouped(bar.Groups), numbers) + ' ' +
                std::string(length, '#') + '\n';
    }
    return text;
}

}  // namespace

MapTextShape::MapTextShape(std::uint32_t groups, std::size_t width)
    : LabelWidth(Grouped(groups).size()),
      Columns(std::max<std::size_t>(width - std::min(width, LabelWidth + 1), 1)),
      MostCells(Columns * kMostRows) {}

std::string MapText(const GroupMap& map, std::size_t width, bool coloured) {
    const MapTextShape shape(map.Header().Modulo, width);
    const std::vector<MapCell>& cells = map.Cells();
    std::string text;
    for (std::size_t first = 0; first < cells.size(); first += shape.Columns) {
        ColouredSigns signs(coloured);
        for (std::size_t i = first; i < std::min(first + shape.Columns, cells.size()); ++i) {
            signs.Add(map.ShadeOf(cells[i]));
        }
        text += RightAligned(Grouped(first * map.GroupsPerCell()), shape.LabelWidth) + ' ' + signs.Text() + '\n';
    }
    return text + '\n' + Legend(map, width, coloured) + '\n' + Bars(map.Totals(), width);
}

}  // namespace qx::tool
