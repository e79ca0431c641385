#include "support/parcel.h"

#include <cstdint>
#include <cstring>
#include <sys/socket.h>

namespace qx_test {

namespace {

constexpr uint32_t kMissing = 0xFFFFFFFF;
constexpr uint32_t kMostStrings = 8;
constexpr uint32_t kLongest = 1U << 28;

void Append(std::string& bytes, uint32_t number) {
    bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
}

std::string Packed(const Parcel& parcel) {
    std::string bytes;
    Append(bytes, static_cast<uint32_t>(parcel.size()));
    for (const std::optional<std::string>& string : parcel) {
        Append(bytes, string ? static_cast<uint32_t>(string->size()) : kMissing);
        bytes += string.value_or("");
    }
    return bytes;
}

bool SendAll(int socket, const std::string& bytes) {
    for (size_t sent = 0; sent < bytes.size();) {
        const ssize_t now = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (now <= 0) {
            return false;
        }
        sent += static_cast<size_t>(now);
    }
    return true;
}

bool ReceiveAll(int socket, void* bytes, size_t length) {
    return length == 0 || ::recv(socket, bytes, length, MSG_WAITALL) == static_cast<ssize_t>(length);
}

}  // namespace

bool SendParcel(int socket, const Parcel& parcel) {
    return SendAll(socket, Packed(parcel));
}

void SendTornParcel(int socket, const Parcel& parcel) {
    const std::string bytes = Packed(parcel);
    SendAll(socket, bytes.substr(0, bytes.size() - 1));
}

bool ReceiveParcel(int socket, Parcel* parcel) {
    uint32_t count = 0;
    if (!ReceiveAll(socket, &count, sizeof count) || count > kMostStrings) {
        return false;
    }
    parcel->assign(count, std::nullopt);
    for (std::optional<std::string>& string : *parcel) {
        uint32_t length = 0;
        if (!ReceiveAll(socket, &length, sizeof length)) {
            return false;
        }
        if (length == kMissing) {
            continue;
        }
        if (length > kLongest) {
            return false;
        }
        string.emplace(length, '\0');
        if (!ReceiveAll(socket, string->data(), length)) {
            return false;
        }
    }
    return true;
}

}  // namespace qx_test
