// Random keys and data, chosen to meet the edges of frames, numbers and groups often.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace qx_test {

class DataSource {
  public:
    // `keys`: how many different keys there are; `longest`: bytes of the longest data.
    DataSource(uint64_t seed, uint32_t frameSize, size_t keys, size_t longest);

    uint32_t Below(uint64_t bound) { return static_cast<uint32_t>(random_() % bound); }
    bool OneIn(uint32_t count) { return Below(count) == 0; }

    // One of the keys.
    const std::string& Key() { return keys_[Below(keys_.size())]; }
    // A key that resembles one of them and is hardly ever one.
    std::string StrangeKey();

    // Mostly short, often just around a multiple of what a frame holds, now and then long.
    size_t Length();
    std::string Data(size_t length);

  private:
    void AddKeys(size_t count);
    std::string Bytes(size_t length);

    std::mt19937_64 random_;
    const uint32_t frameSize_;
    const size_t longest_;
    std::vector<std::string> keys_;
};

}  // namespace qx_test
