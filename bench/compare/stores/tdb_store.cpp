#include <algorithm>
#include <fcntl.h>
#include <stdexcept>

#include "stores.h"

extern "C" {
#include <signal.h>
#include <sys/types.h>
#include <tdb.h>
}

namespace qx::compare {

namespace {

TDB_DATA AsData(std::string_view bytes) {
    return {reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.data())), bytes.size()};
}

class TdbAccess final : public Access {
  public:
    explicit TdbAccess(tdb_context* file) : file_(file) {}

    bool Get(std::string_view key, std::string& into) override {
        const auto take = [](TDB_DATA, TDB_DATA data, void* to) {
            static_cast<std::string*>(to)->assign(reinterpret_cast<const char*>(data.dptr), data.dsize);
            return 0;
        };
        return CheckFound(tdb_parse_record(file_, AsData(key), take, &into) == 0);
    }

    void Put(std::string_view key, std::string_view data) override {
        Check(tdb_store(file_, AsData(key), AsData(data), TDB_REPLACE) == 0);
    }

    bool Delete(std::string_view key) override { return CheckFound(tdb_delete(file_, AsData(key)) == 0); }

    WalkTotals Walk() override {
        WalkTotals totals;
        const auto take = [](tdb_context*, TDB_DATA key, TDB_DATA, void* to) {
            auto* counted = static_cast<WalkTotals*>(to);
            ++counted->Keys;
            counted->KeyBytes += key.dsize;
            return 0;
        };
        Check(tdb_traverse_read(file_, take, &totals) >= 0);
        return totals;
    }

  private:
    bool CheckFound(bool found) {
        Check(found || tdb_error(file_) == TDB_ERR_NOEXIST);
        return found;
    }

    void Check(bool good) {
        if (!good) {
            throw std::runtime_error(tdb_errorstr(file_));
        }
    }

    tdb_context* file_;
};

// Advised: as many hash chains as records, and the better of the two hash functions.
class TdbStore final : public Store {
  public:
    TdbStore(const StoreSettings& settings, int flags) {
        constexpr uint64_t kMostChains = 100'000'000;
        int chains = 0;
        if (settings.Size == Sizing::Advised) {
            chains = static_cast<int>(std::min(settings.Records.Records, kMostChains));
            flags |= TDB_INCOMPATIBLE_HASH;
        }
        file_ = tdb_open((settings.Directory + "/records").c_str(), chains, flags,
                         O_RDWR | (settings.Create ? O_CREAT : 0), 0666);
        if (file_ == nullptr) {
            throw std::runtime_error("tdb_open failed");
        }
    }
    ~TdbStore() override { tdb_close(file_); }

    std::unique_ptr<Access> Connect() override { return std::make_unique<TdbAccess>(file_); }

  private:
    tdb_context* file_;
};

}  // namespace

std::unique_ptr<Store> OpenTdb(const StoreSettings& settings) {
    return std::make_unique<TdbStore>(settings, TDB_DEFAULT);
}

std::unique_ptr<Store> OpenTdbUnlocked(const StoreSettings& settings) {
    return std::make_unique<TdbStore>(settings, TDB_NOLOCK);
}

}  // namespace qx::compare
