// How data of any length travels beside a request: the remote-call library asks for it, or for room for it, through
// descriptors that are handed over with the call.
#pragma once

#include <cstdint>
#include <qx.h>
#include <span>
#include <string_view>

namespace qx {

// Nine words, of which the first is the transfer function. The second tells the kind; the others depend on it.
//
//   word  0 plain       1 object                             2 segmented object
//   2     length        1: waits for data to be received     buffer callback
//   3     address       buffer callback                      buffer object
//   4                   buffer object                        length of the object
//   5                                                        its address
//   6..8                                                     the segment: start within the object, address, length
struct TransferDescriptor {
    uintptr_t Words[9];
};

// What the remote-call library asks of a descriptor. The receiving operations differ for buffer objects only: one
// extends the object and keeps what it holds, the others give it a new length.
enum class TransferOperation : uint32_t { Send = 0, Receive = 1, ReceiveMore = 2, ReceiveLast = 3 };

// Word 0 of every descriptor. Stores length and address of the data to send, or of room for at least `length` bytes
// (a plain buffer has none), and returns 1; or returns 0 and stores 1200 (data to send cannot be had), 1201 (room
// cannot be had) or 1203 (no such kind or operation).
using TransferFunction = int32_t (*)(uint32_t operation, TransferDescriptor* descriptor, uint32_t length,
                                     uint32_t* outLength, void** outAddress, uint32_t* outError);

// Bytes to send, which stay where they are during the call.
TransferDescriptor PlainTransfer(std::string_view bytes);

// A buffer object of the application whose data is sent. It can be filled, too.
TransferDescriptor SendTransfer(BufferCallback callback, uint32_t object);

// One that data is received into; it has nothing to send before that.
TransferDescriptor ReceiveTransfer(BufferCallback callback, uint32_t object);

// One whose bytes up to `start` are there already and whose further bytes are sent or received; `bytes` is the object
// as the callback last told it, and holds `start` bytes at least.
TransferDescriptor AppendTransfer(BufferCallback callback, uint32_t object, std::span<uint8_t> bytes, uint32_t start);

}  // namespace qx
