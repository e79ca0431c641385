// The names in a tree of records, as a list.
#pragma once

#include <string_view>

#include "stats/report_writer.h"
#include "volume/volume_record.h"

namespace qx {

template <class Record>
void WriteNameList(ReportWriter& report, std::string_view label, const NameTree<Record>& tree) {
    report.List(label, [&] {
        for (const auto& [name, record] : tree) {
            report.Bytes(name);
        }
    });
}

}  // namespace qx
