#include "records/resize_case.h"

#include "checker/group_rule.h"

namespace qx_test {

size_t RecordBytes(const Item& record) {
    const size_t length = qx_check::EncodeNumber(static_cast<uint32_t>(record.key.size())).size() + record.key.size() +
                          record.data.size();
    return qx_check::EncodeNumber(static_cast<uint32_t>(length)).size() + length + 1;
}

uint32_t GroupOf(const std::string& key, uint32_t modulo) {
    return qx_check::GroupOf(qx_check::HashKey(key), qx_check::SplitModulo(modulo));
}

Groups Distribute(const std::vector<Item>& records, uint32_t modulo) {
    Groups groups(modulo);
    for (const Item& record : records) {
        groups[GroupOf(record.key, modulo)].push_back(record);
    }
    return groups;
}

uint64_t BytesOf(const Groups& groups, size_t group, const qx_check::FileShape& shape) {
    uint64_t bytes = (group == 0 ? shape.headerLength : kPrimaryHeader) + 1;
    for (const Item& record : groups[group]) {
        bytes += RecordBytes(record);
    }
    return bytes;
}

uint64_t LoadOf(const Groups& groups, const qx_check::FileShape& shape) {
    uint64_t load = 0;
    for (size_t i = 0; i < groups.size(); ++i) {
        load += std::min<uint64_t>(BytesOf(groups, i, shape), shape.frameSize);
    }
    return load;
}

uint64_t GrowLimit(const qx_check::FileShape& shape, uint32_t modulo) {
    return uint64_t{modulo} * (shape.threshold * shape.frameSize >> 8);
}

uint64_t ShrinkLimit(const qx_check::FileShape& shape, uint32_t modulo) {
    return uint64_t{modulo - 1} * ((shape.threshold * shape.frameSize >> 8) * 9 / 10);
}

std::vector<Item> With(std::vector<Item> records, const Item& one) {
    records.push_back(one);
    return records;
}

Item RandomRecord(std::mt19937_64& random, const Content& content, size_t number) {
    const auto below = [&random](size_t bound) { return random() % bound; };
    Item record{std::to_string(number) + '/', std::string(below(40), static_cast<char>(below(256)))};
    if (below(3) == 0) {
        record.key += std::string(below(content.LongestKey), static_cast<char>(below(256)));
        record.data.assign(below(content.LongestData), static_cast<char>(below(256)));
    }
    return record;
}

Brink FindBrink(std::mt19937_64& random, const Step& step, const Content& content) {
    Brink brink;
    brink.Shape.modulo = step.From;
    brink.Shape.frameSize = content.FrameSize;
    const bool grows = step.To > step.From;
    const auto load = [&](const std::vector<Item>& records, uint32_t modulo) {
        return LoadOf(Distribute(records, modulo), brink.Shape);
    };
    for (;;) {
        brink.Records.clear();
        for (;;) {
            brink.Trigger = RandomRecord(random, content, brink.Records.size());
            const uint64_t now = load(With(brink.Records, brink.Trigger), step.From);
            if (grows ? now > GrowLimit(brink.Shape, step.From) : now >= ShrinkLimit(brink.Shape, step.From)) {
                break;
            }
            brink.Records.push_back(brink.Trigger);
        }
        const std::vector<Item> all = With(brink.Records, brink.Trigger);
        const auto isQuiet = [&](const std::vector<Item>& records, uint32_t modulo) {
            const uint64_t bytes = load(records, modulo);
            return bytes <= GrowLimit(brink.Shape, modulo) && bytes >= ShrinkLimit(brink.Shape, modulo);
        };
        if (isQuiet(grows ? brink.Records : all, step.From) && isQuiet(grows ? all : brink.Records, step.To)) {
            return brink;
        }
    }
}

Groups ResizeTest::StoredGroups() {
    Groups groups;
    const qx_check::Report report =
        qx_check::CheckFile(Path(kFile), {}, [&](std::string_view key, std::string_view data, uint32_t group) {
            groups.resize(std::max<size_t>(groups.size(), group + 1));
            groups[group].push_back({std::string(key), std::string(data)});
        });
    EXPECT_EQ(testing::PrintToString(report.problems), "{}");
    groups.resize(report.header.modulo);
    return groups;
}

}  // namespace qx_test
