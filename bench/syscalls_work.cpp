// One kind of operation on a record, many times, and nothing else: what bench/syscalls counts the system calls of.
//
//     syscalls_work OPERATION COUNT DIRECTORY
//
// Makes a file in DIRECTORY, of groups of one frame each. OPERATION is read-found, read-missing, write-same or
// write-other; the last one goes in turns: a new record, a longer one in its place, a shorter one, a delete.
#include <cstdlib>
#include <iostream>
#include <qx.hpp>
#include <string>
#include <string_view>

namespace {

constexpr std::string_view kKey = "key";

bool Operate(qx::File& file, std::string_view operation, uint64_t turn, std::string& into) {
    static const std::string lengths(100, 'd');
    if (operation == "read-found") {
        return file.Read(kKey, into);
    }
    if (operation == "read-missing") {
        return !file.Read("missing", into);
    }
    if (operation == "write-same") {
        file.Write(kKey, std::string_view(lengths).substr(0, 40));
        return true;
    }
    if (turn % 4 == 3) {
        return file.Delete("other");
    }
    constexpr size_t kLengths[] = {50, 90, 30};
    file.Write("other", std::string_view(lengths).substr(0, kLengths[turn % 4]));
    return true;
}

bool IsOperation(std::string_view operation) {
    return operation == "read-found" || operation == "read-missing" || operation == "write-same" ||
           operation == "write-other";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4 || !IsOperation(argv[1])) {
        std::cerr << "usage: syscalls_work read-found|read-missing|write-same|write-other COUNT DIRECTORY\n";
        return 2;
    }
    try {
        qx::Library library;
        qx::Session session(library);
        const std::string name = std::string(argv[3]) + "/SYSCALLS";
        session.CreateFile(name, {.Modulo = 7, .SizeLock = 2});
        qx::File file = session.OpenFile(name);
        file.Write(kKey, std::string(40, 'd'));
        std::string into;
        const uint64_t count = std::strtoull(argv[2], nullptr, 10);
        for (uint64_t turn = 0; turn < count; ++turn) {
            if (!Operate(file, argv[1], turn, into)) {
                std::cerr << "syscalls_work: operation " << turn << " has the wrong outcome\n";
                return 1;
            }
        }
        file.Close();
    } catch (const qx::Error& error) {
        std::cerr << "syscalls_work: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
