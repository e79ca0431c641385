// Ground for the byte checker's own tests: a folder of its own, and files built into it and checked there.
#pragma once

#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "byte_checker.h"
#include "bytes.h"
#include "file_builder.h"
#include "group_rule.h"

namespace qx_check {

class CheckFixture : public ::testing::Test {
  protected:
    CheckFixture() {
        std::random_device entropy;
        folder_ = std::filesystem::temp_directory_path() /
                  ("byte_checker_" + std::to_string(entropy()) + "_" + std::to_string(entropy()));
        std::filesystem::create_directory(folder_);
    }
    ~CheckFixture() override {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    std::string Path() const { return (folder_ / "FILE").string(); }

    Report Check(const BuiltFile& file, const Options& options = {}, const RecordCallback& onRecord = {}) const {
        file.Save(Path());
        return CheckFile(Path(), options, onRecord);
    }

  private:
    std::filesystem::path folder_;
};

inline uint32_t GroupOfKey(const std::string& key, uint32_t modulo) {
    return GroupOf(HashKey(key), SplitModulo(modulo));
}

inline std::string AllProblems(const Report& report) {
    std::string text;
    for (const std::string& problem : report.problems) {
        text += problem + "\n";
    }
    return text;
}

// Small records, and a few that need several frames.
inline std::vector<Record> MixedRecords(uint32_t count, uint32_t frameSize, uint32_t seed) {
    std::mt19937 random(seed);
    const auto below = [&random](uint32_t bound) { return static_cast<uint32_t>(random() % bound); };
    std::vector<Record> records;
    for (uint32_t i = 0; i < count; ++i) {
        Record record{"key " + std::to_string(i), {}};
        const bool longRecord = below(8) == 0;
        record.data.resize(below(longRecord ? 6 * frameSize : 60));
        for (char& c : record.data) {
            c = static_cast<char>(below(256));
        }
        records.push_back(record);
    }
    return records;
}

}  // namespace qx_check
