// A store under comparison.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "phase.h"
#include "workload.h"

namespace qx::compare {

enum class Sizing : uint8_t {
    Default,  // the store is told nothing about what it is to hold
    Advised,  // it gets the parameters that its manual recommends for the number and size of the records
};

// Frames moved and locks taken: how much an operation asks of the operating system.
struct FrameWork {
    double Reads = 0;
    double Writes = 0;
    double Locks = 0;
};

// What a floor does in place of a store: in each phase, the work of an average operation.
struct FloorPlan {
    uint32_t FrameSize = 0;
    uint64_t Frames = 0;  // of the file
    ForEachPhase<FrameWork> PerOperation;
};

struct StoreSettings {
    std::string Directory;  // the store's own
    bool Create = false;    // otherwise it is there
    Load Records;
    Sizing Size = Sizing::Default;
    FloorPlan Floor;
};

struct WalkTotals {
    uint64_t Keys = 0;
    uint64_t KeyBytes = 0;
};

// What one thread works on an open store through. Whatever goes wrong is thrown.
class Access {
  public:
    virtual ~Access() = default;

    // False when there is no such record.
    virtual bool Get(std::string_view key, std::string& into) = 0;
    // Stores a record, in place of one with the same key.
    virtual void Put(std::string_view key, std::string_view data) = 0;
    // False when there is no such record.
    virtual bool Delete(std::string_view key) = 0;
    // Takes every key in hand.
    virtual WalkTotals Walk() = 0;
};

// A store that a process has open; destroying it closes it.
class Store {
  public:
    virtual ~Store() = default;

    // The Access objects go before the store.
    virtual std::unique_ptr<Access> Connect() = 0;

    virtual void Begin(Phase) {}

    // For the stores that a floor imitates: what this process has done so far, and the size of their frames.
    virtual FrameWork Work() const { return {}; }
    virtual uint32_t FrameSize() const { return 0; }
};

// The bytes of a store's files that hold records.
uint64_t SizeOnDisk(const std::string& directory);

}  // namespace qx::compare
