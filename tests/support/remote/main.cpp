// Runs the tests of what the library does with files on files of a server, with the same expectations, but for those
// that the difference itself makes fail.
#include <gtest/gtest.h>
#include <iterator>
#include <string>

namespace {

struct LocalOnly {
    const char* Tests;
    const char* Why;
};

constexpr LocalOnly kLocalOnly[] = {
    {"none", "none"},
};

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    std::string filter = GTEST_FLAG_GET(filter);
    filter += filter.find('-') == std::string::npos ? '-' : ':';
    for (const LocalOnly& entry : kLocalOnly) {
        filter += std::string(entry.Tests) + ':';
    }
    GTEST_FLAG_SET(filter, filter);
    return RUN_ALL_TESTS();
}
