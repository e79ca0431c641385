// The shapes of files that the model tests work on, and what their runs have in common.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <qx.hpp>
#include <sstream>
#include <stdexcept>
#include <string>

#include "model/data_source.h"
#include "model/model.h"
#include "support/test_library.h"

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

// A file beside its model.
class ModelFile {
  protected:
    ModelFile(const Scenario& scenario, uint64_t seed)
        : scenario_(scenario),
          seed_(seed),
          path_(directory_.File("MODEL")),
          source_(seed, scenario.FrameSize, scenario.Keys, scenario.Longest),
          model_(scenario.FixedModulo()) {
        WriteWholeFile(directory_.File("MOXPARAM"), scenario.Parameters);
    }

    // Makes the file; one made by hand begins with some records.
    void MakeFile(qx::Session& session) {
        if (scenario_.HeaderLength != 22) {
            session.CreateFile(path_, {.Modulo = scenario_.Modulo,
                                       .FrameSize = scenario_.FrameSize,
                                       .SizeLock = scenario_.SizeLock,
                                       .Version = scenario_.Version()});
            return;
        }
        std::vector<qx_check::Record> records;
        for (size_t i = 0; i < scenario_.Keys / 4; ++i) {
            const std::string& key = source_.Key();
            if (model_.Find(key) == nullptr) {
                records.push_back({key, source_.Data(source_.Length())});
                model_.Put(key, records.back().data);
            }
        }
        qx_check::FileShape shape;
        shape.headerLength = scenario_.HeaderLength;
        shape.modulo = scenario_.Modulo;
        shape.frameSize = scenario_.FrameSize;
        shape.sizeLock = scenario_.SizeLock;
        qx_check::BuildFile(shape, records).Save(path_);
    }

    // The file, at this moment, must be without fault and hold what the model holds.
    void CheckDisk(const qx_check::Options& options) {
        const DiskImage disk(path_, options, model_);
        if (!disk.Report().Clean()) {
            Fail("on disk: " + disk.Report().problems.front());
        }
        const uint32_t group = disk.FirstDifference(model_);
        if (group != DiskImage::kNone) {
            Fail("the records of group " + std::to_string(group) + " differ on disk");
        }
    }

    // What the operation under way wrote or read is not what the model says.
    [[noreturn]] void Fail(const std::string& what) const {
        std::ostringstream text;
        text << "seed " << seed_ << ", operation " << operation_ << ", " << scenario_ << doing_ << ": " << what;
        throw std::runtime_error(text.str());
    }

    void Require(bool condition, const char* what) const {
        if (!condition) {
            Fail(what);
        }
    }

    const Scenario scenario_;
    const uint64_t seed_;
    uint64_t operation_ = 0;
    std::string doing_;  // about the operation, for Fail
    TestDirectory directory_;
    const std::string path_;
    DataSource source_;
    Model model_;
};

}  // namespace qx_test
