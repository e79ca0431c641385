#include "storage/file_deletion.h"

#include "storage/attachment.h"

namespace qx {

namespace {

void CheckDeletion(FileResult result, WhichFile which) {
    if (result != FileResult::Done) {
        Raise(result == FileResult::Exhausted ? Code::NoFileHandle : Code::WriteFailed, Number(which));
    }
}

// A file that nobody can open until it is deleted or let go.
class DeletionClaim {
  public:
    DeletionClaim(OpenFile& file, WhichFile which) : path_(file.PathOf(which)), which_(which) {}
    ~DeletionClaim() {
        if (handle_ != kNoOsHandle) {
            OsClose(handle_);
        }
    }
    DeletionClaim(const DeletionClaim&) = delete;
    DeletionClaim& operator=(const DeletionClaim&) = delete;

    bool Exists() const {
        const FileResult result = CacheFileExists(path_);
        if (result == FileResult::Exhausted) {
            CheckDeletion(result, which_);
        }
        return result == FileResult::Done;
    }

    void Claim() { CheckDeletion(CacheClaimForDelete(path_, &handle_), which_); }

    void Delete() {
        if (handle_ != kNoOsHandle) {
            const OsHandle claim = handle_;
            handle_ = kNoOsHandle;
            CheckDeletion(OsDeleteClaimed(path_, claim), which_);
        }
    }

  private:
    const std::string path_;
    const WhichFile which_;
    OsHandle handle_ = kNoOsHandle;
};

}  // namespace

void DeleteHashedFile(OpenFile& file) {
    if (!file.Handles.IsEmpty()) {
        Raise(Code::Busy);
    }
    if (file.Volume.Settings.ReadOnly) {
        Raise(Code::ReadOnly, 1);
    }
    CloseParts(file);
    DeletionClaim overflow(file, WhichFile::Overflow);
    DeletionClaim primary(file, WhichFile::Primary);
    if (overflow.Exists()) {
        overflow.Claim();
    }
    primary.Claim();
    overflow.Delete();
    primary.Delete();
}

}  // namespace qx
