// The same in C++: starts and stops the installed library and shows the message for a code.
#include <cstdio>
#include <qx.hpp>

int main() {
    try {
        const qx::Library library;
        const qx::Error notStarted(StatusRecord{1100, 0, 0});
        const qx::LibraryVersion version = library.Version();
        std::printf("library %u.%u.%u; code %u: %s\n", version.Major, version.Minor, version.Revision,
                    notStarted.Code(), notStarted.what());
        return 0;
    } catch (const qx::Error& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}
