// Attaching a call to a hashed file's two operating-system files: they are open while it lasts, and idle in between.
#pragma once

#include "storage/open_file.h"

namespace qx {

// Opens the primary file if need be and loads the file header if it is not loaded; detaches when it ends.
class PrimaryAttachment {
  public:
    // Raises 1028, 1009, 1029, 1026, 1027, 107, 1003; the file is left open and idle when only its header was at fault.
    explicit PrimaryAttachment(OpenFile& file);
    ~PrimaryAttachment();
    PrimaryAttachment(const PrimaryAttachment&) = delete;
    PrimaryAttachment& operator=(const PrimaryAttachment&) = delete;

  private:
    OpenFile& file_;
};

// The overflow file, which a call attaches to at most once, when it first needs it.
class OverflowAttachment {
  public:
    explicit OverflowAttachment(OpenFile& file) : file_(file) {}
    ~OverflowAttachment();
    OverflowAttachment(const OverflowAttachment&) = delete;
    OverflowAttachment& operator=(const OverflowAttachment&) = delete;

    enum class Missing : uint8_t { Fail, Create };

    // Raises 1028, 1009, 1029, 1026, 1027.
    void Attach(Missing missing);
    bool IsAttached() const { return attached_; }

  private:
    void Open(Missing missing);

    OpenFile& file_;
    bool attached_ = false;
};

// Marks a newly opened file as this process's, where the volume's settings want that; a failure closes it. Raises 1026,
// 1027.
void MarkFile(const VolumeRecord& volume, CachedFile& cached, Access access);

// Flushes what was written since the last flush, attached or not. Raises 1028, 104.
void FlushFile(OpenFile& file);

// Closes both operating-system files of a file that no call uses, and forgets its header.
void CloseParts(OpenFile& file);

}  // namespace qx
