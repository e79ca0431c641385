// A long random run on one file, beside a model of it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <qx.hpp>
#include <string>
#include <vector>

#include "model/data_source.h"
#include "model/model.h"
#include "model/scenario.h"
#include "support/test_library.h"

namespace qx_test {

class ModelRun {
  public:
    ModelRun(const Scenario& scenario, uint64_t seed);

    // Throws std::runtime_error, with the seed and the number of the operation, as soon as file and model disagree.
    void Run(uint64_t operations);

  private:
    struct Opened {
        explicit Opened(const qx::Library& library) : Session(library) {}

        qx::Session Session;
        std::vector<qx::File> Files;
    };

    void Operate();
    void Write(const std::string& key);
    void Delete(const std::string& key);
    void Read(const std::string& key);
    void ReadHeader();
    void AskForGroup(const std::string& key);
    void TryReadOnlyChange(const std::string& key);
    void Clear();
    void ReopenOne();
    void CloseAll();
    void OpenAll();
    void CheckDisk(const qx_check::Options& options);
    void CheckSome();

    void OpenSession(size_t index);
    qx::File& AnyFile();
    qx::File& WritableFile();
    void Require(bool condition, const std::string& what) const;
    [[noreturn]] void Fail(const std::string& what) const;

    const Scenario scenario_;
    const uint64_t seed_;
    uint64_t operation_ = 0;
    TestDirectory directory_;
    const std::string path_;
    DataSource source_;
    Model model_;
    bool growing_ = true;

    qx::Library library_;
    // The handles of the last one are read-only.
    static constexpr size_t kSessions = 3;
    static constexpr size_t kReadOnly = kSessions - 1;
    std::array<std::optional<Opened>, kSessions> sessions_;
};

}  // namespace qx_test
