#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "arguments.h"
#include "command.h"
#include "file_load.h"
#include "hashed_file.h"
#include "number_text.h"

namespace qx::tool {

namespace {

struct Settings {
    explicit Settings(CLI::App& app)
        : File(AddFileArgument(app)), Json(AddFlag(app, "--json", "Print one JSON object; null is not known")) {}

    const CLI::Option* File;
    const CLI::Option* Json;
};

struct Report {
    HeaderValues Header;
    FileLoad Load;
    std::optional<std::uint64_t> PrimaryBytes;
    std::optional<std::uint64_t> OverflowBytes;
};

std::optional<std::uint64_t> FileSize(const std::string& path) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    return error ? std::nullopt : std::optional<std::uint64_t>(size);
}

std::string SizeLockText(std::uint32_t sizeLock) {
    const std::string meaning = sizeLock == 0   ? "the file grows and shrinks"
                                : sizeLock == 1 ? "the file only grows"
                                                : "the number of groups stays as it is";
    return std::to_string(sizeLock) + " (" + meaning + ")";
}

std::string BytesText(const std::optional<std::uint64_t>& bytes) {
    return bytes ? Counted(*bytes, "byte") : "unknown";
}

std::string LoadText(const FileLoad& load) {
    if (!load.Load) {
        return "unknown (too large for the header record)";
    }
    std::string text = BytesText(load.Load) + " (" + OneDecimal(*load.PercentOfFrames) + " % of the frames";
    if (load.PercentOfThreshold) {
        text += ", " + OneDecimal(*load.PercentOfThreshold) + " % of the threshold";
    }
    return text + ")";
}

std::string YesNo(const std::optional<bool>& value) {
    return !value ? "unknown" : *value ? "yes" : "no";
}

std::string Readable(const Report& report) {
    const HeaderValues& header = report.Header;
    const FileLoad& load = report.Load;
    return Row("Version", std::to_string(header.Version)) + Row("Groups (modulo)", Grouped(header.Modulo)) +
           Row("Frame size", Counted(header.FrameSize, "byte")) +
           Row("Threshold",
               std::to_string(header.Threshold) + " (" + Counted(load.ThresholdBytes, "byte") + " a group)") +
           Row("Size lock", SizeLockText(header.SizeLock)) +
           Row("Records", header.Version == 100 ? "not counted in this version" : Grouped(header.RecordCount)) +
           Row("Load (alpha)", LoadText(load)) +
           Row("Bytes a group", load.BytesPerGroup ? OneDecimal(*load.BytesPerGroup) + " on average" : "unknown") +
           Row("Would grow", YesNo(load.WouldGrow)) + Row("Would shrink", YesNo(load.WouldShrink)) +
           Row("Counts verified", YesNo(header.ModuloVerified)) + Row("Primary file", BytesText(report.PrimaryBytes)) +
           Row("Overflow file", BytesText(report.OverflowBytes));
}

// Members of a JSON object; their names and values need no escaping.
class JsonObject {
  public:
    template <typename Value>
    JsonObject& Add(std::string_view name, const std::optional<Value>& value) {
        members_ += members_.empty() ? "  \"" : ",\n  \"";
        members_.append(name).append("\": ").append(value ? Number(*value) : "null");
        return *this;
    }

    std::string Text() const { return "{\n" + members_ + "\n}\n"; }

  private:
    static std::string Number(bool value) { return value ? "true" : "false"; }
    static std::string Number(double value) { return OneDecimal(value); }
    static std::string Number(std::uint64_t value) { return std::to_string(value); }
    static std::string Number(std::uint32_t value) { return std::to_string(value); }

    std::string members_;
};

std::string Json(const Report& report) {
    const HeaderValues& header = report.Header;
    const FileLoad& load = report.Load;
    const auto records = header.Version == 100 ? std::nullopt : std::optional(header.RecordCount);
    return JsonObject()
        .Add("version", std::optional(header.Version))
        .Add("modulo", std::optional(header.Modulo))
        .Add("frameSize", std::optional(header.FrameSize))
        .Add("threshold", std::optional(header.Threshold))
        .Add("thresholdBytes", std::optional(load.ThresholdBytes))
        .Add("sizeLock", std::optional(header.SizeLock))
        .Add("recordCount", records)
        .Add("load", load.Load)
        .Add("percentOfFrames", load.PercentOfFrames)
        .Add("percentOfThreshold", load.PercentOfThreshold)
        .Add("bytesPerGroup", load.BytesPerGroup)
        .Add("wouldGrow", load.WouldGrow)
        .Add("wouldShrink", load.WouldShrink)
        .Add("countsVerified", std::optional(header.ModuloVerified))
        .Add("primaryFileBytes", report.PrimaryBytes)
        .Add("overflowFileBytes", report.OverflowBytes)
        .Text();
}

ExitStatus Run(const Settings& settings, Output& output) {
    const std::string name = Text(*settings.File);
    return OnFile(name, [&] {
        HashedFile file(name, {.ReadOnly = true});
        const HeaderValues header = file->Header();
        const Report report{header, FileLoad(header), FileSize(name + ".LK"), FileSize(name + ".OV")};
        output.Write(settings.Json->count() != 0 ? Json(report) : Readable(report));
        return ExitStatus::Done;
    });
}

}  // namespace

Command AddHeaderCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("header", "Show a file's settings and how full it is.");
    auto settings = std::make_shared<Settings>(*app);
    app->footer(
        "The load counts the bytes in use in each group up to one frame; what spills over is not in it. A\n"
        "group is added when the load is above the threshold, and taken away when it would stay below nine\n"
        "tenths of it with a group less. Sizes of the two files are unknown where the name leads to them in\n"
        "another spelling.\n\n"
        "Examples:\n"
        "  qx header CUST\n"
        "  qx header CUST --json");
    return {app, [settings](Output& output) { return Run(*settings, output); }};
}

}  // namespace qx::tool
