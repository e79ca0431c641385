#include "statistics_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace qx::tool {

namespace {

constexpr char kListMark = '\xFD';
constexpr char kCellMark = '\xFC';

using Cells = std::vector<std::string>;

Cells Split(std::string_view text, char mark) {
    Cells parts;
    if (text.empty()) {
        return parts;
    }
    for (std::size_t end = text.find(mark); end != std::string_view::npos; end = text.find(mark)) {
        parts.emplace_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    parts.emplace_back(text);
    return parts;
}

// A list of one element looks like a single value.
bool IsList(std::string_view label) {
    constexpr std::array<std::string_view, 5> kLists = {"Volume Names", "File Names", "Session Files", "Servers",
                                                        "Server Names"};
    return std::find(kLists.begin(), kLists.end(), label) != kLists.end();
}

struct Item {
    std::string Label;
    Cells Columns;  // of a table
    std::string Value;
};

// Two entries of a file's report have the same label: first the handles that have a select hold, then how many holds
// were taken.
std::vector<Item> ItemsOf(const StatisticsReport& report) {
    std::vector<Item> items;
    for (const StatisticsEntry& entry : report) {
        const Cells label = Split(entry.Label, kListMark);
        const bool isTable = label.size() == 2;
        const auto same =
            std::find_if(items.begin(), items.end(), [&](const Item& i) { return i.Label == entry.Label; });
        if (same != items.end()) {
            same->Label += " Held";
        }
        items.push_back({label.empty() ? "" : label[0], isTable ? Split(label[1], kCellMark) : Cells(), entry.Value});
    }
    return items;
}

std::string Joined(const Cells& cells, std::string_view separator) {
    std::string text;
    for (const std::string& cell : cells) {
        text.append(text.empty() ? "" : separator).append(cell);
    }
    return text;
}

std::string Quoted(std::string_view text) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string quoted = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20) {
            quoted.append("\\u00").append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 15]);
        } else {
            quoted.append(c == '"' || c == '\\' ? "\\" : "").append(1, c);
        }
    }
    return quoted + '"';
}

// A name may be made of digits, too.
std::string JsonValue(std::string_view label, const std::string& value) {
    if (value.empty()) {
        return "null";
    }
    const bool isName = label.find("Name") != std::string_view::npos ||
                        label.find("Version") != std::string_view::npos || label == "Servers" || label == "Key Id";
    const bool isNumber = value == "-1" || value.find_first_not_of("0123456789") == std::string::npos;
    return !isName && (isNumber || value == "true" || value == "false") ? value : Quoted(value);
}

std::string JsonRow(const Item& table, const std::string& row) {
    const Cells cells = Split(row, kCellMark);
    Cells members;
    for (std::size_t i = 0; i < std::min(cells.size(), table.Columns.size()); ++i) {
        members.push_back(Quoted(table.Columns[i]) + ": " + JsonValue(table.Columns[i], cells[i]));
    }
    return "{" + Joined(members, ", ") + "}";
}

std::string JsonMember(const Item& item) {
    if (item.Columns.empty() && !IsList(item.Label)) {
        return JsonValue(item.Label, item.Value);
    }
    Cells elements;
    for (const std::string& element : Split(item.Value, kListMark)) {
        elements.push_back(item.Columns.empty() ? JsonValue(item.Label, element) : JsonRow(item, element));
    }
    return "[" + Joined(elements, ", ") + "]";
}

}  // namespace

StatisticsReport ProcessStatistics() {
    const Library library;
    return Session(library).Statistics(StatisticsKind::Process);
}

std::uint64_t NumberOf(const StatisticsReport& report, std::string_view label) {
    const auto found =
        std::find_if(report.begin(), report.end(), [&](const StatisticsEntry& entry) { return entry.Label == label; });
    const std::string_view text = found == report.end() ? "" : std::string_view(found->Value);
    std::uint64_t number = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), number).ec != std::errc()) {
        throw std::runtime_error("the report has no number for " + std::string(label));
    }
    return number;
}

std::string StatisticsTable(const StatisticsReport& report) {
    const std::vector<Item> items = ItemsOf(report);
    std::size_t width = 0;
    for (const Item& item : items) {
        width = std::max(width, item.Label.size());
    }
    std::string text;
    for (const Item& item : items) {
        text += item.Label;
        const Cells values = Split(item.Value, kListMark);
        if (!item.Columns.empty()) {
            for (const std::string& row : values) {
                const Cells cells = Split(row, kCellMark);
                text += "\n ";
                for (std::size_t i = 0; i < std::min(cells.size(), item.Columns.size()); ++i) {
                    text += ' ' + item.Columns[i] + ' ' + cells[i];
                }
            }
        } else if (!values.empty()) {
            text.append(width - item.Label.size() + 2, ' ').append(Joined(values, ", "));
        }
        text += '\n';
    }
    return text;
}

std::string StatisticsJson(const StatisticsReport& report) {
    Cells members;
    for (const Item& item : ItemsOf(report)) {
        members.push_back("  " + Quoted(item.Label) + ": " + JsonMember(item));
    }
    return "{\n" + Joined(members, ",\n") + "\n}\n";
}

}  // namespace qx::tool
