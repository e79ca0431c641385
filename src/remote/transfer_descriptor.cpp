#include "remote/transfer_descriptor.h"

#include <span>

#include "runtime/buffer_access.h"
#include "runtime/status.h"

namespace qx {

namespace {

enum Kind : uintptr_t { kPlain = 0, kObject = 1, kSegmented = 2 };

BufferAccess BuffersOf(uintptr_t word) {
    return BufferAccess(reinterpret_cast<BufferCallback>(word));
}

std::span<uint8_t> AsRoom(std::string_view bytes) {
    return {reinterpret_cast<uint8_t*>(const_cast<char*>(bytes.data())), bytes.size()};
}

// A plain buffer: word 2 length, word 3 address.
std::span<uint8_t> PlainData(const TransferDescriptor& descriptor) {
    return {reinterpret_cast<uint8_t*>(descriptor.Words[3]), descriptor.Words[2]};
}

// An object: word 2 waits for data, word 3 callback, word 4 object.
std::span<uint8_t> ObjectData(const TransferDescriptor& descriptor) {
    if (descriptor.Words[2] != 0) {
        Raise(Code::SendTransferFailed);
    }
    return AsRoom(BuffersOf(descriptor.Words[3]).Get(static_cast<uint32_t>(descriptor.Words[4])));
}

std::span<uint8_t> ObjectRoom(TransferDescriptor& descriptor, TransferOperation operation, uint32_t length) {
    const BufferAccess buffers = BuffersOf(descriptor.Words[3]);
    const auto object = static_cast<uint32_t>(descriptor.Words[4]);
    const std::span<uint8_t> room =
        operation == TransferOperation::ReceiveMore ? buffers.Extend(object, length) : buffers.Allocate(object, length);
    descriptor.Words[2] = 0;
    return room;
}

// A segmented object: word 2 callback, word 3 object, word 4 length, word 5 address, words 6 to 8 the segment.
std::span<uint8_t> Segment(const TransferDescriptor& descriptor) {
    return {reinterpret_cast<uint8_t*>(descriptor.Words[7]), descriptor.Words[8]};
}

// The object is where the callback says now, and the segment begins at `start` of it.
void MoveSegment(TransferDescriptor& descriptor, std::span<uint8_t> object, uintptr_t start) {
    if (start > object.size()) {
        Raise(Code::BufferRefused);
    }
    const std::span<uint8_t> segment = object.subspan(start);
    descriptor.Words[4] = object.size();
    descriptor.Words[5] = reinterpret_cast<uintptr_t>(object.data());
    descriptor.Words[6] = start;
    descriptor.Words[7] = reinterpret_cast<uintptr_t>(segment.data());
    descriptor.Words[8] = segment.size();
}

std::span<uint8_t> NextSegmentData(TransferDescriptor& descriptor) {
    const std::string_view object = BuffersOf(descriptor.Words[2]).Get(static_cast<uint32_t>(descriptor.Words[3]));
    MoveSegment(descriptor, AsRoom(object), descriptor.Words[6] + descriptor.Words[8]);
    return Segment(descriptor);
}

std::span<uint8_t> SegmentRoom(TransferDescriptor& descriptor, uint32_t length) {
    if (descriptor.Words[8] < length) {
        const uintptr_t start = descriptor.Words[6];
        const uint64_t needed = uint64_t{start} + length;
        if (needed > UINT32_MAX) {
            Raise(Code::BufferRefused);
        }
        MoveSegment(descriptor,
                    BuffersOf(descriptor.Words[2])
                        .Extend(static_cast<uint32_t>(descriptor.Words[3]), static_cast<uint32_t>(needed)),
                    start);
    }
    return Segment(descriptor);
}

std::span<uint8_t> Data(TransferDescriptor& descriptor) {
    switch (descriptor.Words[1]) {
        case kPlain:
            return PlainData(descriptor);
        case kObject:
            return ObjectData(descriptor);
        default:
            return NextSegmentData(descriptor);
    }
}

std::span<uint8_t> Room(TransferDescriptor& descriptor, TransferOperation operation, uint32_t length) {
    switch (descriptor.Words[1]) {
        case kPlain:
            Raise(Code::ReceiveTransferFailed);
        case kObject:
            return ObjectRoom(descriptor, operation, length);
        default:
            return SegmentRoom(descriptor, length);
    }
}

// Whatever the application's callback left in a status is replaced: the remote-call library knows these three only.
int32_t Transfer(uint32_t operation, TransferDescriptor* descriptor, uint32_t length, uint32_t* outLength,
                 void** outAddress, uint32_t* outError) {
    const auto fail = [outError](Code code) {
        *outError = static_cast<uint32_t>(code);
        return 0;
    };
    const auto known = static_cast<TransferOperation>(operation);
    if (known > TransferOperation::ReceiveLast || descriptor->Words[1] > kSegmented) {
        return fail(Code::UnknownTransfer);
    }
    const bool sending = known == TransferOperation::Send;
    std::span<uint8_t> bytes;
    StatusRecord ignored{};
    if (!RunCatching(ignored, [&] {
            bytes = sending ? Data(*descriptor) : Room(*descriptor, known, length);
            return true;
        })) {
        return fail(sending ? Code::SendTransferFailed : Code::ReceiveTransferFailed);
    }
    *outLength = static_cast<uint32_t>(bytes.size());
    *outAddress = bytes.data();
    return 1;
}

template <class... Words>
TransferDescriptor Make(Kind kind, Words... words) {
    return {{reinterpret_cast<uintptr_t>(static_cast<TransferFunction>(Transfer)), kind, words...}};
}

}  // namespace

TransferDescriptor PlainTransfer(std::string_view bytes) {
    return Make(kPlain, bytes.size(), reinterpret_cast<uintptr_t>(bytes.data()));
}

TransferDescriptor SendTransfer(BufferCallback callback, uint32_t object) {
    return Make(kObject, uintptr_t{0}, reinterpret_cast<uintptr_t>(callback), uintptr_t{object});
}

TransferDescriptor ReceiveTransfer(BufferCallback callback, uint32_t object) {
    return Make(kObject, uintptr_t{1}, reinterpret_cast<uintptr_t>(callback), uintptr_t{object});
}

TransferDescriptor AppendTransfer(BufferCallback callback, uint32_t object, std::span<uint8_t> bytes, uint32_t start) {
    TransferDescriptor descriptor = Make(kSegmented, reinterpret_cast<uintptr_t>(callback), uintptr_t{object});
    MoveSegment(descriptor, bytes, start);
    return descriptor;
}

}  // namespace qx
