#include "dump_writer.h"

#include "dump_format.h"
#include "hex.h"

namespace qx::tool {

DumpWriter::DumpWriter(Output& output, const CreateSettings& settings) : output_(output) {
    line_ = kDumpFirstLine;
    EndLine();
    for (const DumpSetting& setting : kDumpSettings) {
        line_.append(setting.Name).append(" ").append(std::to_string(settings.*setting.Value));
        EndLine();
    }
}

void DumpWriter::Write(std::string_view key, std::string_view record) {
    line_ = kDumpRecordBegin;
    Append(key);
    line_ += kDumpDataBegin;
    Append(record);
    EndLine();
    ++records_;
}

void DumpWriter::Finish() {
    std::string checksum;
    for (int shift = 56; shift >= 0; shift -= 8) {
        checksum += static_cast<char>(checksum_.Value() >> shift);
    }
    line_.append(kDumpEnd).append(" ").append(std::to_string(records_)).append(" ").append(ToHex(checksum));
    EndLine();
}

void DumpWriter::Append(std::string_view bytes) {
    for (const char byte : bytes) {
        if (StandsForItself(byte)) {
            line_ += byte;
        } else {
            line_ += '\\';
            AppendHex(line_, byte);
        }
    }
}

void DumpWriter::EndLine() {
    line_ += '\n';
    checksum_.Add(line_);
    output_.Write(line_);
    line_.clear();
}

}  // namespace qx::tool
