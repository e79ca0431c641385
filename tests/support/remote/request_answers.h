// The work of a server: each request is answered by the exported function that it stands for, on local files. Any
// number of threads may ask at once.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace qx_test {

// First the request or the reply, then the data of each descriptor, as far as it has or gets any.
using Parcel = std::vector<std::optional<std::string>>;

Parcel AnswerRequest(const Parcel& request);

}  // namespace qx_test
