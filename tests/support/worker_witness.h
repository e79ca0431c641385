// When the worker has done: it works on files behind the calls, and tests have to wait for it without watching a clock.
#pragma once

#include <cstdint>
#include <qx.hpp>
#include <string>

namespace qx_test {

// A file of its own that grows or shrinks by a group whenever it is asked to. The worker takes files in turn, so when
// it has done that, it has also done what it was at and taken every other file that was waiting.
class WorkerWitness {
  public:
    WorkerWitness(const qx::Library& library, const std::string& path);

    // Returns when the worker has come round.
    void AwaitTurn();

    // Returns when the worker has left the file, on which nobody else works, for good.
    FileHeaderRecord Settle(uint32_t file);

  private:
    qx::Session session_;
    qx::File file_;
    bool grown_ = false;
};

}  // namespace qx_test
