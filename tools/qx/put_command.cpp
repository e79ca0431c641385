#include <memory>
#include <string>
#include <vector>

#include "arguments.h"
#include "attribute_mark.h"
#include "command.h"
#include "hashed_file.h"
#include "input_stream.h"

namespace qx::tool {

namespace {

struct Settings {
    explicit Settings(CLI::App& app)
        : File(AddFileArgument(app)),
          Key(app, KeyArguments::Number::One),
          Fields(AddTexts(app, "FIELD", "The record's fields; '' is an empty one", 0)),
          Raw(AddFlag(app, "--raw", "Take the record as plain bytes from standard input or --data")),
          Data(AddText(app, "--data", "The bytes of the record, with --raw")->type_name("TEXT")) {}

    const CLI::Option* File;
    KeyArguments Key;
    const CLI::Option* Fields;
    const CLI::Option* Raw;
    const CLI::Option* Data;
};

std::string RawRecord(const Settings& settings) {
    if (settings.Fields->count() != 0) {
        throw WrongUse("--raw: the record comes from standard input or --data, not from fields");
    }
    if (settings.Data->count() != 0) {
        return Text(*settings.Data);
    }
    std::string record;
    InputStream input("-");
    for (int byte = input.Get(); byte != InputStream::kEnd; byte = input.Get()) {
        record += static_cast<char>(byte);
    }
    return record;
}

std::string RecordOfFields(const Settings& settings) {
    if (settings.Data->count() != 0) {
        throw WrongUse("--data: needs --raw");
    }
    const std::vector<std::string> fields = Texts(*settings.Fields);
    if (fields.empty()) {
        throw WrongUse("put: give the record's fields ('' for an empty record), or --raw");
    }
    std::string record;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (fields[i].find(kAttributeMark) != std::string::npos) {
            throw WrongUse("put: field " + std::to_string(i + 1) +
                           " holds the byte FE, which would cut it into several fields; see --raw");
        }
        record.append(i == 0 ? 0 : 1, kAttributeMark);
        record += fields[i];
    }
    return record;
}

ExitStatus Run(const Settings& settings) {
    const std::string name = Text(*settings.File);
    const std::string key = settings.Key.Keys().front();
    const std::string record = settings.Raw->count() != 0 ? RawRecord(settings) : RecordOfFields(settings);
    return OnFile(name, [&] {
        HashedFile file(name);
        file->Write(key, record);
        file.Close();
        return ExitStatus::Done;
    });
}

}  // namespace

Command AddPutCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("put", "Store a record.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "Replaces the record with this key, if there is one.\n\n"
        "Examples:\n"
        "  qx put CUST 1001 'Ann Lee' London\n"
        "  qx put CUST --hex 31FE00 'Ann Lee' London\n"
        "  qx put CUST 1001 --raw --data 'Ann Lee'\n"
        "  qx put PICTURES logo --raw < logo.png");
    return {app, [settings](Output&) { return Run(*settings); }};
}

}  // namespace qx::tool
