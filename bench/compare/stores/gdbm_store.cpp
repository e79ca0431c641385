#include <cstdlib>
#include <gdbm.h>
#include <stdexcept>

#include "stores.h"

namespace qx::compare {

namespace {

datum AsDatum(std::string_view bytes) {
    return {const_cast<char*>(bytes.data()), static_cast<int>(bytes.size())};
}

class GdbmAccess final : public Access {
  public:
    explicit GdbmAccess(GDBM_FILE file) : file_(file) {}

    bool Get(std::string_view key, std::string& into) override {
        const datum data = gdbm_fetch(file_, AsDatum(key));
        if (data.dptr == nullptr) {
            Check(gdbm_errno == GDBM_ITEM_NOT_FOUND);
            return false;
        }
        into.assign(data.dptr, static_cast<size_t>(data.dsize));
        std::free(data.dptr);
        return true;
    }

    void Put(std::string_view key, std::string_view data) override {
        Check(gdbm_store(file_, AsDatum(key), AsDatum(data), GDBM_REPLACE) == 0);
    }

    bool Delete(std::string_view key) override {
        const bool found = gdbm_delete(file_, AsDatum(key)) == 0;
        Check(found || gdbm_errno == GDBM_ITEM_NOT_FOUND);
        return found;
    }

    WalkTotals Walk() override {
        WalkTotals totals;
        datum key = gdbm_firstkey(file_);
        while (key.dptr != nullptr) {
            ++totals.Keys;
            totals.KeyBytes += static_cast<uint64_t>(key.dsize);
            const datum next = gdbm_nextkey(file_, key);
            std::free(key.dptr);
            key = next;
        }
        return totals;
    }

  private:
    void Check(bool good) const {
        if (!good) {
            throw std::runtime_error(gdbm_db_strerror(file_));
        }
    }

    GDBM_FILE file_;
};

// Its manual has no parameters for the number of records to come.
class GdbmStore final : public Store {
  public:
    explicit GdbmStore(const StoreSettings& settings)
        : file_(gdbm_open((settings.Directory + "/records").c_str(), 0, settings.Create ? GDBM_WRCREAT : GDBM_WRITER,
                          0666, nullptr)) {
        if (file_ == nullptr) {
            throw std::runtime_error(gdbm_strerror(gdbm_errno));
        }
    }
    ~GdbmStore() override { gdbm_close(file_); }

    std::unique_ptr<Access> Connect() override { return std::make_unique<GdbmAccess>(file_); }

  private:
    GDBM_FILE file_;
};

}  // namespace

std::unique_ptr<Store> OpenGdbm(const StoreSettings& settings) {
    return std::make_unique<GdbmStore>(settings);
}

}  // namespace qx::compare
