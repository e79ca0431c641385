// The shapes of files that the model tests work on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <qx.hpp>
#include <string>

#include "model/data_source.h"
#include "model/model.h"

namespace qx_test {

struct Scenario {
    uint8_t HeaderLength;  // 22 (made by hand, as the library never makes it), 26 or 32
    uint32_t FrameSize;
    uint32_t Modulo;
    uint16_t SizeLock;            // 2: the number of groups stays; less: it may change at any time
    size_t Keys;                  // different keys in use
    size_t Longest;               // bytes of data
    const char* Parameters = "";  // of the volume

    uint32_t FixedModulo() const { return SizeLock >= 2 ? Modulo : 0; }
    uint32_t Version() const { return HeaderLength == 22 ? 100 : HeaderLength == 26 ? 110 : 120; }
};

inline std::ostream& operator<<(std::ostream& to, const Scenario& scenario) {
    return to << "version " << scenario.Version() << ", frames of " << scenario.FrameSize << ", " << scenario.Modulo
              << " groups, size lock " << scenario.SizeLock;
}

// Makes the file; one made by hand begins with some records, which go into the model too.
inline void MakeScenarioFile(const Scenario& scenario, const std::string& path, qx::Session& session,
                             DataSource& source, Model& model) {
    if (scenario.HeaderLength != 22) {
        session.CreateFile(path, {.Modulo = scenario.Modulo,
                                  .FrameSize = scenario.FrameSize,
                                  .SizeLock = scenario.SizeLock,
                                  .Version = scenario.Version()});
        return;
    }
    std::vector<qx_check::Record> records;
    for (size_t i = 0; i < scenario.Keys / 4; ++i) {
        const std::string& key = source.Key();
        if (model.Find(key) == nullptr) {
            records.push_back({key, source.Data(source.Length())});
            model.Put(key, records.back().data);
        }
    }
    qx_check::FileShape shape;
    shape.headerLength = scenario.HeaderLength;
    shape.modulo = scenario.Modulo;
    shape.frameSize = scenario.FrameSize;
    shape.sizeLock = scenario.SizeLock;
    qx_check::BuildFile(shape, records).Save(path);
}

}  // namespace qx_test
