// The work of a server: each request is answered by the exported function that it stands for, on local files.
#pragma once

#include "support/parcel.h"

namespace qx_test {

// The library is started when this begins and stopped when it ends.
class RequestAnswers {
  public:
    RequestAnswers();
    ~RequestAnswers();
    RequestAnswers(const RequestAnswers&) = delete;
    RequestAnswers& operator=(const RequestAnswers&) = delete;

    // In: the request, and the data of each descriptor that has some. Out: the reply, and the data for each descriptor
    // that receives some.
    Parcel Answer(const Parcel& request);
};

}  // namespace qx_test
