#include "concurrent/shared_file.h"

#include <stdexcept>

#include "checker/byte_checker.h"

namespace qx_test {

SharedFile::SharedFile(const FileSettings& settings) : path_(directory_.File("SHARED")) {
    qx::Session session(Library);
    session.CreateFile(path_,
                       {.Modulo = settings.Modulo, .FrameSize = settings.FrameSize, .SizeLock = settings.SizeLock});
}

std::shared_ptr<OpenedFile> SharedFile::Join() {
    if (joined_++ % 2 != 0) {
        return OpenOwn();
    }
    if (shared_ == nullptr) {
        shared_ = OpenOwn();
    }
    return shared_;
}

void SharedFile::Check(const std::optional<Records>& due) {
    if (shared_ != nullptr) {
        shared_->File.Close();
        shared_->Session.Close();
    }
    Records found;
    const qx_check::Report report = qx_check::CheckFile(
        path_, {}, [&](std::string_view key, std::string_view data, uint32_t) { found.emplace(key, data); });
    if (!report.Clean()) {
        throw std::runtime_error("on disk: " + report.problems.front());
    }
    if (due && found != *due) {
        throw std::runtime_error("other records on disk than were written");
    }
}

void Owner::Operate(qx::File& file, Clears clears) {
    member_.AwaitShift();
    const std::string key = name_ + std::to_string(member_.Below(keys_));
    const auto known = records_.find(key);
    const uint32_t choice = member_.Below(100);
    if (choice < 40) {
        member_.Step("reading");
        const std::optional<std::string> record = file.Read(key);
        const bool mayBeGone = clears == Clears::Yes && known != records_.end() && !record;
        if (record.has_value() != (known != records_.end()) && !mayBeGone) {
            member_.Fail(record ? "a deleted record is there" : "a record is not there");
        }
        if (record && *record != known->second) {
            member_.Fail("a record reads back differently");
        }
    } else if (choice < (tide_ == Tide::None ? 80u : tide_ == Tide::Rising ? 95u : 45u)) {
        const bool sameLength = known != records_.end() && member_.OneIn(2);
        const size_t length = sameLength ? known->second.size() : member_.Below(member_.OneIn(20) ? 5000 : 100);
        std::string data(length, static_cast<char>(member_.Below(256)));
        member_.Step("writing");
        file.Write(key, data);
        records_[key] = std::move(data);
    } else {
        member_.Step("deleting");
        const bool deleted = file.Delete(key);
        if (deleted != (known != records_.end()) && (deleted || clears == Clears::No)) {
            member_.Fail("a delete has the wrong outcome");
        }
        records_.erase(key);
    }
}

}  // namespace qx_test
