// growth_ratio: what reading and inserting a record costs in a file of a million records, against one of ten thousand.
//
//     growth_ratio DIRECTORY [RECORDS]
//
// Makes both files in DIRECTORY, which should lie in memory, for frames of 1024 and of 4096 bytes. Turns on the small
// and on the large file alternate, so that both meet the machine in the same state; of each kind the quickest turn
// counts. Exit status: 0 all ratios within their limits, 1 not.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <qx.hpp>
#include <random>
#include <string>
#include <thread>

namespace {

constexpr uint32_t kSmall = 10'000;
constexpr uint32_t kTurn = 20'000;  // operations
constexpr int kTurns = 15;

struct Limits {
    uint32_t FrameSize;
    double Read;
    double Insert;
};

// The turns of one file.
class Subject {
  public:
    Subject(qx::Session& session, const std::string& path, uint32_t frameSize, uint32_t records)
        : records_(records), file_(Make(session, path, frameSize)) {
        for (uint32_t i = 0; i < records; ++i) {
            file_.Write(Key(i), data_);
        }
        AwaitWorker();
    }

    void Read() {
        readCost_ = std::min(readCost_, CostOf([this](uint32_t) {
                                 if (!file_.Read(Key(static_cast<uint32_t>(random_() % records_)), into_)) {
                                     std::cerr << "growth_ratio: a record is missing\n";
                                     std::exit(1);
                                 }
                             }));
    }

    // What has been inserted is deleted again, which does not count.
    void Insert() {
        insertCost_ = std::min(insertCost_, CostOf([this](uint32_t i) { file_.Write(Key(records_ + i), data_); }));
        for (uint32_t i = 0; i < kTurn; ++i) {
            file_.Delete(Key(records_ + i));
        }
        AwaitWorker();
    }

    double ReadCost() const { return readCost_; }
    double InsertCost() const { return insertCost_; }

  private:
    static qx::File Make(qx::Session& session, const std::string& path, uint32_t frameSize) {
        session.CreateFile(path, {.FrameSize = frameSize});
        return session.OpenFile(path);
    }

    static std::string Key(uint32_t number) {
        std::string digits = std::to_string(number);
        return std::string(15 - digits.size(), '0') + digits;
    }

    void AwaitWorker() {
        for (uint32_t modulo = 0; modulo != file_.Header().Modulo;) {
            modulo = file_.Header().Modulo;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }

    // Nanoseconds an operation, of all processors: what the worker does for it counts too, and what other processes do
    // meanwhile does not.
    template <class Operation>
    static double CostOf(Operation&& operation) {
        const std::clock_t start = std::clock();
        for (uint32_t i = 0; i < kTurn; ++i) {
            operation(i);
        }
        return 1e9 / CLOCKS_PER_SEC * static_cast<double>(std::clock() - start) / kTurn;
    }

    const uint32_t records_;
    qx::File file_;
    const std::string data_ = std::string(100, 'd');
    std::string into_;
    std::mt19937_64 random_;
    double readCost_ = 1e18;
    double insertCost_ = 1e18;
};

bool Tell(const char* what, double small, double large, double limit) {
    const bool good = large <= limit * small;
    std::cout << "  " << std::left << std::setw(8) << what << std::right << std::setw(8) << std::lround(small) << " ns"
              << std::setw(8) << std::lround(large) << " ns   ratio " << std::fixed << std::setprecision(2)
              << large / small << " of " << limit << (good ? "  ok" : "  EXCEEDED") << std::endl;
    return good;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        std::cerr << "usage: growth_ratio DIRECTORY [RECORDS]\n";
        return 2;
    }
    const auto records = static_cast<uint32_t>(argc == 3 ? std::strtoul(argv[2], nullptr, 10) : 1'000'000);
    bool good = true;
    try {
        qx::Library library;
        qx::Session session(library);
        for (const Limits& limits : {Limits{1024, 1.6, 1.6}, Limits{4096, 1.3, 1.6}}) {
            const std::string path = std::string(argv[1]) + "/RATIO" + std::to_string(limits.FrameSize);
            Subject small(session, path + "S", limits.FrameSize, kSmall);
            Subject large(session, path + "L", limits.FrameSize, records);
            for (int i = 0; i < kTurns; ++i) {
                small.Read();
                large.Read();
                small.Insert();
                large.Insert();
            }
            std::cout << "frames of " << limits.FrameSize << ", " << kSmall << " and " << records << " records"
                      << std::endl;
            good = Tell("read", small.ReadCost(), large.ReadCost(), limits.Read) && good;
            good = Tell("insert", small.InsertCost(), large.InsertCost(), limits.Insert) && good;
        }
    } catch (const qx::Error& error) {
        std::cerr << "growth_ratio: " << error.what() << '\n';
        return 1;
    }
    return good ? 0 : 1;
}
