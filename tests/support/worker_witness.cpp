#include "support/worker_witness.h"

#include <chrono>
#include <stdexcept>
#include <thread>

namespace qx_test {

namespace {

FileHeaderRecord HeaderOf(uint32_t file) {
    FileHeaderRecord header{};
    header.Size = sizeof header;
    StatusRecord status{};
    if (QXGetFileHeader(file, &header, &status) == 0) {
        throw qx::Error(status);
    }
    return header;
}

qx::File MakeFile(qx::Session& session, const std::string& path) {
    session.CreateFile(path, {.FrameSize = 256});
    return session.OpenFile(path);
}

}  // namespace

WorkerWitness::WorkerWitness(const qx::Library& library, const std::string& path)
    : session_(library), file_(MakeFile(session_, path)) {}

void WorkerWitness::AwaitTurn() {
    constexpr const char* kKey = "key";
    if (grown_) {
        file_.Delete(kKey);
    } else {
        file_.Write(kKey, std::string(240, 'd'));
    }
    grown_ = !grown_;
    const uint32_t due = grown_ ? 2 : 1;
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (HeaderOf(file_.Handle()).Modulo != due) {
        if (std::chrono::steady_clock::now() > end) {
            throw std::runtime_error("the worker does not come round");
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

// A step that was due or under way when the turn began has changed the number of groups by its end. One more turn, as a
// file that has just had a step may be queued again behind the witness.
FileHeaderRecord WorkerWitness::Settle(uint32_t file) {
    for (;;) {
        const FileHeaderRecord before = HeaderOf(file);
        AwaitTurn();
        AwaitTurn();
        const FileHeaderRecord after = HeaderOf(file);
        if (before.Modulo == after.Modulo) {
            return after;
        }
    }
}

}  // namespace qx_test
