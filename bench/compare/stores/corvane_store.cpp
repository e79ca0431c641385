#include <algorithm>
#include <fstream>
#include <qx.hpp>

#include "runtime/counters.h"
#include "sizing.h"
#include "stores.h"

namespace qx::compare {

namespace {

class CorvaneAccess final : public Access {
  public:
    explicit CorvaneAccess(File file) : file_(std::move(file)) {}

    bool Get(std::string_view key, std::string& into) override { return file_.Read(key, into); }
    void Put(std::string_view key, std::string_view data) override { file_.Write(key, data); }
    bool Delete(std::string_view key) override { return file_.Delete(key); }

    WalkTotals Walk() override {
        WalkTotals totals;
        for (const std::string_view key : file_.Keys()) {
            ++totals.Keys;
            totals.KeyBytes += key.size();
        }
        return totals;
    }

  private:
    File file_;
};

CreateSettings CreateSettingsFor(const StoreSettings& settings) {
    CreateSettings create;
    if (settings.Size == Sizing::Advised) {
        const double storedBytes = tool::StoredBytesOf(kKeyBytes + settings.Records.DataBytes);
        const tool::Sizing sizing = tool::Advise({settings.Records.Records, storedBytes});
        create.FrameSize = sizing.FrameSize;
        create.Modulo = sizing.Modulo;
        create.SizeLock = 1;  // an empty file would give its groups up again
    }
    return create;
}

class CorvaneStore final : public Store {
  public:
    CorvaneStore(const StoreSettings& settings, std::string_view locks)
        : session_(library_), name_(settings.Directory + "/RECORDS"), create_(CreateSettingsFor(settings)) {
        if (settings.Create) {
            std::ofstream(settings.Directory + "/MOXPARAM") << "LOCKS=" << locks << '\n';
            session_.CreateFile(name_, create_);
        }
    }

    std::unique_ptr<Access> Connect() override { return std::make_unique<CorvaneAccess>(session_.OpenFile(name_)); }

    FrameWork Work() const override {
        const auto value = [](Counter counter) { return static_cast<double>(theProcessCounters.Value(counter)); };
        return {value(Counter::ReadFrames), value(Counter::WriteFrames), value(Counter::GroupLocks)};
    }

    uint32_t FrameSize() const override { return create_.FrameSize; }

  private:
    Library library_;
    Session session_;
    const std::string name_;
    const CreateSettings create_;
};

}  // namespace

std::unique_ptr<Store> OpenCorvane(const StoreSettings& settings) {
    return std::make_unique<CorvaneStore>(settings, "TRUE");
}

std::unique_ptr<Store> OpenCorvaneUnlocked(const StoreSettings& settings) {
    return std::make_unique<CorvaneStore>(settings, "FALSE");
}

}  // namespace qx::compare
