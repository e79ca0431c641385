#include <stdexcept>
#include <tkrzw_dbm_hash.h>

#include "stores.h"

namespace qx::compare {

namespace {

void Check(const tkrzw::Status& status) {
    if (status != tkrzw::Status::SUCCESS) {
        throw std::runtime_error(tkrzw::ToString(status));
    }
}

bool CheckFound(const tkrzw::Status& status) {
    if (status == tkrzw::Status::NOT_FOUND_ERROR) {
        return false;
    }
    Check(status);
    return true;
}

class TkrzwAccess final : public Access {
  public:
    explicit TkrzwAccess(tkrzw::HashDBM& file) : file_(file) {}

    bool Get(std::string_view key, std::string& into) override { return CheckFound(file_.Get(key, &into)); }
    void Put(std::string_view key, std::string_view data) override { Check(file_.Set(key, data)); }
    bool Delete(std::string_view key) override { return CheckFound(file_.Remove(key)); }

    WalkTotals Walk() override {
        WalkTotals totals;
        const std::unique_ptr<tkrzw::DBM::Iterator> iterator = file_.MakeIterator();
        Check(iterator->First());
        std::string key;
        while (CheckFound(iterator->Get(&key))) {
            ++totals.Keys;
            totals.KeyBytes += key.size();
            Check(iterator->Next());
        }
        return totals;
    }

  private:
    tkrzw::HashDBM& file_;
};

// Advised: twice as many buckets as records.
class TkrzwStore final : public Store {
  public:
    explicit TkrzwStore(const StoreSettings& settings) {
        tkrzw::HashDBM::TuningParameters tuning;
        if (settings.Size == Sizing::Advised) {
            tuning.num_buckets = static_cast<int64_t>(2 * settings.Records.Records);
        }
        Check(file_.OpenAdvanced(settings.Directory + "/records.tkh", true,
                                 settings.Create ? tkrzw::File::OPEN_DEFAULT : tkrzw::File::OPEN_NO_CREATE, tuning));
    }
    ~TkrzwStore() override { file_.Close(); }

    std::unique_ptr<Access> Connect() override { return std::make_unique<TkrzwAccess>(file_); }

  private:
    tkrzw::HashDBM file_;
};

}  // namespace

std::unique_ptr<Store> OpenTkrzw(const StoreSettings& settings) {
    return std::make_unique<TkrzwStore>(settings);
}

}  // namespace qx::compare
