#include "output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace qx::tool {

namespace {

void Check(bool done) {
    if (!done) {
        throw OutputFailure(std::string("standard output: ") + std::strerror(errno));
    }
}

}  // namespace

void Output::Write(std::string_view bytes) {
    Check(std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size());
}

void Output::WriteLine(std::string_view text) {
    Write(text);
    Check(std::fputc('\n', stdout) != EOF);
}

void Output::Finish() {
    Check(std::fflush(stdout) == 0);
}

}  // namespace qx::tool
