#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <qx.hpp>
#include <string>

namespace qx::tool {

/// How a file is to be made.
struct Creation {
    CreateSettings Settings;
    std::string Choice;  // what was chosen for the records to come, in words; empty when nothing was
};

/// The same with frame size and groups chosen for so many records of so many bytes, keys included.
Creation SizedFor(const CreateSettings& settings, std::uint64_t records, std::uint64_t recordBytes);

/// The settings to make a file like one with this header; of a version that is made no longer, the newest takes the
/// place.
CreateSettings SettingsOf(const HeaderValues& header);

/// The options that say what a new file is to be like. To be kept where it is while the command line is parsed.
class CreationOptions {
  public:
    enum class Otherwise { Defaults, AsSource };

    /// `otherwise`: where a setting comes from that the user does not give.
    CreationOptions(CLI::App& app, Otherwise otherwise);
    CreationOptions(const CreationOptions&) = delete;
    CreationOptions& operator=(const CreationOptions&) = delete;

    /// Whether the user gave any of them.
    bool Given() const;

    /// Makes `fit`, an option that has the command size the file itself, one that those that do so exclude.
    void ExcludeSizing(CLI::Option& fit);

    /// For a file that is made from nothing. Tells what it moves into range; throws WrongUse.
    Creation ForNew() const;

    /// For a file that is to hold what one with the settings `source` holds: if the bytes that a group may hold change,
    /// so does the number of groups.
    Creation ForCopyOf(const CreateSettings& source) const;

  private:
    bool FrameSizeIsChosen() const;
    CreateSettings Over(const CreateSettings& settings) const;
    Creation Sized(const CreateSettings& settings) const;

    std::optional<std::uint32_t> modulo_;
    std::optional<std::uint32_t> frameSize_;
    std::optional<std::uint32_t> threshold_;
    std::optional<std::uint32_t> sizeLock_;
    std::optional<std::uint32_t> version_;
    std::optional<std::uint32_t> records_;
    std::optional<std::uint32_t> recordBytes_;
    CLI::Option* moduloOption_;
    CLI::Option* frameSizeOption_;
    CLI::Option* for_;
    const CLI::Option* fit_ = nullptr;
};

}  // namespace qx::tool
