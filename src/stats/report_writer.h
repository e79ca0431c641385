// Writes a report: two parallel lists, of names and of values, whose entries end with a mark. An entry may itself be a
// list, whose elements end with the next lower mark, or a table, whose rows end with that and whose cells with the one
// below.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "stats/report_output.h"

namespace qx {

// The first failure ends the report: it is raised, and nothing is finished.
class ReportWriter {
  public:
    ReportWriter(const SessionRecord& session, uint32_t names, uint32_t values)
        : names_(session, names), values_(session, values) {}

    void Name(std::string_view label) { names_.Append(label, mark_); }

    // Values. All bits set is written as -1.
    void Number(uint32_t value);
    void NumberOrEmpty(uint32_t value);
    void Number64(uint64_t value);
    void Boolean(bool value) { values_.Append(value ? "true" : "false", mark_); }
    void Bytes(std::string_view value) { values_.Append(value, mark_); }

    // A name and its value.
    void Number(std::string_view label, uint32_t value) {
        Name(label);
        Number(value);
    }
    void Number64(std::string_view label, uint64_t value) {
        Name(label);
        Number64(value);
    }
    void Boolean(std::string_view label, bool value) {
        Name(label);
        Boolean(value);
    }
    void Bytes(std::string_view label, std::string_view value) {
        Name(label);
        Bytes(value);
    }

    // `elements` writes the values of the list.
    template <class Elements>
    void List(std::string_view label, Elements&& elements) {
        Name(label);
        Nested(elements);
    }

    // A list that is one value of something larger.
    template <class Elements>
    void Nested(Elements&& elements) {
        --mark_;
        elements();
        ++mark_;
        End();
    }

    // `rows` writes every row as a nested list of its cells.
    template <class Rows>
    void Table(std::string_view title, std::initializer_list<std::string_view> columns, Rows&& rows) {
        --mark_;
        Name(title);
        --mark_;
        for (const std::string_view column : columns) {
            Name(column);
        }
        ++mark_;
        rows();
        ++mark_;
        Name("");
        End();
    }

    void End() { values_.Append("", mark_); }

    // Lets the remote-call library append entries of its own. Raises 1107.
    void AppendRemoteCalls();

    void Finish() {
        names_.Finish();
        values_.Finish();
    }

  private:
    static constexpr uint8_t kTopMark = 0xFE;

    ReportOutput names_;
    ReportOutput values_;
    uint8_t mark_ = kTopMark;
};

}  // namespace qx
