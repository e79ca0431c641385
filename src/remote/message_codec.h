// Messages as bytes and back, for both ends of a connection. Numbers are little-endian and nothing lies between them.
//
// A request is its opcode and its fields. A reply is a byte that is not 0 and the results; or a byte 0 and the status
// of a refusal: the code in two bytes, detail 1 in one and detail 2 in four, of which the details may be missing.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <qx.h>
#include <span>
#include <tuple>
#include <utility>

namespace qx {

namespace wire {

template <class Integer>
void Put(uint8_t*& to, Integer value) {
    for (size_t i = 0; i < sizeof value; ++i) {
        *to++ = static_cast<uint8_t>(value >> (8 * i));
    }
}

template <size_t size>
void Put(uint8_t*& to, const std::array<uint8_t, size>& bytes) {
    to = std::copy(bytes.begin(), bytes.end(), to);
}

template <class Integer>
void Take(const uint8_t*& from, Integer& value) {
    value = 0;
    for (size_t i = 0; i < sizeof value; ++i) {
        value = static_cast<Integer>(value | static_cast<Integer>(*from++) << (8 * i));
    }
}

template <size_t size>
void Take(const uint8_t*& from, std::array<uint8_t, size>& bytes) {
    std::copy_n(from, size, bytes.begin());
    from += size;
}

template <class Tuple>
struct BytesOf;
template <class... Fields>
struct BytesOf<std::tuple<Fields&...>> {
    static constexpr size_t kBytes = (size_t{0} + ... + sizeof(Fields));
};

template <class Message>
constexpr size_t kFieldBytes = BytesOf<decltype(Message::Fields(std::declval<Message&>()))>::kBytes;

template <class Message>
constexpr size_t kShortest = kFieldBytes<Message>;
template <class Message>
requires requires {
    Message::kShortest;
}
inline constexpr size_t kShortest<Message> = Message::kShortest;

template <class Message>
void PutFields(uint8_t* to, const Message& message) {
    std::apply([&](const auto&... field) { (Put(to, field), ...); }, Message::Fields(message));
}

template <class Message>
Message TakeFields(const uint8_t* from) {
    Message message;
    std::apply([&](auto&... field) { (Take(from, field), ...); }, Message::Fields(message));
    return message;
}

}  // namespace wire

template <class Request>
using RequestBytes = std::array<uint8_t, 1 + wire::kFieldBytes<Request>>;

template <class Request>
RequestBytes<Request> EncodeRequest(const Request& request) {
    RequestBytes<Request> bytes{};
    bytes[0] = static_cast<uint8_t>(Request::kOpcode);
    wire::PutFields(bytes.data() + 1, request);
    return bytes;
}

// Nothing when the bytes are no such request.
template <class Request>
std::optional<Request> DecodeRequest(std::span<const uint8_t> bytes) {
    if (bytes.size() != sizeof(RequestBytes<Request>) || bytes[0] != static_cast<uint8_t>(Request::kOpcode)) {
        return std::nullopt;
    }
    return wire::TakeFields<Request>(bytes.data() + 1);
}

inline constexpr size_t kRefusalBytes = 8;
inline constexpr size_t kShortestRefusal = 3;

// Room for any reply to a request with such results.
template <class Results>
using ReplyBytes = std::array<uint8_t, std::max(1 + wire::kFieldBytes<Results>, kRefusalBytes)>;

template <class Results>
std::array<uint8_t, 1 + wire::kFieldBytes<Results>> EncodeResults(const Results& results) {
    std::array<uint8_t, 1 + wire::kFieldBytes<Results>> bytes{1};
    wire::PutFields(bytes.data() + 1, results);
    return bytes;
}

inline std::array<uint8_t, kRefusalBytes> EncodeRefusal(const StatusRecord& status) {
    std::array<uint8_t, kRefusalBytes> bytes{};
    uint8_t* to = bytes.data() + 1;
    wire::Put(to, static_cast<uint16_t>(status.Code));
    wire::Put(to, static_cast<uint8_t>(status.Detail1));
    wire::Put(to, status.Detail2);
    return bytes;
}

// A reply as it was received.
struct ReceivedReply {
    std::span<const uint8_t> Bytes;

    bool IsRefusal() const { return !Bytes.empty() && Bytes[0] == 0; }

    // The status of a refusal, with zeros for details that were not sent; nothing when it has no code.
    std::optional<StatusRecord> Refusal() const {
        if (Bytes.size() < kShortestRefusal) {
            return std::nullopt;
        }
        const uint8_t* from = Bytes.data() + 1;
        uint16_t code = 0;
        uint8_t detail1 = 0;
        uint32_t detail2 = 0;
        wire::Take(from, code);
        if (Bytes.size() > kShortestRefusal) {
            wire::Take(from, detail1);
        }
        if (Bytes.size() >= kRefusalBytes) {
            wire::Take(from, detail2);
        }
        return code != 0 ? std::optional(StatusRecord{code, detail1, detail2}) : std::nullopt;
    }

    // The results of a success; nothing when they are not all there.
    template <class Results>
    std::optional<Results> As() const {
        if (Bytes.size() < 1 + wire::kShortest<Results>) {
            return std::nullopt;
        }
        std::array<uint8_t, 1 + wire::kFieldBytes<Results>> all{};
        std::copy_n(Bytes.begin(), std::min(Bytes.size(), all.size()), all.begin());
        return wire::TakeFields<Results>(all.data() + 1);
    }
};

}  // namespace qx
