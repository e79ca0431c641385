#include "model/model.h"

#include <algorithm>

namespace qx_test {

namespace {

constexpr uint32_t kOwnGroups = 256;

size_t NumberBytes(size_t value) {
    return value < 128 ? 1 : 1 + NumberBytes(value >> 7);
}

// Works for const and other groups.
auto FindIn(auto& group, std::string_view key) {
    return std::find_if(group.begin(), group.end(), [key](const auto& record) { return record.key == key; });
}

}  // namespace

size_t RecordBytes(const qx_check::Record& record) {
    const size_t length = NumberBytes(record.key.size()) + record.key.size() + record.data.size();
    return NumberBytes(length) + length + 1;
}

Model::Model(uint32_t modulo)
    : modulo_(modulo),
      split_(qx_check::SplitModulo(modulo != 0 ? modulo : kOwnGroups)),
      groups_(modulo != 0 ? modulo : kOwnGroups) {}

const std::string* Model::Find(std::string_view key) const {
    const GroupRecords& group = groups_[GroupOf(key)];
    const auto found = FindIn(group, key);
    return found == group.end() ? nullptr : &found->data;
}

void Model::Put(std::string_view key, std::string_view data) {
    GroupRecords& group = groups_[GroupOf(key)];
    const auto found = FindIn(group, key);
    if (found != group.end() && found->data.size() == data.size()) {
        found->data = data;
        return;
    }
    if (found != group.end()) {
        group.erase(found);
    }
    group.push_back({std::string(key), std::string(data)});
}

void Model::Erase(std::string_view key) {
    GroupRecords& group = groups_[GroupOf(key)];
    group.erase(FindIn(group, key));
}

void Model::Clear() {
    groups_.assign(groups_.size(), {});
}

size_t Model::RecordCount() const {
    size_t count = 0;
    for (const GroupRecords& group : groups_) {
        count += group.size();
    }
    return count;
}

uint64_t Model::Alpha(uint32_t headerLength, uint32_t frameSize) const {
    uint64_t alpha = 0;
    for (uint32_t i = 0; i < groups_.size(); ++i) {
        size_t bytes = (i == 0 ? headerLength : 13) + 1;
        for (const qx_check::Record& record : groups_[i]) {
            bytes += RecordBytes(record);
        }
        alpha += std::min<size_t>(bytes, frameSize);
    }
    return alpha;
}

DiskImage::DiskImage(const std::string& path, const qx_check::Options& options, const Model& model)
    : groups_(model.GroupCount()) {
    report_ = qx_check::CheckFile(path, options, [&](std::string_view key, std::string_view data, uint32_t group) {
        const uint32_t at = model.KnowsGroups() ? group : model.GroupOf(key);
        groups_.at(at).push_back({std::string(key), std::string(data)});
    });
}

uint32_t DiskImage::FirstDifference(Model& model, const std::set<uint32_t>& except) const {
    for (uint32_t i = 0; i < groups_.size(); ++i) {
        bool same = groups_[i] == model.Group(i);
        if (!same && !model.KnowsGroups()) {
            GroupRecords here = groups_[i];
            GroupRecords there = model.Group(i);
            std::sort(here.begin(), here.end());
            std::sort(there.begin(), there.end());
            same = here == there;
        }
        if (!same && !except.contains(i)) {
            return i;
        }
    }
    return kNone;
}

}  // namespace qx_test
