// The names in a tree of records, as a list.
#pragma once

#include "stats/report_writer.h"
#include "volume/volume_record.h"

namespace qx {

template <class Record>
void WriteNameList(ReportWriter& report, const NameTree<Record>& tree) {
    report.Nested([&] {
        for (const auto& [name, record] : tree) {
            report.Bytes(name);
        }
    });
}

}  // namespace qx
