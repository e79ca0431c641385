#include "file_builder.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

#include "bytes.h"
#include "group_rule.h"

namespace qx_check {

namespace {

constexpr uint32_t kPrimaryHeaderLength = 13;
constexpr uint32_t kOverflowHeaderLength = 14;

// A group's records as one stream of bytes, before it is cut into frames.
struct Stream {
    struct Extent {
        size_t lastBeforeData;  // last byte of the key, or of its length when the key is empty
        size_t terminator;
    };

    std::string bytes;
    std::vector<Extent> records;

    void Append(const Record& record) {
        const std::string keyLength = EncodeNumber(static_cast<uint32_t>(record.key.size()));
        const size_t length = keyLength.size() + record.key.size() + record.data.size();
        bytes += EncodeNumber(static_cast<uint32_t>(length)) + keyLength + record.key;
        const size_t lastBeforeData = bytes.size() - 1;
        bytes += record.data;
        records.push_back({lastBeforeData, bytes.size()});
        bytes += '\xFF';
    }
};

class Builder {
  public:
    explicit Builder(const FileShape& shape) : shape_(shape), free_(shape.freeFrames.begin(), shape.freeFrames.end()) {
        const bool knownHeader = shape.headerLength == 22 || shape.headerLength == 26 || shape.headerLength == 32;
        if (!knownHeader || shape.modulo == 0 || shape.frameSize < 256) {
            throw std::invalid_argument("no hashed file has this header length, modulo or frame size");
        }
        if (shape.frameSize > 0xFFFF && shape.headerLength != 32) {
            throw std::invalid_argument("the frame size does not fit the header");
        }
        if (free_.count(0) != 0) {
            throw std::invalid_argument("overflow frame 0 is never free");
        }
    }

    BuiltFile Build(const std::vector<Record>& records) {
        std::vector<Stream> groups(shape_.modulo);
        const Split split = SplitModulo(shape_.modulo);
        for (const Record& record : records) {
            groups[GroupOf(HashKey(record.key), split)].Append(record);
        }
        file_.primary.assign(size_t{shape_.modulo} * shape_.frameSize, shape_.fillCharacter);
        uint64_t alpha = 0;
        for (uint32_t group = 0; group < shape_.modulo; ++group) {
            groups[group].bytes += '\x80';
            alpha += std::min<uint64_t>(HeaderLength(group) + groups[group].bytes.size(), shape_.frameSize);
            PlaceGroup(group, groups[group]);
        }
        PutHeader(alpha, static_cast<uint32_t>(records.size()));
        PutFreeList();
        return std::move(file_);
    }

  private:
    uint32_t HeaderLength(uint32_t group) const { return group == 0 ? shape_.headerLength : kPrimaryHeaderLength; }

    uint32_t NewOverflowFrame() {
        do {
            ++lastFrame_;
        } while (free_.count(lastFrame_) != 0);
        file_.overflow.resize((size_t{lastFrame_} + 1) * shape_.frameSize, shape_.fillCharacter);
        return lastFrame_;
    }

    void PlaceGroup(uint32_t group, const Stream& stream) {
        const size_t inPrimary = shape_.frameSize - HeaderLength(group);
        const size_t inOverflow = shape_.frameSize - kOverflowHeaderLength;
        const auto frameOf = [&](size_t byte) {
            return byte < inPrimary ? size_t{0} : 1 + (byte - inPrimary) / inOverflow;
        };

        // frames[0] stands for the primary frame; the 0 at the end is the link of the last frame.
        std::vector<uint32_t> frames(frameOf(stream.bytes.size() - 1) + 1);
        std::generate(frames.begin() + 1, frames.end(), [this] { return NewOverflowFrame(); });
        frames.push_back(0);
        std::vector<uint32_t> skipLinks(frames.begin() + 1, frames.end());
        for (const Stream::Extent& record : stream.records) {
            const size_t first = frameOf(record.lastBeforeData);
            const size_t last = frameOf(record.terminator);
            if (last > first + 1) {
                skipLinks[first] = frames[last];
            }
        }

        size_t placed = 0;
        for (size_t i = 0; i + 1 < frames.size(); ++i) {
            uint8_t* frame = i == 0 ? file_.primary.data() + size_t{group} * shape_.frameSize
                                    : file_.overflow.data() + size_t{frames[i]} * shape_.frameSize;
            const uint32_t headerLength = i == 0 ? HeaderLength(group) : kOverflowHeaderLength;
            const auto stamp = shape_.stamps.find(group);
            frame[0] = static_cast<uint8_t>(headerLength);
            Put32(frame + 1, frames[i + 1]);
            Put32(frame + 5, skipLinks[i]);
            Put32(frame + 9, i > 0 ? group : stamp != shape_.stamps.end() ? stamp->second : shape_.modulo);
            const size_t piece = std::min(stream.bytes.size() - placed, size_t{shape_.frameSize} - headerLength);
            std::copy_n(stream.bytes.begin() + static_cast<std::ptrdiff_t>(placed), piece, frame + headerLength);
            placed += piece;
        }
    }

