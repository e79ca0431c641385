// One of the two lists of a report, on its way into a buffer object of the application.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "remote/remote_call_library.h"
#include "runtime/session_record.h"

namespace qx {

class ReportOutput {
  public:
    ReportOutput(const SessionRecord& session, uint32_t buffer) : session_(session), buffer_(buffer) {}

    // An entry and the mark that ends it. One of no bytes ends what lies deeper: the deeper marks before it go. Raises
    // 1002 when the buffer would have to grow beyond what the session allows, or what the callback left.
    void Append(std::string_view entry, uint8_t mark);

    // What the remote-call library needs to append to the list, and what it has made of that. Raises 1107 when it
    // claims to have appended more than there is room for.
    AppendedOutput HandOver() const;
    void TakeBack(const AppendedOutput& appended);

    // Makes the buffer as long as what is in it. Raises what the callback left.
    void Finish();

  private:
    void DropMarksBelow(uint8_t mark);
    void MakeRoom(uint64_t bytes);

    const SessionRecord& session_;
    const uint32_t buffer_;
    std::span<uint8_t> room_;  // the whole buffer, as the callback last handed it over
    uint32_t used_ = 0;
};

}  // namespace qx
