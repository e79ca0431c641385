#include "dump_reader.h"

#include <charconv>
#include <stdexcept>

#include "dump_format.h"
#include "hex.h"
#include "messages.h"
#include "number_text.h"

namespace qx::tool {

namespace {

// False when the whole text is no number in this base.
template <typename Number>
bool Parse(std::string_view text, Number& number, int base = 10) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end == text.data() + text.size();
}

// The value of a capital hexadecimal digit; 16 of anything else.
unsigned DigitValue(char digit) {
    return digit >= '0' && digit <= '9'   ? static_cast<unsigned>(digit - '0')
           : digit >= 'A' && digit <= 'F' ? static_cast<unsigned>(digit - 'A') + 10
                                          : 16;
}

}  // namespace

DumpReader::DumpReader(InputStream& input) : input_(input) {
    if (input_.Peek() != kDumpFirstLine.front() || TakeShortLine() != kDumpFirstLine) {
        Refuse("this is no dump that can be read here; those begin with the line " + Quoted(kDumpFirstLine));
    }
    for (const DumpSetting& setting : kDumpSettings) {
        const std::string line = TakeShortLine();
        const std::string name = std::string(setting.Name) + ' ';
        if (!line.starts_with(name) || !Parse(std::string_view(line).substr(name.size()), settings_.*setting.Value)) {
            Refuse(Quoted(line) + " stands where " + Quoted(name + "NUMBER") + " belongs");
        }
    }
}

bool DumpReader::Next() {
    if (input_.Peek() != kDumpRecordBegin) {
        TakeEnd();
        return false;
    }
    Take();
    TakeEscaped(kDumpDataBegin, key_);
    TakeEscaped('\n', record_);
    ++records_;
    return true;
}

std::string DumpReader::Where() const {
    return input_.Name() + ": line " + std::to_string(line_);
}

void DumpReader::Refuse(const std::string& reason) const {
    throw std::runtime_error(Where() + ": " + reason +
                             (records_ == 0 ? "" : " (" + Counted(records_, "record") + " read before)"));
}

char DumpReader::Take() {
    line_ += lineEnded_ ? 1 : 0;
    lineEnded_ = false;
    const int byte = input_.Get();
    if (byte == InputStream::kEnd) {
        Refuse("the dump is cut short here");
    }
    const char c = static_cast<char>(byte);
    checksum_.Add(c);
    lineEnded_ = c == '\n';
    return c;
}

// A line that holds no record, and therefore is not long.
std::string DumpReader::TakeShortLine() {
    constexpr std::size_t kLongest = 80;
    std::string line;
    for (char c = Take(); c != '\n'; c = Take()) {
        line += c;
        if (line.size() > kLongest) {
            Refuse("this line does not belong in a dump");
        }
    }
    return line;
}

// Bytes up to `last`.
void DumpReader::TakeEscaped(char last, std::string& bytes) {
    bytes.clear();
    for (char c = Take(); c != last; c = Take()) {
        if (c == '\\') {
            const unsigned high = DigitValue(Take());
            const unsigned low = high < 16 ? DigitValue(Take()) : 16;
            if (low == 16) {
                Refuse("two capital hexadecimal digits belong behind a backslash");
            }
            c = static_cast<char>(high * 16 + low);
        } else if (!StandsForItself(c)) {
            Refuse("the byte " + ToHex({&c, 1}) + " does not belong there");
        }
        bytes += c;
    }
}

void DumpReader::TakeEnd() {
    constexpr std::size_t kChecksumDigits = 16;
    const std::uint64_t found = checksum_.Value();
    const std::string line = TakeShortLine();
    const std::string begin = std::string(kDumpEnd) + ' ';
    const std::size_t space = line.rfind(' ');
    std::uint64_t records = 0;
    std::uint64_t checksum = 0;
    if (!line.starts_with(begin) || space < begin.size() || line.size() != space + 1 + kChecksumDigits ||
        !Parse(std::string_view(line).substr(0, space).substr(begin.size()), records) ||
        !Parse(std::string_view(line).substr(space + 1), checksum, 16)) {
        Refuse(Quoted(line) + " is neither a record nor the end of a dump");
    }
    if (records != records_) {
        Refuse("the dump was written with " + Counted(records, "record") + ", not with these");
    }
    if (checksum != found) {
        Refuse("the checksum is wrong; something above this line is not as it was written");
    }
    if (input_.Peek() != InputStream::kEnd) {
        Take();
        Refuse("there is something behind the end of the dump");
    }
}

}  // namespace qx::tool
