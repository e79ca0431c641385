// What travels between the two processes of an AnsweringServer: strings, some of which may be missing.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace qx_test {

using Parcel = std::vector<std::optional<std::string>>;

// False when the other end is gone, or what it sent is no parcel.
bool SendParcel(int socket, const Parcel& parcel);
bool ReceiveParcel(int socket, Parcel* parcel);

// A piece of it only.
void SendTornParcel(int socket, const Parcel& parcel);

}  // namespace qx_test
