// The list of the file handles that are open on something.
#pragma once

#include <string_view>

#include "runtime/library_record.h"
#include "stats/report_writer.h"
#include "storage/file_handle.h"

namespace qx {

// The list's elements are in the order of `handles`, which is linked through `links`.
template <auto links>
void WriteHandleNumbers(ReportWriter& report, std::string_view label, const HandleList& handles) {
    report.List(label, [&] {
        for (uint32_t handle = handles.Head(); handle != kNoHandle;
             handle = HandleList::Next<links>(theLibrary.Files, handle)) {
            report.Number(handle);
        }
    });
}

}  // namespace qx
