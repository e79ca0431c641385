#include "stats/report_writer.h"

#include <charconv>

#include "runtime/status.h"

namespace qx {

void ReportWriter::Number(uint32_t value) {
    if (value == UINT32_MAX) {
        Bytes("-1");
    } else {
        Number64(value);
    }
}

void ReportWriter::NumberOrEmpty(uint32_t value) {
    if (value == 0) {
        End();
    } else {
        Number(value);
    }
}

void ReportWriter::AppendRemoteCalls() {
    AppendedOutput names = names_.HandOver();
    AppendedOutput values = values_.HandOver();
    if (const RemoteError error = theRemoteCalls.GetLocalStatistics(names, values)) {
        Raise(Code::RemoteStatisticsFailed, 0, *error);
    }
    names_.TakeBack(names);
    values_.TakeBack(values);
}

void ReportWriter::Number64(uint64_t value) {
    char digits[20];
    const char* end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    Bytes({digits, static_cast<size_t>(end - digits)});
}

}  // namespace qx
