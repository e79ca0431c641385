#include "model/data_source.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "support/files_are_remote.h"

namespace qx_test {

namespace {

constexpr size_t kLongestKey = 300;

// Bytes that mean something in a group or in a key list.
constexpr char kMeaningful[] = {'\x80', '\xFF', '\xFE', '\x00'};

// In the key lists of a server nothing tells a delimiter from a key's own byte.
std::string AsKey(std::string bytes) {
    if (filesAreRemote) {
        std::replace(bytes.begin(), bytes.end(), '\xFE', '\xFD');
    }
    return bytes;
}

}  // namespace

DataSource::DataSource(uint64_t seed, uint32_t frameSize, size_t keys, size_t longest)
    : random_(seed), frameSize_(frameSize), longest_(longest) {
    AddKeys(keys);
}

std::string DataSource::Bytes(size_t length) {
    std::string bytes(length + sizeof(uint64_t), '\0');
    for (size_t i = 0; i < length; i += sizeof(uint64_t)) {
        const uint64_t word = random_();
        std::memcpy(bytes.data() + i, &word, sizeof word);
    }
    bytes.resize(length);
    return bytes;
}

// Besides the empty key and plain numbers: clusters of keys that begin alike, or end alike, or are one another's
// beginnings.
void DataSource::AddKeys(size_t count) {
    std::set<std::string> keys = {""};
    for (const char byte : kMeaningful) {
        keys.insert(AsKey(std::string(1, byte)));
    }
    while (keys.size() < count) {
        const std::string base = AsKey(Bytes(OneIn(4) ? Below(kLongestKey - 3) : Below(24)));
        for (uint32_t i = 0; i < 8; ++i) {
            keys.insert(base.substr(0, Below(base.size() + 1)));
            keys.insert(base + AsKey(Bytes(1 + Below(3))));
            keys.insert(AsKey(Bytes(1)) + base);
            keys.insert(std::to_string(Below(count)));
        }
    }
    keys_.assign(keys.begin(), keys.end());
    std::shuffle(keys_.begin(), keys_.end(), random_);
    keys_.resize(count);
}

std::string DataSource::StrangeKey() {
    std::string key = Key();
    if (!key.empty() && OneIn(2)) {
        key[Below(key.size())] ^= static_cast<char>(1 + Below(255));
        return AsKey(key);
    }
    return key.substr(0, kLongestKey - 4) + AsKey(Bytes(4));
}

size_t DataSource::Length() {
    const uint32_t choice = Below(200);
    if (choice == 0) {
        return Below(longest_ + 1);
    }
    if (choice < 25) {
        const size_t aFrame = frameSize_ - 14;
        const size_t edge = (1 + Below(4)) * aFrame + 12;
        return std::min(longest_, edge - Below(30));
    }
    if (choice < 60) {
        return Below(std::min<size_t>(longest_, size_t{2} * frameSize_) + 1);
    }
    return choice < 70 ? 0 : Below(64);
}

std::string DataSource::Data(size_t length) {
    return OneIn(4) ? std::string(length, kMeaningful[Below(std::size(kMeaningful))]) : Bytes(length);
}

}  // namespace qx_test
