#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <string>

#include "delimited_options.h"
#include "delimited_reader.h"
#include "input_stream.h"

namespace qx::tool {

/// The options of the commands that read records from delimited text.
class RecordSourceOptions {
  public:
    explicit RecordSourceOptions(CLI::App& app);

    const DelimitedOptions& Delimited() const { return delimited_; }
    std::string InputName() const;
    bool HasHeader() const { return header_->count() != 0; }
    bool SkipsBad() const { return skipBad_->count() != 0; }

  private:
    const CLI::Option* input_;
    DelimitedOptions delimited_;
    const CLI::Option* header_;
    const CLI::Option* skipBad_;
};

/// The records of a delimited text: one column is the key, the others are the fields, joined by the attribute mark.
class RecordSource {
  public:
    /// Opens the input and reads its header, if it has one. Throws WrongUse and std::runtime_error.
    explicit RecordSource(const RecordSourceOptions& options);

    /// False at the end. A bad line is told and passed over if the user wishes so; otherwise it is thrown, as a
    /// std::runtime_error that names it.
    bool Next();

    /// The record read last.
    const std::string& Key() const noexcept { return key_; }
    const std::string& Record() const noexcept { return record_; }

    /// "data.csv: line 12": where it was read.
    std::string Where() const;

    const InputStream& Input() const noexcept { return input_; }
    std::uint64_t BadLines() const noexcept { return badLines_; }

  private:
    void ReadHeader(const DelimitedOptions& options);
    std::string Fault() const;
    void TakeLine();

    InputStream input_;
    DelimitedReader reader_;
    DelimitedLine line_;
    bool skipsBad_;
    std::size_t keyColumn_ = 0;  // from 0
    std::size_t columns_ = 0;    // of every line; 0: any number
    std::uint64_t badLines_ = 0;
    std::string key_;
    std::string record_;
};

}  // namespace qx::tool
