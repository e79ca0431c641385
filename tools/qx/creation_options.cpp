#include "creation_options.h"

#include <algorithm>

#include "command.h"
#include "messages.h"
#include "number_text.h"
#include "sizing.h"
#include "storage/layout/file_header.h"

namespace qx::tool {

namespace {

/// The library would do the same without a word.
void Adjust(std::uint32_t& value, std::uint32_t least, std::uint32_t most, const std::string& option) {
    const std::uint32_t adjusted = std::clamp(value, least, most);
    if (adjusted != value) {
        Complain("note: " + option + " " + std::to_string(value) + " is out of range; " + std::to_string(adjusted) +
                 " is used");
        value = adjusted;
    }
}

// The bytes that a group may hold before one is added, in 256ths.
std::uint64_t Room(const CreateSettings& settings) {
    return std::uint64_t{settings.FrameSize} * settings.Threshold;
}

}  // namespace

Creation SizedFor(const CreateSettings& settings, std::uint64_t records, std::uint64_t recordBytes) {
    const Sizing sizing = Advise({records, StoredBytesOf(recordBytes), settings.Threshold, settings.Version});
    Creation creation{settings, {}};
    creation.Settings.FrameSize = sizing.FrameSize;
    creation.Settings.Modulo = sizing.Modulo;
    creation.Choice = Counted(sizing.Modulo, "group") + " of " + Counted(sizing.FrameSize, "byte") + "; with " +
                      Counted(records, "record") + " a read will visit " + OneDecimal(sizing.Visits) +
                      " frames on average";
    return creation;
}

CreateSettings SettingsOf(const HeaderValues& header) {
    return {.Modulo = header.Modulo,
            .FrameSize = header.FrameSize,
            .Threshold = header.Threshold,
            .SizeLock = header.SizeLock,
            .Version = header.Version < 110 ? 120 : header.Version};
}

CreationOptions::CreationOptions(CLI::App& app, Otherwise otherwise) {
    const CreateSettings defaults;
    const CLI::Range positive(std::uint32_t{1}, UINT32_MAX);
    const auto add = [&](const std::string& name, std::optional<std::uint32_t>& value, const std::string& description,
                         const CLI::Validator& check, const std::string& type) {
        return app.add_option(name, value, description)->check(check)->type_name(type);
    };
    const auto byDefault = [&](CLI::Option* option, std::uint32_t value) {
        return otherwise == Otherwise::Defaults ? option->default_str(std::to_string(value)) : option;
    };
    moduloOption_ =
        byDefault(add("--modulo", modulo_, "Number of groups to start with", positive, "N"), defaults.Modulo);
    frameSizeOption_ =
        byDefault(add("--frame-size", frameSize_,
                      "Bytes of a frame, at least 256; a group is one frame and, when it is full, further ones",
                      positive, "BYTES"),
                  defaults.FrameSize);
    CLI::Option* recordBytes = add("--record-bytes", recordBytes_,
                                   "With --for: bytes of a record, key and data, on average", positive, "BYTES");
    for_ = add("--for", records_, "Choose groups and frame size for so many records in the end", positive, "RECORDS")
               ->needs(recordBytes);
    recordBytes->needs(for_);
    for_->excludes(moduloOption_)->excludes(frameSizeOption_);
    byDefault(add("--threshold", threshold_,
                  "How full the file gets before a group is added, in 256ths of a frame, 25 to 255", positive, "N"),
              defaults.Threshold);
    byDefault(add("--size-lock", sizeLock_,
                  "0: the number of groups grows and shrinks; 1: it only grows; 2 or more: it stays",
                  CLI::Range(std::uint32_t{0}, std::uint32_t{65535}), "N"),
              defaults.SizeLock);
    byDefault(add("--version", version_, "File format, 110 or 120", CLI::IsMember({110, 120}), "N"), defaults.Version);
}

bool CreationOptions::Given() const {
    return modulo_ || frameSize_ || threshold_ || sizeLock_ || version_ || records_;
}

void CreationOptions::ExcludeSizing(CLI::Option& fit) {
    fit.excludes(moduloOption_)->excludes(frameSizeOption_)->excludes(for_);
    fit_ = &fit;
}

Creation CreationOptions::ForNew() const {
    return Sized(Over({}));
}

Creation CreationOptions::ForCopyOf(const CreateSettings& source) const {
    CreateSettings settings = Over(source);
    if (!modulo_ && Room(settings) != Room(source)) {
        const double groups = static_cast<double>(source.Modulo) * static_cast<double>(Room(source)) /
                              static_cast<double>(Room(settings));
        settings.Modulo = static_cast<std::uint32_t>(std::clamp(groups, 1.0, static_cast<double>(UINT32_MAX)));
    }
    return Sized(settings);
}

bool CreationOptions::FrameSizeIsChosen() const {
    return records_ || (fit_ != nullptr && fit_->count() != 0);
}

CreateSettings CreationOptions::Over(const CreateSettings& settings) const {
    CreateSettings over = {.Modulo = modulo_.value_or(settings.Modulo),
                           .FrameSize = frameSize_.value_or(settings.FrameSize),
                           .Threshold = threshold_.value_or(settings.Threshold),
                           .SizeLock = sizeLock_.value_or(settings.SizeLock),
                           .Version = version_.value_or(settings.Version)};
    Adjust(over.FrameSize, 256, UINT32_MAX, "--frame-size");
    Adjust(over.Threshold, 25, 255, "--threshold");
    if (over.Version == kVersion110 && over.FrameSize > kLargestFrame110) {
        if (!FrameSizeIsChosen()) {
            throw WrongUse("--frame-size: version 110 holds frames of at most 65535 bytes");
        }
        over.FrameSize = kLargestFrame110;  // for want of records to choose it for
    }
    return over;
}

Creation CreationOptions::Sized(const CreateSettings& settings) const {
    if (!records_) {
        return {settings, {}};
    }
    CreateSettings sized = settings;
    if (!sizeLock_) {
        // A file that may shrink would give up its groups again before the records have come.
        sized.SizeLock = std::max(sized.SizeLock, 1U);
    }
    return SizedFor(sized, *records_, *recordBytes_);
}

}  // namespace qx::tool
