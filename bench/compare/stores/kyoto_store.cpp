#include <algorithm>
#include <kchashdb.h>
#include <stdexcept>

#include "stores.h"

namespace qx::compare {

namespace {

class KyotoAccess final : public Access {
  public:
    explicit KyotoAccess(kyotocabinet::HashDB& file) : file_(file) {}

    bool Get(std::string_view key, std::string& into) override {
        Taker taker(into);
        Check(file_.accept(key.data(), key.size(), &taker, false));
        return taker.Found;
    }

    void Put(std::string_view key, std::string_view data) override {
        Check(file_.set(key.data(), key.size(), data.data(), data.size()));
    }

    bool Delete(std::string_view key) override {
        const bool found = file_.remove(key.data(), key.size());
        Check(found || file_.error() == kyotocabinet::BasicDB::Error::NOREC);
        return found;
    }

    WalkTotals Walk() override {
        WalkTotals totals;
        const std::unique_ptr<kyotocabinet::DB::Cursor> cursor(file_.cursor());
        cursor->jump();
        size_t length = 0;
        while (const char* key = cursor->get_key(&length, true)) {
            ++totals.Keys;
            totals.KeyBytes += length;
            delete[] key;
        }
        Check(file_.error() == kyotocabinet::BasicDB::Error::NOREC);
        return totals;
    }

  private:
    // Copies the data of a record straight from the store's memory.
    class Taker final : public kyotocabinet::DB::Visitor {
      public:
        explicit Taker(std::string& into) : into_(into) {}
        bool Found = false;

      private:
        const char* visit_full(const char*, size_t, const char* data, size_t length, size_t*) override {
            into_.assign(data, length);
            Found = true;
            return NOP;
        }

        std::string& into_;
    };

    void Check(bool good) const {
        if (!good) {
            throw std::runtime_error(file_.error().message());
        }
    }

    kyotocabinet::HashDB& file_;
};

// Advised: twice as many buckets as records, and a memory map for the whole file.
class KyotoStore final : public Store {
  public:
    explicit KyotoStore(const StoreSettings& settings) {
        using kyotocabinet::HashDB;
        if (settings.Size == Sizing::Advised) {
            const Load& load = settings.Records;
            file_.tune_buckets(static_cast<int64_t>(2 * load.Records));
            file_.tune_map(static_cast<int64_t>(2 * load.PayloadBytes() + 12 * load.Records + (1 << 20)));
        }
        if (!file_.open(settings.Directory + "/records.kch",
                        HashDB::OWRITER | (settings.Create ? HashDB::OCREATE : 0))) {
            throw std::runtime_error(file_.error().message());
        }
    }

    std::unique_ptr<Access> Connect() override { return std::make_unique<KyotoAccess>(file_); }

  private:
    kyotocabinet::HashDB file_;
};

}  // namespace

std::unique_ptr<Store> OpenKyoto(const StoreSettings& settings) {
    return std::make_unique<KyotoStore>(settings);
}

}  // namespace qx::compare
