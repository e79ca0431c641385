// The same in C++, and a file at work in a directory that is given: made, written, read and walked.
#include <cstdio>
#include <optional>
#include <qx.hpp>
#include <string>
#include <string_view>

int main(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: in_cpp DIRECTORY\n");
        return 1;
    }
    try {
        qx::Library library;
        qx::Session session(library);
        const std::string name = std::string(arguments[1]) + "/CUST";
        session.CreateFile(name);
        qx::File file = session.OpenFile(name);
        file.Write("1001", "Ann Lee\xFELondon");
        const std::optional<std::string> record = file.Read("1001");
        std::string keys;
        for (std::string_view key : file.Keys()) {
            keys += key;
        }
        file.Close();
        session.DeleteFile(name);
        if (record != "Ann Lee\xFELondon" || keys != "1001") {
            std::fprintf(stderr, "read \"%s\" and found the keys \"%s\"\n", record.value_or("nothing").c_str(),
                         keys.c_str());
            return 1;
        }
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