    void PutHeader(uint64_t alpha, uint32_t recordCount) {
        uint8_t* header = file_.primary.data();
        Put16(header + 13, static_cast<uint16_t>(shape_.frameSize & 0xFFFF));
        Put32(header + 15, static_cast<uint32_t>(alpha & 0xFFFFFFFF));
        header[19] = shape_.threshold;
        Put16(header + 20, shape_.sizeLock);
        if (shape_.headerLength >= 26) {
            Put32(header + 22, recordCount);
        }
        if (shape_.headerLength == 32) {
            Put16(header + 26, static_cast<uint16_t>(shape_.frameSize >> 16));
            Put32(header + 28, static_cast<uint32_t>(alpha >> 32));
        }
    }

    void PutListFrame(uint32_t frame, uint32_t next, const std::vector<uint32_t>& entries) {
        uint8_t* bytes = file_.overflow.data() + size_t{frame} * shape_.frameSize;
        bytes[0] = kOverflowHeaderLength;
        Put16(bytes + 1, static_cast<uint16_t>(entries.size()));
        Put32(bytes + 3, next);
        for (size_t i = 0; i < entries.size(); ++i) {
            Put32(bytes + 7 + 4 * i, entries[i]);
        }
    }

    void PutFreeList() {
        const uint32_t highWater = std::max(lastFrame_, free_.empty() ? 0 : *free_.rbegin()) + 1;
        if (highWater == 1) {
            return;
        }
        file_.overflow.resize(size_t{highWater} * shape_.frameSize, shape_.fillCharacter);

        // What frame 0 cannot hold goes to chained frames, the lowest numbers in blocks of half the capacity.
        const size_t half = (shape_.frameSize - 7) / 4 / 2;
        std::vector<uint32_t> numbers(free_.rbegin(), free_.rend());
        uint32_t next = 0;
        const size_t roomInHead = 2 * half - 1;
        const size_t blocks = numbers.size() > roomInHead ? (numbers.size() - roomInHead + half - 1) / half : 0;
        for (size_t block = 0; block < blocks; ++block) {
            const std::vector<uint32_t> entries(numbers.end() - static_cast<std::ptrdiff_t>(half), numbers.end());
            numbers.resize(numbers.size() - half);
            PutListFrame(entries[0], next, entries);
            next = entries[0];
        }
        numbers.insert(numbers.begin(), highWater);
        PutListFrame(0, next, numbers);
    }

    const FileShape& shape_;
    const std::set<uint32_t> free_;
    BuiltFile file_;
    uint32_t lastFrame_ = 0;
};

void SaveBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    // A new file each time: some file systems wait for the disk when an old one is emptied and written again.
    std::filesystem::remove(path);
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

}  // namespace

void BuiltFile::Save(const std::string& pathWithoutExtension) const {
    SaveBytes(pathWithoutExtension + ".LK", primary);
    SaveBytes(pathWithoutExtension + ".OV", overflow);
}

BuiltFile BuildFile(const FileShape& shape, const std::vector<Record>& records) {
    return Builder(shape).Build(records);
}

std::string EncodeNumber(uint32_t value) {
    std::string digits(1, static_cast<char>(0x80 | (value & 0x7F)));
    for (value >>= 7; value != 0; value >>= 7) {
        digits.insert(digits.begin(), static_cast<char>(value & 0x7F));
    }
    return digits;
}

}  // namespace qx_check
