// What a hashed file must hold, worked out in memory: its records and, where its number of groups is fixed, which group
// they are in and in which order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "checker/byte_checker.h"
#include "checker/file_builder.h"
#include "checker/group_rule.h"

namespace qx_test {

using GroupRecords = std::vector<qx_check::Record>;

class Model {
  public:
    // With 0 groups the file changes their number by itself. The records then lie in groups of the model's own.
    explicit Model(uint32_t modulo);

    bool KnowsGroups() const { return modulo_ != 0; }
    uint32_t GroupOf(std::string_view key) const { return qx_check::GroupOf(qx_check::HashKey(key), split_); }
    GroupRecords& Group(uint32_t group) { return groups_[group]; }
    uint32_t GroupCount() const { return static_cast<uint32_t>(groups_.size()); }

    // The data; null when there is no such record.
    const std::string* Find(std::string_view key) const;
    // A record of the same length stays where it is, any other goes to the end of its group.
    void Put(std::string_view key, std::string_view data);
    void Erase(std::string_view key);
    void Clear();

    size_t RecordCount() const;

    // What the groups come to in the header's Alpha.
    uint64_t Alpha(uint32_t headerLength, uint32_t frameSize) const;

  private:
    const uint32_t modulo_;
    const qx_check::Split split_;
    std::vector<GroupRecords> groups_;
};

// Bytes that a record takes in its group.
size_t RecordBytes(const qx_check::Record& record);

// The records of a file on disk, in groups as the model has them.
class DiskImage {
  public:
    DiskImage(const std::string& path, const qx_check::Options& options, const Model& model);

    const qx_check::Report& Report() const { return report_; }
    const GroupRecords& Group(uint32_t group) const { return groups_[group]; }

    // The first group that differs, apart from the groups in `except`, or kNone. The order in a group matters if the
    // model knows the groups.
    static constexpr uint32_t kNone = 0xFFFFFFFF;
    uint32_t FirstDifference(Model& model, const std::set<uint32_t>& except = {}) const;

  private:
    qx_check::Report report_;
    std::vector<GroupRecords> groups_;
};

}  // namespace qx_test
