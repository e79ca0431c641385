// An entry of a report that is no counter: its label, and what writes its value.
#pragma once

#include <span>
#include <string_view>

#include "stats/report_writer.h"

namespace qx {

template <class Subject>
struct ReportField {
    std::string_view Label;
    void (*WriteValue)(ReportWriter& report, Subject& subject);
};

template <class Subject, size_t count>
void WriteFields(ReportWriter& report, Subject& subject, const ReportField<Subject> (&fields)[count]) {
    for (const ReportField<Subject>& field : fields) {
        report.Name(field.Label);
        field.WriteValue(report, subject);
    }
}

}  // namespace qx
