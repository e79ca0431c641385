// Threads that read and write one file at once.
#include <array>
#include <gtest/gtest.h>

#include "concurrent/shared_file.h"
#include "support/test_seed.h"

namespace qx_test {
namespace {

class ConcurrentRecords : public testing::TestWithParam<FileSettings> {};

TEST_P(ConcurrentRecords, OnKeysOfTheirOwn) {
    const uint64_t seed = TestSeed();
    SharedFile file(GetParam());
    constexpr size_t kThreads = 4;
    std::array<Records, kThreads> results;
    Crew crew(seed);
    for (size_t i = 0; i < kThreads; ++i) {
        crew.Add("owner " + std::to_string(i), [&, i, opened = file.Join()](Crew::Member& member) {
            Owner owner(member, std::string(1, static_cast<char>('a' + i)), 60);
            while (member.GoOn()) {
                owner.Operate(opened->File);
            }
            results[i] = owner.Due();
        });
    }
    crew.Run();
    Records due;
    for (const Records& records : results) {
        due.insert(records.begin(), records.end());
    }
    file.Check(due);
}

// One key on which writers take turns. Each write carries a new version; every fifth one is a delete. What a reader
// finds must be a version that stood there at some moment of its call.
class Register {
  public:
    explicit Register(std::string key) : key_(std::move(key)) {}

    void Write(Crew::Member& member, qx::File& file) {
        const std::lock_guard guard(mutex_);
        const uint64_t version = ++begun_;
        if (IsDelete(version)) {
            member.Step("deleting a shared key");
            if (!file.Delete(key_)) {
                member.Fail("a shared key was not there to be deleted");
            }
        } else {
            member.Step("writing a shared key");
            file.Write(key_, Value(version));
        }
        done_ = version;
    }

    void Read(Crew::Member& member, const qx::File& file) {
        const uint64_t oldest = done_;
        member.Step("reading a shared key");
        const std::optional<std::string> value = file.Read(key_);
        const uint64_t newest = begun_;
        if (!value) {
            if (oldest / kDeletes == newest / kDeletes && !IsDelete(oldest)) {
                member.Fail("a shared key is not there");
            }
            return;
        }
        const uint64_t version = std::strtoull(value->c_str() + key_.size() + 1, nullptr, 10);
        if (*value != Value(version)) {
            member.Fail("a mixed record: " + value->substr(0, 60));
        }
        if (version < oldest || version > newest) {
            member.Fail("version " + std::to_string(version) + " is not between " + std::to_string(oldest) + " and " +
                        std::to_string(newest));
        }
    }

    void AddTo(Records& records) const {
        if (!IsDelete(done_)) {
            records.emplace(key_, Value(done_));
        }
    }

  private:
    static constexpr uint64_t kDeletes = 5;
    static bool IsDelete(uint64_t version) { return version % kDeletes == 0; }

    // Of many lengths, with every byte depending on the version.
    std::string Value(uint64_t version) const {
        const std::string unit = key_ + ' ' + std::to_string(version) + ' ';
        std::string value;
        for (uint64_t i = 0; i <= version % 7 * (version % 11 == 0 ? 40 : 1); ++i) {
            value += unit;
        }
        return value;
    }

    const std::string key_;
    std::mutex mutex_;  // one writer at a time
    std::atomic<uint64_t> begun_{0};
    std::atomic<uint64_t> done_{0};
};

TEST_P(ConcurrentRecords, OnTheSameKeys) {
    const uint64_t seed = TestSeed();
    SharedFile file(GetParam());
    std::list<Register> registers;
    for (const char* key : {"", "A", "B", "C", "D", "E"}) {
        registers.emplace_back(key);
    }
    Crew crew(seed);
    for (int i = 0; i < 4; ++i) {
        crew.Add("sharer " + std::to_string(i), [&, opened = file.Join()](Crew::Member& member) {
            while (member.GoOn()) {
                Register& one = *std::next(registers.begin(), member.Below(registers.size()));
                if (member.OneIn(3)) {
                    one.Write(member, opened->File);
                } else {
                    one.Read(member, opened->File);
                }
            }
        });
    }
    crew.Run();
    Records due;
    for (const Register& one : registers) {
        one.AddTo(due);
    }
    file.Check(due);
}

INSTANTIATE_TEST_SUITE_P(Files, ConcurrentRecords,
                         testing::Values(FileSettings{256, 2, 2}, FileSettings{1024, 7, 2}, FileSettings{512, 1, 0}));

}  // namespace
}  // namespace qx_test
