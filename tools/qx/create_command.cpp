#include <algorithm>
#include <cstdint>
#include <memory>
#include <qx.hpp>

#include "arguments.h"
#include "command.h"
#include "messages.h"
#include "number_text.h"
#include "sizing.h"

namespace qx::tool {

namespace {

struct Settings {
    CLI::Option* File = nullptr;
    CLI::Option* For = nullptr;
    CreateSettings Create;
    std::uint32_t Records = 0;
    std::uint32_t RecordBytes = 0;
};

/// The library would do the same without a word.
void Adjust(std::uint32_t& value, std::uint32_t least, std::uint32_t most, const std::string& option) {
    const std::uint32_t adjusted = std::clamp(value, least, most);
    if (adjusted != value) {
        Complain("note: " + option + " " + std::to_string(value) + " is out of range; " + std::to_string(adjusted) +
                 " is used");
        value = adjusted;
    }
}

/// Chooses frame size and groups for --for, and says so.
std::string Choose(Settings& settings) {
    CreateSettings& create = settings.Create;
    const Sizing sizing =
        Advise({settings.Records, StoredBytesOf(settings.RecordBytes), create.Threshold, create.Version});
    create.FrameSize = sizing.FrameSize;
    create.Modulo = sizing.Modulo;
    return Counted(sizing.Modulo, "group") + " of " + Counted(sizing.FrameSize, "byte") + "; with " +
           Counted(settings.Records, "record") + " a read will visit " + OneDecimal(sizing.Visits) +
           " frames on average";
}

ExitStatus Create(Settings& settings, Output& output) {
    constexpr std::uint32_t kLargestFrame110 = 65535;
    Adjust(settings.Create.FrameSize, 256, UINT32_MAX, "--frame-size");
    Adjust(settings.Create.Threshold, 25, 255, "--threshold");
    if (settings.Create.Version == 110 && settings.Create.FrameSize > kLargestFrame110) {
        throw WrongUse("--frame-size: version 110 holds frames of at most 65535 bytes");
    }
    const std::string name = Text(*settings.File);
    const bool sized = settings.For->count() != 0;
    const std::string choice = sized ? Choose(settings) : "";
    return OnFile(name, [&] {
        Library library;
        Session session(library);
        session.CreateFile(name, settings.Create);
        session.Close();
        library.Close();
        if (sized) {
            output.WriteLine(name + ": " + choice);
        }
        return ExitStatus::Done;
    });
}

}  // namespace

Command AddCreateCommand(CLI::App& root) {
    CLI::App* app = root.add_subcommand("create", "Make an empty hashed file.");
    auto settings = std::make_shared<Settings>();
    const CLI::Range positive(std::uint32_t{1}, UINT32_MAX);
    settings->File = AddFileArgument(*app);
    CLI::Option* modulo = app->add_option("--modulo", settings->Create.Modulo, "Number of groups to start with")
                              ->check(positive)
                              ->type_name("N")
                              ->capture_default_str();
    CLI::Option* frameSize =
        app->add_option("--frame-size", settings->Create.FrameSize,
                        "Bytes of a frame, at least 256; a group is one frame and, when it is full, further ones")
            ->check(positive)
            ->type_name("BYTES")
            ->capture_default_str();
    CLI::Option* recordBytes = app->add_option("--record-bytes", settings->RecordBytes,
                                               "With --for: bytes of a record, key and data, on average")
                                   ->check(positive)
                                   ->type_name("BYTES");
    settings->For =
        app->add_option("--for", settings->Records, "Choose groups and frame size for so many records in the end")
            ->check(positive)
            ->type_name("RECORDS")
            ->needs(recordBytes)
            ->excludes(modulo)
            ->excludes(frameSize);
    recordBytes->needs(settings->For);
    app->add_option("--threshold", settings->Create.Threshold,
                    "How full the file gets before a group is added, in 256ths of a frame, 25 to 255")
        ->check(positive)
        ->type_name("N")
        ->capture_default_str();
    app->add_option("--size-lock", settings->Create.SizeLock,
                    "0: the number of groups grows and shrinks; 1: it only grows; 2 or more: it stays")
        ->check(CLI::Range(std::uint32_t{0}, std::uint32_t{65535}))
        ->type_name("N")
        ->capture_default_str();
    app->add_option("--version", settings->Create.Version, "File format, 110 or 120")
        ->check(CLI::IsMember({110, 120}))
        ->type_name("N")
        ->capture_default_str();
    app->footer(
        "A file adds groups by itself, but its frame size is for good; with --for it is chosen so that reading\n"
        "stays at about one frame. The groups are chosen so that the file need not add many.\n\n"
        "Examples:\n"
        "  qx create CUST\n"
        "  qx create CUST --for 1000000 --record-bytes 120\n"
        "  qx create CUST --modulo 2003 --frame-size 4096\n"
        "  qx create CUST --modulo 101 --size-lock 2");
    return {app, [settings](Output& output) { return Create(*settings, output); }};
}

}  // namespace qx::tool
