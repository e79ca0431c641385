// What the remote-call library gets when it works through a descriptor.
#include "remote/transfer_descriptor.h"

#include "support/raised.h"
#include "support/test_library.h"

namespace qx_test {
namespace {

constexpr uint32_t kObject = 3;

struct Transferred {
    uint32_t Error = 0;
    std::string Bytes;  // sent, or the room with what it holds

    bool operator==(const Transferred&) const = default;
    friend void PrintTo(const Transferred& transferred, std::ostream* out) {
        *out << transferred.Error << " '" << transferred.Bytes << '\'';
    }
};

Transferred Transfer(qx::TransferDescriptor& descriptor, uint32_t operation, uint32_t length = 0) {
    uint32_t outLength = 0;
    void* address = nullptr;
    uint32_t error = 0;
    const auto function = reinterpret_cast<qx::TransferFunction>(descriptor.Words[0]);
    if (function(operation, &descriptor, length, &outLength, &address, &error) == 0) {
        EXPECT_NE(error, 0U);
        return {error, ""};
    }
    EXPECT_EQ(error, 0U);
    return {0, std::string(static_cast<const char*>(address), outLength)};
}

class TransferDescriptors : public testing::Test {
  protected:
    TransferDescriptors() { AcceptCallbacks(); }
    ~TransferDescriptors() override { AcceptCallbacks(); }

    static void Refuse(uint32_t operation) { RefuseCallback(operation, 1, {160, 7, 8}); }
};

TEST_F(TransferDescriptors, APlainBufferIsOnlySent) {
    qx::TransferDescriptor name = qx::PlainTransfer("NAME");
    qx::TransferDescriptor empty = qx::PlainTransfer({});
    EXPECT_EQ(Transfer(name, 0), (Transferred{0, "NAME"}));
    EXPECT_EQ(Transfer(empty, 0), (Transferred{0, ""}));
    for (const uint32_t operation : {1U, 2U, 3U}) {
        EXPECT_EQ(Transfer(name, operation, 0), (Transferred{1201, ""}));
    }
}

TEST_F(TransferDescriptors, AnObjectIsSentOrFilled) {
    Buffer(kObject) = "abc";
    qx::TransferDescriptor send = qx::SendTransfer(TestCallback, kObject);
    EXPECT_EQ(Transfer(send, 0), (Transferred{0, "abc"}));
    Refuse(0);
    EXPECT_EQ(Transfer(send, 0), (Transferred{1200, ""}));
    EXPECT_EQ(Transfer(send, 1, 2), (Transferred{0, "ab"})) << "one that is sent can be filled";

    for (const uint32_t operation : {1U, 2U, 3U}) {
        Buffer(kObject) = "abc";
        qx::TransferDescriptor receive = qx::ReceiveTransfer(TestCallback, kObject);
        EXPECT_EQ(Transfer(receive, 0), (Transferred{1200, ""})) << "nothing has been received yet";
        Refuse(operation == 2 ? 1 : 2);
        EXPECT_EQ(Transfer(receive, operation, 2), (Transferred{1201, ""}));
        EXPECT_EQ(Transfer(receive, 0), (Transferred{1200, ""}));
        EXPECT_EQ(Transfer(receive, operation, 2), (Transferred{0, operation == 2 ? "abc" : "ab"}));
        EXPECT_EQ(Transfer(receive, 0), (Transferred{0, Buffer(kObject)}));
    }
}

TEST_F(TransferDescriptors, SegmentsOfAnObjectFollowEachOther) {
    const auto object = [] {
        std::string& bytes = Buffer(kObject);
        return std::span(reinterpret_cast<uint8_t*>(bytes.data()), bytes.size());
    };
    Buffer(kObject) = "abcdef";
    qx::TransferDescriptor output = qx::AppendTransfer(TestCallback, kObject, object(), 4);
    EXPECT_EQ(Transfer(output, 1, 2), (Transferred{0, "ef"})) << "there is room already";
    Refuse(1);
    EXPECT_EQ(Transfer(output, 2, 100), (Transferred{1201, ""}));
    EXPECT_EQ(Transfer(output, 2, 0xFFFFFFFE), (Transferred{1201, ""})) << "more than an object can hold";
    EXPECT_EQ(Transfer(output, 2, 100), (Transferred{0, "ef" + std::string(98, '\0')}));
    EXPECT_EQ(Buffer(kObject).substr(0, 6), "abcdef");
    EXPECT_EQ(output.Words[4], 104U);
    EXPECT_EQ(reinterpret_cast<char*>(output.Words[7]), Buffer(kObject).data() + 4);

    Buffer(kObject) = "abcdef";
    output = qx::AppendTransfer(TestCallback, kObject, object().first(2), 0);
    Refuse(0);
    EXPECT_EQ(Transfer(output, 0), (Transferred{1200, ""}));
    EXPECT_EQ(Transfer(output, 0), (Transferred{0, "cdef"})) << "from where the last segment ended";
    EXPECT_EQ(Transfer(output, 0), (Transferred{0, ""}));
    Buffer(kObject) = "a";
    EXPECT_EQ(Transfer(output, 0), (Transferred{1200, ""})) << "the object ends before the segment begins";
}

TEST_F(TransferDescriptors, OtherKindsAndOperationsAreUnknown) {
    Buffer(kObject) = "abc";
    qx::TransferDescriptor unknown = qx::SendTransfer(TestCallback, kObject);
    for (const uint32_t operation : {4U, 0xFFFFFFFFU}) {
        EXPECT_EQ(Transfer(unknown, operation), (Transferred{1203, ""}));
    }
    unknown.Words[1] = 3;
    for (const uint32_t operation : {0U, 1U, 2U, 3U}) {
        EXPECT_EQ(Transfer(unknown, operation), (Transferred{1203, ""}));
    }
    EXPECT_EQ(Buffer(kObject), "abc");
}

}  // namespace
}  // namespace qx_test
