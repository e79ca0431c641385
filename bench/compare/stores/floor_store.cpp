// The floors: the system calls without which no program could do the work of the store that they imitate, and nothing
// else. Frames lie in one file and are of the store's frame size; an operation visits as many of them as the store's
// did on average, and takes as many locks.
#include <cerrno>
#include <fcntl.h>
#include <sched.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "stores.h"

namespace qx::compare {

namespace {

[[noreturn]] void FailSystemCall(const char* words) {
    throw std::system_error(errno, std::generic_category(), words);
}

class Descriptor {
  public:
    Descriptor(const std::string& path, bool create)
        : value_(::open(path.c_str(), O_RDWR | O_CLOEXEC | (create ? O_CREAT : 0), 0666)) {
        if (value_ < 0) {
            FailSystemCall("open");
        }
    }
    ~Descriptor() { ::close(value_); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Get() const { return value_; }

  private:
    const int value_;
};

// Hands a number of operations as many whole pieces of work as their average says.
class Dose {
  public:
    uint64_t Next(double average) {
        due_ += average;
        const auto whole = static_cast<uint64_t>(due_);
        due_ -= static_cast<double>(whole);
        return whole;
    }

  private:
    double due_ = 0;
};

class FloorStore;

class FloorAccess final : public Access {
  public:
    explicit FloorAccess(const FloorStore& store);

    bool Get(std::string_view key, std::string&) override {
        Operate(FrameOf(key));
        return true;
    }
    void Put(std::string_view key, std::string_view) override { Operate(FrameOf(key)); }
    bool Delete(std::string_view key) override {
        Operate(FrameOf(key));
        return true;
    }
    WalkTotals Walk() override;

  private:
    uint64_t FrameOf(std::string_view key) const;
    void Operate(uint64_t frame);
    void SetLock(short type, uint64_t frame);

    const FloorStore& store_;
    Dose reads_;
    Dose writes_;
    Dose locks_;
    std::vector<char> buffer_;
};

class FloorStore final : public Store {
  public:
    FloorStore(const StoreSettings& settings, bool takeLocks)
        : Plan(settings.Floor),
          Records(settings.Records),
          TakeLocks(takeLocks),
          Frames(settings.Directory + "/frames", settings.Create),
          Locks(settings.Directory + "/locks", settings.Create) {
        if (settings.Create) {
            const std::vector<char> frame(Plan.FrameSize, '.');
            for (uint64_t index = 0; index < Plan.Frames; ++index) {
                if (::pwrite(Frames.Get(), frame.data(), frame.size(), OffsetOf(index)) < 0) {
                    FailSystemCall("pwrite");
                }
            }
        }
    }

    std::unique_ptr<Access> Connect() override { return std::make_unique<FloorAccess>(*this); }
    void Begin(Phase phase) override { Current = phase; }

    off_t OffsetOf(uint64_t frame) const { return static_cast<off_t>(frame * Plan.FrameSize); }
    const FrameWork& PerOperation() const { return Plan.PerOperation[IndexOf(Current)]; }

    const FloorPlan Plan;
    const Load Records;
    const bool TakeLocks;
    const Descriptor Frames;
    const Descriptor Locks;
    Phase Current = Phase::Insert;
};

FloorAccess::FloorAccess(const FloorStore& store) : store_(store), buffer_(store.Plan.FrameSize, '.') {}

uint64_t FloorAccess::FrameOf(std::string_view key) const {
    uint64_t hash = 0;
    for (const char c : key) {
        hash = hash * 31 + static_cast<uint8_t>(c);
    }
    return (hash * 0x9E3779B97F4A7C15 >> 32) % store_.Plan.Frames;
}

void FloorAccess::SetLock(short type, uint64_t frame) {
    struct flock range {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = static_cast<off_t>(0x7FFFFFFF00000000 + frame);
    range.l_len = 1;
    while (::fcntl(store_.Locks.Get(), F_OFD_SETLK, &range) != 0) {
        if (errno != EAGAIN && errno != EACCES && errno != EINTR) {
            FailSystemCall("fcntl");
        }
        ::sched_yield();
    }
}

// The frames after the first stand for overflow frames and for those of the file's own book-keeping, which lie
// elsewhere; the locks after the first, for those on them.
void FloorAccess::Operate(uint64_t frame) {
    const FrameWork& average = store_.PerOperation();
    const uint64_t reads = reads_.Next(average.Reads);
    const uint64_t writes = writes_.Next(average.Writes);
    uint64_t locks = store_.TakeLocks ? locks_.Next(average.Locks) : 0;
    const auto elsewhere = [&](uint64_t count) { return (frame + count * 7919) % store_.Plan.Frames; };
    const bool locked = locks > 0;
    if (locked) {
        SetLock(writes > 0 ? F_WRLCK : F_RDLCK, frame);
    }
    for (uint64_t index = 0; index < reads; ++index) {
        if (::pread(store_.Frames.Get(), buffer_.data(), buffer_.size(), store_.OffsetOf(elsewhere(index))) < 0) {
            FailSystemCall("pread");
        }
    }
    for (uint64_t index = 0; index < writes; ++index) {
        if (::pwrite(store_.Frames.Get(), buffer_.data(), buffer_.size(), store_.OffsetOf(elsewhere(index))) < 0) {
            FailSystemCall("pwrite");
        }
    }
    if (locked) {
        SetLock(F_UNLCK, frame);
    }
    for (uint64_t index = 1; index < locks; ++index) {
        SetLock(F_WRLCK, elsewhere(index));
        SetLock(F_UNLCK, elsewhere(index));
    }
}

WalkTotals FloorAccess::Walk() {
    const double framesPerRecord =
        static_cast<double>(store_.Plan.Frames) / static_cast<double>(store_.Records.Records);
    for (uint64_t record = 0; record < store_.Records.Records; ++record) {
        Operate(static_cast<uint64_t>(static_cast<double>(record) * framesPerRecord));
    }
    return {store_.Records.Records, store_.Records.Records * kKeyBytes};
}

}  // namespace

std::unique_ptr<Store> OpenFloor(const StoreSettings& settings) {
    return std::make_unique<FloorStore>(settings, true);
}

std::unique_ptr<Store> OpenFloorUnlocked(const StoreSettings& settings) {
    return std::make_unique<FloorStore>(settings, false);
}

}  // namespace qx::compare
