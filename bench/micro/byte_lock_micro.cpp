// The byte lock table: by itself, where the volume has no byte locks and where a lock of this process is shared; and
// with the two system calls that a lock of its own takes, while the process holds others.
#include <benchmark/benchmark.h>
#include <cstdint>
#include <memory>
#include <vector>

#include "locking/byte_lock_table.h"
#include "own_directory.h"
#include "platform/platform.h"

namespace qx {

namespace {

constexpr uint32_t kUnit = 0x80000000;
constexpr uint32_t kTimeout = 60;

struct Volume {
    explicit Volume(bool supported) {
        File.Supported = supported;
        thePlatform.Files->Create(Directory.File("locks").c_str(), Sharing::None, &File.Handle);
    }
    ~Volume() { thePlatform.Files->Close(File.Handle); }

    const OwnDirectory Directory;
    LockFile File;
    ByteLockTable Table{File};
};

void AcquireAndRelease(benchmark::State& state, Volume& volume, bool exclusive) {
    ByteLock lock;
    for (auto _ : state) {
        volume.Table.Acquire(lock, kUnit, exclusive, kTimeout);
        volume.Table.Release(lock);
    }
}

void ByteLockUnsupported(benchmark::State& state) {
    Volume volume(false);
    AcquireAndRelease(state, volume, false);
}
BENCHMARK(ByteLockUnsupported);

void ByteLockShared(benchmark::State& state) {
    Volume volume(true);
    ByteLock held;
    volume.Table.Acquire(held, kUnit, false, kTimeout);
    AcquireAndRelease(state, volume, false);
    volume.Table.Release(held);
}
BENCHMARK(ByteLockShared);

void ByteLockOfItsOwn(benchmark::State& state) {
    Volume volume(true);
    std::vector<ByteLock> others(static_cast<size_t>(state.range(1)));
    uint32_t unit = kUnit;
    for (ByteLock& other : others) {
        volume.Table.Acquire(other, unit += volume.File.Map.Users(), false, kTimeout);
    }
    AcquireAndRelease(state, volume, state.range(0) != 0);
    for (ByteLock& other : others) {
        volume.Table.Release(other);
    }
}
BENCHMARK(ByteLockOfItsOwn)
    ->ArgNames({"exclusive", "others"})
    ->Args({0, 0})
    ->Args({1, 0})
    ->Args({1, 10})
    ->Args({1, 100});

}  // namespace

}  // namespace qx
