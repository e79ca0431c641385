#include <lmdb.h>
#include <stdexcept>

#include "stores.h"

namespace qx::compare {

namespace {

void Check(int result) {
    if (result != 0) {
        throw std::runtime_error(mdb_strerror(result));
    }
}

MDB_val AsValue(std::string_view bytes) {
    return {bytes.size(), const_cast<char*>(bytes.data())};
}

// Every read and every write is a transaction of its own; the one for reading is renewed each time.
class LmdbAccess final : public Access {
  public:
    LmdbAccess(MDB_env* environment, MDB_dbi file) : environment_(environment), file_(file) {
        Check(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &reading_));
        mdb_txn_reset(reading_);
    }
    ~LmdbAccess() override { mdb_txn_abort(reading_); }

    bool Get(std::string_view key, std::string& into) override {
        Check(mdb_txn_renew(reading_));
        MDB_val keyValue = AsValue(key);
        MDB_val data;
        const int result = mdb_get(reading_, file_, &keyValue, &data);
        if (result == 0) {
            into.assign(static_cast<const char*>(data.mv_data), data.mv_size);
        }
        mdb_txn_reset(reading_);
        Check(result == MDB_NOTFOUND ? 0 : result);
        return result == 0;
    }

    void Put(std::string_view key, std::string_view data) override {
        MDB_val keyValue = AsValue(key);
        MDB_val dataValue = AsValue(data);
        Change([&](MDB_txn* writing) { return mdb_put(writing, file_, &keyValue, &dataValue, 0); });
    }

    bool Delete(std::string_view key) override {
        MDB_val keyValue = AsValue(key);
        return Change([&](MDB_txn* writing) { return mdb_del(writing, file_, &keyValue, nullptr); });
    }

    WalkTotals Walk() override {
        WalkTotals totals;
        Check(mdb_txn_renew(reading_));
        MDB_cursor* cursor = nullptr;
        Check(mdb_cursor_open(reading_, file_, &cursor));
        MDB_val key;
        int result;
        while ((result = mdb_cursor_get(cursor, &key, nullptr, MDB_NEXT)) == 0) {
            ++totals.Keys;
            totals.KeyBytes += key.mv_size;
        }
        mdb_cursor_close(cursor);
        mdb_txn_reset(reading_);
        Check(result == MDB_NOTFOUND ? 0 : result);
        return totals;
    }

  private:
    // False when the work found nothing.
    template <class Work>
    bool Change(Work&& work) {
        MDB_txn* writing = nullptr;
        Check(mdb_txn_begin(environment_, nullptr, 0, &writing));
        const int result = work(writing);
        if (result != 0) {
            mdb_txn_abort(writing);
            Check(result == MDB_NOTFOUND ? 0 : result);
            return false;
        }
        Check(mdb_txn_commit(writing));
        return true;
    }

    MDB_env* environment_;
    MDB_dbi file_;
    MDB_txn* reading_ = nullptr;
};

// Its map must be larger than the file will ever be, whatever is known of the records.
class LmdbStore final : public Store {
  public:
    explicit LmdbStore(const StoreSettings& settings) {
        Check(mdb_env_create(&environment_));
        Check(mdb_env_set_mapsize(environment_, (size_t{1} << 30) + 8 * settings.Records.PayloadBytes()));
        Check(mdb_env_open(environment_, (settings.Directory + "/records").c_str(),
                           MDB_NOSUBDIR | MDB_NOSYNC | MDB_NOTLS, 0666));
        MDB_txn* opening = nullptr;
        Check(mdb_txn_begin(environment_, nullptr, 0, &opening));
        Check(mdb_dbi_open(opening, nullptr, 0, &file_));
        Check(mdb_txn_commit(opening));
    }
    ~LmdbStore() override { mdb_env_close(environment_); }

    std::unique_ptr<Access> Connect() override { return std::make_unique<LmdbAccess>(environment_, file_); }

  private:
    MDB_env* environment_ = nullptr;
    MDB_dbi file_ = 0;
};

}  // namespace

std::unique_ptr<Store> OpenLmdb(const StoreSettings& settings) {
    return std::make_unique<LmdbStore>(settings);
}

}  // namespace qx::compare
