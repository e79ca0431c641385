#include <algorithm>
#include <db.h>
#include <filesystem>
#include <stdexcept>

#include "stores.h"

namespace qx::compare {

namespace {

void Check(int result) {
    if (result != 0) {
        throw std::runtime_error(db_strerror(result));
    }
}

DBT AsInput(std::string_view bytes) {
    DBT item{};
    item.data = const_cast<char*>(bytes.data());
    item.size = static_cast<uint32_t>(bytes.size());
    return item;
}

// Output comes into the caller's memory, as handles that several threads share demand.
DBT AsOutput(std::string& into) {
    into.resize(into.capacity());
    DBT item{};
    item.data = into.data();
    item.ulen = static_cast<uint32_t>(into.size());
    item.flags = DB_DBT_USERMEM;
    return item;
}

class BerkeleyAccess final : public Access {
  public:
    explicit BerkeleyAccess(DB* file) : file_(file) {}

    bool Get(std::string_view key, std::string& into) override {
        DBT keyItem = AsInput(key);
        DBT data = AsOutput(into);
        int result = file_->get(file_, nullptr, &keyItem, &data, 0);
        if (result == DB_BUFFER_SMALL) {
            into.reserve(data.size);
            data = AsOutput(into);
            result = file_->get(file_, nullptr, &keyItem, &data, 0);
        }
        if (result == DB_NOTFOUND) {
            return false;
        }
        Check(result);
        into.resize(data.size);
        return true;
    }

    void Put(std::string_view key, std::string_view data) override {
        DBT keyItem = AsInput(key);
        DBT dataItem = AsInput(data);
        Check(file_->put(file_, nullptr, &keyItem, &dataItem, 0));
    }

    bool Delete(std::string_view key) override {
        DBT keyItem = AsInput(key);
        const int result = file_->del(file_, nullptr, &keyItem, 0);
        Check(result == DB_NOTFOUND ? 0 : result);
        return result == 0;
    }

    WalkTotals Walk() override {
        WalkTotals totals;
        std::string into(kKeyBytes, '\0');
        DBT key = AsOutput(into);
        DBT data{};
        data.flags = DB_DBT_USERMEM | DB_DBT_PARTIAL;  // of no length: the data stay where they are
        DBC* cursor = nullptr;
        Check(file_->cursor(file_, nullptr, &cursor, 0));
        int result;
        while ((result = cursor->get(cursor, &key, &data, DB_NEXT)) == 0) {
            ++totals.Keys;
            totals.KeyBytes += key.size;
        }
        cursor->close(cursor);
        Check(result == DB_NOTFOUND ? 0 : result);
        return totals;
    }

  private:
    DB* file_;
};

// Advised: the expected number of records, and a cache for all of them, as far as a gigabyte goes.
class BerkeleyStore final : public Store {
  public:
    BerkeleyStore(const StoreSettings& settings, bool concurrent) {
        const bool advised = settings.Size == Sizing::Advised;
        const auto cache =
            static_cast<uint32_t>(std::min<uint64_t>(2 * settings.Records.PayloadBytes(), (1U << 30) - 1));
        if (concurrent) {
            const std::string shared = settings.Directory + "/shared";
            std::filesystem::create_directory(shared);
            Check(db_env_create(&environment_, 0));
            if (advised) {
                Check(environment_->set_cachesize(environment_, 0, cache, 1));
            }
            Check(environment_->open(environment_, shared.c_str(), DB_INIT_CDB | DB_INIT_MPOOL | DB_CREATE | DB_THREAD,
                                     0666));
        }
        Check(db_create(&file_, environment_, 0));
        if (advised) {
            const auto records = static_cast<uint32_t>(settings.Records.Records);
            Check(file_->set_h_nelem(file_, records));
            if (!concurrent) {
                Check(file_->set_cachesize(file_, 0, cache, 1));
            }
        }
        const std::string path = std::filesystem::absolute(settings.Directory + "/records");
        Check(file_->open(file_, nullptr, path.c_str(), nullptr, DB_HASH,
                          (settings.Create ? DB_CREATE : 0) | (concurrent ? DB_THREAD : 0), 0666));
    }
    ~BerkeleyStore() override {
        file_->close(file_, 0);
        if (environment_ != nullptr) {
            environment_->close(environment_, 0);
        }
    }

    std::unique_ptr<Access> Connect() override { return std::make_unique<BerkeleyAccess>(file_); }

  private:
    DB_ENV* environment_ = nullptr;
    DB* file_ = nullptr;
};

}  // namespace

std::unique_ptr<Store> OpenBerkeleyPrivate(const StoreSettings& settings) {
    return std::make_unique<BerkeleyStore>(settings, false);
}

std::unique_ptr<Store> OpenBerkeleyConcurrent(const StoreSettings& settings) {
    return std::make_unique<BerkeleyStore>(settings, true);
}

}  // namespace qx::compare
