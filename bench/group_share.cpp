// group_share: how two processes share one group, and what both together get done against one alone.
//
//     group_share DIRECTORY [SECONDS]
//
// Writes and reads one record in DIRECTORY, which should lie in memory, as quickly as it goes: by one process alone,
// and by two. Prints operations a second, and of two processes the share of each.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <new>
#include <qx.hpp>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

// In memory that the processes share.
struct Board {
    std::atomic<uint32_t> Ready{0};
    std::atomic<bool> Start{false};
    std::array<std::atomic<uint64_t>, 2> Done{};
    std::array<std::atomic<uint64_t>, 2> LongestWait{};  // microseconds between two operations
};

enum class Work { Read, Write };

void Hammer(Board& board, size_t number, const std::string& path, Work work, Clock::duration length) {
    qx::Library library;
    qx::Session session(library);
    qx::File file = session.OpenFile(path);
    const std::string data(100, static_cast<char>('a' + number));
    std::string into;
    ++board.Ready;
    while (!board.Start) {
        std::this_thread::yield();
    }
    const Clock::time_point start = Clock::now();
    Clock::time_point last = start;
    Clock::duration longest{};
    uint64_t done = 0;
    while (last - start < length) {
        if (work == Work::Read) {
            file.Read("key", into);
        } else {
            file.Write("key", data);
        }
        ++done;
        const Clock::time_point now = Clock::now();
        longest = std::max(longest, now - last);
        last = now;
    }
    board.Done[number] = done;
    board.LongestWait[number] =
        static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(longest).count());
}

// Leaves what each of the processes got done.
void Measure(Board& board, size_t processes, const std::string& path, Work work, Clock::duration length) {
    new (&board) Board;
    for (size_t i = 0; i < processes; ++i) {
        if (fork() == 0) {
            try {
                Hammer(board, i, path, work, length);
            } catch (const qx::Error& error) {
                std::cerr << "group_share: " << error.what() << '\n';
                ++board.Ready;  // nobody waits for it
                _exit(1);
            }
            _exit(0);
        }
    }
    while (board.Ready < processes) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    board.Start = true;
    for (size_t i = 0; i < processes; ++i) {
        int status = 0;
        if (wait(&status) < 0 || status != 0) {
            std::exit(1);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        std::cerr << "usage: group_share DIRECTORY [SECONDS]\n";
        return 2;
    }
    const int seconds = argc == 3 ? std::atoi(argv[2]) : 3;
    const std::string path = std::string(argv[1]) + "/SHARE";
    try {
        qx::Library library;
        qx::Session session(library);
        session.CreateFile(path, {.SizeLock = 2});
        session.OpenFile(path).Write("key", std::string(100, 'd'));
    } catch (const qx::Error& error) {
        std::cerr << "group_share: " << error.what() << '\n';
        return 1;
    }
    void* memory = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        std::cerr << "group_share: no memory\n";
        return 1;
    }
    Board& board = *static_cast<Board*>(memory);
    std::cout << std::fixed << std::setprecision(2);
    for (const Work work : {Work::Read, Work::Write}) {
        Measure(board, 1, path, work, std::chrono::seconds(seconds));
        const double alone = static_cast<double>(board.Done[0]) / seconds;
        Measure(board, 2, path, work, std::chrono::seconds(seconds));
        const auto first = static_cast<double>(board.Done[0]) / seconds;
        const auto second = static_cast<double>(board.Done[1]) / seconds;
        std::cout << (work == Work::Read ? "read " : "write") << "  alone " << std::llround(alone) << "/s, two "
                  << std::llround(first + second) << "/s (" << (first + second) / alone << " times), shares "
                  << first / (first + second) << " and " << second / (first + second) << ", longest wait "
                  << std::max(board.LongestWait[0].load(), board.LongestWait[1].load()) << " us" << std::endl;
    }
    return 0;
}
