// Corvane: hashed record files, for C++20.
//
// The C interface of qx.h as owning objects: a Library keeps the library started, a Session and a File own their
// handles. Keys and records go in as std::string_view and come out as std::string; all of them are plain bytes. What
// qx.h says about a function holds for the member function that stands for it, codes included.
//
//     qx::Library library;
//     qx::Session session(library);
//     session.CreateFile("CUST", {.Modulo = 101});
//     qx::File file = session.OpenFile("CUST");
//     file.Write("1001", "Ann\xFE" "London");
//     if (std::optional<std::string> record = file.Read("1001")) { ... }
//
// Failures are thrown as qx::Error, except that a missing record is a return value. Close() reports the failures of
// closing; the destructors close as well and keep silent, so a program that has written calls Close().
//
// Threads: any number of them may use one Session or File at once, except for moving, assigning, closing and destroying
// it. Objects go in the reverse order of their making: a session closes its files, and a library its sessions, so an
// object that outlives its maker names a handle that is closed and may already be somebody else's.
#ifndef QX_HPP
#define QX_HPP

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <qx.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qx {

/// A failed call: the status words, and the library's message for them in what().
class QX_API Error : public std::runtime_error {
  public:
    explicit Error(const StatusRecord& status) : std::runtime_error(Message(status)), status_(status) {}

    std::uint32_t Code() const noexcept { return status_.Code; }
    std::uint32_t Detail1() const noexcept { return status_.Detail1; }
    std::uint32_t Detail2() const noexcept { return status_.Detail2; }

  private:
    static std::string Message(const StatusRecord& status) {
        std::array<char, 512> text;
        const std::uint32_t length = QXFormatError(&status, 0, static_cast<std::uint32_t>(text.size()), text.data());
        if (length != 0) {
            return std::string(text.data(), length);
        }
        return "error " + std::to_string(status.Code) + " (" + std::to_string(status.Detail1) + ", " +
               std::to_string(status.Detail2) + ")";
    }

    StatusRecord status_;
};

/// The part of the face that is nobody's business but its own. Visible across shared objects, so that all parts of a
/// process that use this header share one table of buffers.
namespace face_detail QX_API {

/// A list of keys as the library fills it. Each key is followed by the delimiter, which keys may hold as well; but a
/// list of a local file is extended key by key, so that the lengths asked for tell where each key ends. A list that
/// comes as a whole, as from a server, has to be cut at its delimiters.
class KeyList {
  public:
    void Clear() noexcept {
        ends_.clear();
        comesAsAWhole_ = false;
        taken_ = begin_ = 0;
        bytes_.clear();
    }

    /// Grants no more than is asked for, so that the next key asks again. Throws std::bad_alloc.
    std::string& Extend(std::uint32_t length) {
        bytes_.resize(length);
        ends_.push_back(length);
        return bytes_;
    }

    /// Throws std::bad_alloc.
    std::string& Allocate(std::uint32_t length) {
        bytes_.resize(length);
        comesAsAWhole_ = true;
        return bytes_;
    }

    /// False when no key is left. The key is valid until the list is cleared.
    bool TakeNext(char delimiter, std::string_view& key) noexcept {
        if (begin_ == bytes_.size()) {
            return false;
        }
        std::size_t next = bytes_.size();
        std::size_t end = next;
        if (!comesAsAWhole_) {
            next = ends_[taken_++];
            end = next - 1;
        } else if (const std::size_t found = bytes_.find(delimiter, begin_); found != std::string::npos) {
            next = found + 1;
            end = found;
        }
        key = std::string_view(bytes_).substr(begin_, end - begin_);
        begin_ = next;
        return true;
    }

  private:
    std::string bytes_;
    std::vector<std::size_t> ends_;  // of the keys with their delimiters
    bool comesAsAWhole_ = false;
    std::size_t taken_ = 0;  // keys
    std::size_t begin_ = 0;  // in bytes_, of the next key
};

/// What a buffer object stands for during one call: a string or a list to be filled, or else bytes to be read.
struct Slot {
    std::string_view Bytes;
    std::string* Target = nullptr;
    KeyList* Keys = nullptr;
};

/// The buffer objects of one thread; no call needs more at once. A thread's slots lie apart from those of others, so
/// that threads do not slow each other down by writing them.
struct alignas(64) Block {
    static constexpr std::uint32_t kSlots = 4;

    std::array<Slot, kSlots> Slots;
    std::uint32_t Index = 0;
    std::atomic<bool> IsTaken{false};
};

/// Every block of the process, found by number without a lock and from any thread. Buffer object n is slot n mod kSlots
/// of block n / kSlots. Blocks live in chunks of doubling size, which stay where they are until the process ends;
/// threads take blocks and give them back. No lock guards them, as it might be held when the process forks; what other
/// threads have taken then stays taken in the new process.
class BufferTable {
  public:
    /// Throws std::bad_alloc.
    Block* Acquire() {
        for (std::uint32_t chunk = 0; chunk < kChunks; ++chunk) {
            Block* const blocks = MakeChunk(chunk);
            for (std::uint32_t i = 0; i < 1U << chunk; ++i) {
                std::atomic<bool>& isTaken = blocks[i].IsTaken;
                if (!isTaken.load(std::memory_order_relaxed) && !isTaken.exchange(true, std::memory_order_acquire)) {
                    return &blocks[i];
                }
            }
        }
        throw std::bad_alloc();
    }

    void Release(Block* block) noexcept { block->IsTaken.store(false, std::memory_order_release); }

    /// Null when no such buffer object was ever handed out.
    const Slot* Find(std::uint32_t buffer) const noexcept {
        const std::uint32_t number = buffer / Block::kSlots + 1;
        const auto chunk = static_cast<std::uint32_t>(std::bit_width(number)) - 1;
        const Block* blocks = chunks_[chunk].load(std::memory_order_acquire);
        return blocks == nullptr ? nullptr : &blocks[number - (1U << chunk)].Slots[buffer % Block::kSlots];
    }

  private:
    /// The blocks of the chunk, which are made if nobody has done so.
    Block* MakeChunk(std::uint32_t chunk) {
        Block* there = chunks_[chunk].load(std::memory_order_acquire);
        if (there != nullptr) {
            return there;
        }
        const std::uint32_t count = 1U << chunk;
        std::unique_ptr<Block[]> made(new Block[count]);
        for (std::uint32_t i = 0; i < count; ++i) {
            made[i].Index = count - 1 + i;
        }
        return chunks_[chunk].compare_exchange_strong(there, made.get(), std::memory_order_acq_rel) ? made.release()
                                                                                                    : there;
    }

    // So many chunks hold the blocks whose buffer objects 32 bits can number, less one, whose chunk is never made.
    static constexpr std::uint32_t kChunks = 30;

    std::array<std::atomic<Block*>, kChunks + 1> chunks_{};
};

inline constinit BufferTable bufferTable;

/// The calling thread's block, which it keeps from its first call to its end.
inline Block& ThreadBlock() {
    class Holder {
      public:
        Holder() : block_(bufferTable.Acquire()) {}
        Holder(const Holder&) = delete;
        Holder& operator=(const Holder&) = delete;
        ~Holder() { bufferTable.Release(block_); }

        Block& Get() noexcept { return *block_; }

      private:
        Block* block_;
    };
    thread_local Holder holder;
    return holder.Get();
}

/// Numbers the buffers of one call. Nothing is allocated: the slots are the thread's.
class CallBuffers {
  public:
    CallBuffers() : block_(ThreadBlock()) {}

    std::uint32_t Input(std::string_view bytes) noexcept { return Take({bytes, nullptr, nullptr}); }
    std::uint32_t Output(std::string& target) noexcept { return Take({{}, &target, nullptr}); }
    std::uint32_t Output(KeyList& keys) noexcept { return Take({{}, nullptr, &keys}); }

  private:
    std::uint32_t Take(Slot slot) noexcept {
        block_.Slots[used_] = slot;
        return block_.Index * Block::kSlots + used_++;
    }

    Block& block_;
    std::uint32_t used_ = 0;
};

inline std::int32_t RefuseBuffer(StatusRecord* status, std::uint32_t code) noexcept {
    if (status != nullptr) {
        *status = {code, 0, 0};
    }
    return 0;
}

/// Makes room in a string. What `extend` hands over besides is what the string has allocated anyway: reports grow piece
/// by piece, and that makes it cheap.
inline std::string& MakeRoom(std::string& target, std::uint32_t operation, std::uint32_t length) {
    if (operation == 2) {
        target.resize(length);
    } else if (target.size() < length) {
        target.resize(length);
        target.resize(target.capacity());
    }
    return target;
}

inline std::string& MakeRoom(KeyList& keys, std::uint32_t operation, std::uint32_t length) {
    return operation == 2 ? keys.Allocate(length) : keys.Extend(length);
}

/// The BufferCallback of every qx::Session. Refuses (160) when there is no memory, and (1002) what 32 bits cannot
/// measure.
inline std::int32_t ServeBuffer(std::uint32_t operation, std::uint32_t buffer, std::uint32_t length,
                                std::uint32_t* outLength, void** outAddress, StatusRecord* status) noexcept {
    const Slot* slot = bufferTable.Find(buffer);
    const bool isFilled = slot != nullptr && (slot->Target != nullptr || slot->Keys != nullptr);
    if (slot == nullptr || operation > 2 || (operation == 0 ? slot->Keys != nullptr : !isFilled)) {
        return RefuseBuffer(status, 160);
    }
    if (operation == 0) {
        const std::string_view bytes = slot->Target == nullptr ? slot->Bytes : std::string_view(*slot->Target);
        if (bytes.size() > UINT32_MAX) {
            return RefuseBuffer(status, 1002);
        }
        *outLength = static_cast<std::uint32_t>(bytes.size());
        *outAddress = const_cast<char*>(bytes.empty() ? "" : bytes.data());
        return 1;
    }
    try {
        std::string& filled = slot->Keys != nullptr ? MakeRoom(*slot->Keys, operation, length)
                                                    : MakeRoom(*slot->Target, operation, length);
        *outLength = static_cast<std::uint32_t>(filled.size() < UINT32_MAX ? filled.size() : UINT32_MAX);
        *outAddress = filled.data();
        return 1;
    } catch (...) {
        return RefuseBuffer(status, 160);
    }
}

inline void Check(std::int32_t result, const StatusRecord& status) {
    if (result == 0) {
        throw Error(status);
    }
}

/// A bool where a call has two ordinary outcomes: it succeeded, or it failed with `ordinaryCode`.
inline bool CheckUnless(std::int32_t result, const StatusRecord& status, std::uint32_t ordinaryCode) {
    if (result == 0 && status.Code != ordinaryCode) {
        throw Error(status);
    }
    return result != 0;
}

/// A session or file handle that is closed when its owner goes.
template <std::int32_t (*CloseHandle)(std::uint32_t, StatusRecord*)>
class OwnedHandle {
  public:
    explicit OwnedHandle(std::uint32_t handle) noexcept : handle_(handle) {}
    OwnedHandle(OwnedHandle&& other) noexcept : handle_(std::exchange(other.handle_, kNone)) {}
    OwnedHandle& operator=(OwnedHandle&& other) noexcept {
        OwnedHandle taken(std::move(other));
        std::swap(handle_, taken.handle_);
        return *this;
    }
    ~OwnedHandle() {
        if (handle_ != kNone) {
            StatusRecord ignored;
            CloseHandle(handle_, &ignored);
        }
    }

    void Close() {
        if (handle_ == kNone) {
            return;
        }
        StatusRecord status{};
        const std::int32_t result = CloseHandle(handle_, &status);
        if (result != 0 || status.Code != kBusy) {
            handle_ = kNone;  // any other failure is one met while closing
        }
        Check(result, status);
    }

    std::uint32_t Get() const noexcept { return handle_; }

  private:
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;
    static constexpr std::uint32_t kBusy = 1102;

    std::uint32_t handle_;
};

}  // namespace QX_API

struct LibraryVersion {
    std::uint32_t Major = 0;
    std::uint32_t Minor = 0;
    std::uint32_t Revision = 0;
};

/// One use of the library: started when made, given up when destroyed. A process may hold several; the library stops
/// with the last one.
class Library {
  public:
    /// Throws 1018, 1007, 1015, 1101, 1102.
    Library() {
        ApiVersionRecord record{sizeof(ApiVersionRecord), 1, 1, 1};
        StatusRecord status{};
        face_detail::Check(QXInitialize(&record, &status), status);
        version_ = {record.Major, record.Minor, record.Revision};
        started_ = true;
    }
    Library(Library&& other) noexcept : version_(other.version_), started_(std::exchange(other.started_, false)) {}
    Library& operator=(Library&& other) noexcept {
        Library taken(std::move(other));
        std::swap(version_, taken.version_);
        std::swap(started_, taken.started_);
        return *this;
    }
    ~Library() {
        if (started_) {
            StatusRecord ignored;
            QXTerminate(&ignored);
        }
    }

    /// Gives up this use; the last one closes every session and file. Does nothing the second time. Throws 1102 (calls
    /// are under way; it can be tried again) and the first failure met while closing, after which it is given up.
    void Close() {
        if (!started_) {
            return;
        }
        StatusRecord status{};
        const std::int32_t result = QXTerminate(&status);
        started_ = result == 0 && status.Code == 1102;
        face_detail::Check(result, status);
    }

    /// The library's version of the interface.
    LibraryVersion Version() const noexcept { return version_; }

  private:
    LibraryVersion version_;
    bool started_ = false;
};

struct SessionSettings {
    std::uint32_t MaximumRecordSize = 0;          ///< bytes; larger records are refused (1002); 0: no limit
    std::uint32_t MaximumIdentifierSessions = 0;  ///< how many sessions may carry the identifier; 0: any number
    std::string_view Identifier = {};             ///< the first 16 bytes count

    operator SessionOptions() const noexcept {
        SessionOptions options{};
        options.Size = sizeof options;
        options.MaximumRecordSize = MaximumRecordSize;
        options.MaximumIdentifierSessions = MaximumIdentifierSessions;
        for (const char c : Identifier.substr(0, sizeof options.Identifier)) {
            options.Identifier[options.IdentifierLength++] = static_cast<std::uint8_t>(c);
        }
        return options;
    }
};

/// A value of 0 takes the default.
struct CreateSettings {
    std::uint32_t Modulo = 1;        ///< number of groups to start with
    std::uint32_t FrameSize = 1024;  ///< bytes; at least 256
    std::uint32_t Threshold = 204;   ///< load at which a group is added, in 256ths of a frame, 25 to 255
    std::uint32_t SizeLock = 0;      ///< 0: grows and shrinks; 1: only grows; 2 or more: keeps its number of groups
    std::uint32_t Version = 120;     ///< file format, 110 or 120

    operator CreateOptions() const noexcept {
        return {sizeof(CreateOptions), Modulo, FrameSize, Threshold, SizeLock, Version};
    }
};

/// Handles are never shared between File objects and walks keep their positions themselves, so those two options of the
/// C interface are not offered. Nor is leaving out the last delimiter of a list: it would make a list of one empty key
/// look like a list of none.
struct OpenSettings {
    bool ReadOnly = false;                ///< the handle refuses changes (102)
    char SelectDelimiter = '\xFE';        ///< byte after each key of a list that comes as a whole; 0: 0xFE
    std::uint32_t SelectMinimumSize = 0;  ///< bytes of keys that a forward walk gathers at a time; 0: one group

    operator OpenOptions() const noexcept {
        OpenOptions options{};
        options.Size = sizeof options;
        options.ReadOnly = ReadOnly ? 1 : 0;
        options.SelectDelimiter = static_cast<unsigned char>(SelectDelimiter);
        options.SelectMinimumSize = SelectMinimumSize;
        return options;
    }
};

/// The file's header, as this process knows it.
struct HeaderValues {
    std::uint32_t Version = 0;      ///< 100, 110 or 120
    std::uint32_t FrameSize = 0;    ///< bytes
    std::uint32_t Threshold = 0;    ///< in 256ths of a frame
    std::uint32_t SizeLock = 0;     ///< as in CreateSettings
    std::uint32_t Modulo = 0;       ///< number of groups
    std::uint32_t RecordCount = 0;  ///< not stored in a file of version 100
    std::uint32_t Alpha = 0;        ///< low 32 bits of the bytes in use in the groups, each counted up to one frame
    bool ModuloVerified = false;    ///< a walk under way has counted every group exactly
};

/// The keys of a file, group by group, as a range: `for (std::string_view key : file.Keys())`. A key is valid until the
/// next one is asked for. Made by File::Keys and File::ReverseKeys.
///
/// Keys are any bytes. Only from a server, whose lists come as a whole, a key that holds the handle's delimiter comes
/// out as two or more keys, none of which may exist; there, open the file with a SelectDelimiter that its keys do not
/// hold.
///
/// Records may be read, written and deleted meanwhile, with the keys that come out too: those of a group are taken when
/// the walk reaches it. A record that is there all the time comes out once.
///
/// The number of groups stays as it is until the walk ends, which it does at the end of the range, with a failure (as
/// thrown by begin and by ++: 1001, 160 and what reading can fail with) and when this object goes. A file handle has
/// one walk, so two ranges of one File must not be used side by side.
class KeyWalk {
  public:
    class Iterator {
      public:
        using value_type = std::string_view;
        using difference_type = std::ptrdiff_t;
        using iterator_concept = std::input_iterator_tag;

        Iterator() = default;
        explicit Iterator(KeyWalk& walk) noexcept : walk_(&walk) {}

        std::string_view operator*() const noexcept { return walk_->key_; }
        Iterator& operator++() {
            walk_->Advance();
            return *this;
        }
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const noexcept { return walk_->ended_; }

      private:
        KeyWalk* walk_ = nullptr;
    };

    KeyWalk(const KeyWalk&) = delete;
    KeyWalk& operator=(const KeyWalk&) = delete;
    ~KeyWalk() {
        if (!ended_) {
            StatusRecord ignored;
            QXClearSelect(file_, &ignored);
        }
    }

    /// Starts the walk, afresh if there is one under way.
    Iterator begin() {
        StatusRecord status{};
        face_detail::Check(QXClearSelect(file_, &status), status);
        list_.Clear();
        ended_ = false;
        Advance();
        return Iterator(*this);
    }
    std::default_sentinel_t end() const noexcept { return {}; }

  private:
    friend class File;
    using Step = std::int32_t (*)(std::uint32_t, std::uint32_t, StatusRecord*);

    KeyWalk(std::uint32_t file, char delimiter, Step step) noexcept : step_(step), file_(file), delimiter_(delimiter) {}

    void Advance() {
        while (!list_.TakeNext(delimiter_, key_)) {
            list_.Clear();
            StatusRecord status{};
            face_detail::CallBuffers buffers;
            const std::int32_t result = step_(file_, buffers.Output(list_), &status);
            ended_ = result == 0;
            constexpr std::uint32_t kNoFurtherGroup = 111;
            if (!face_detail::CheckUnless(result, status, kNoFurtherGroup)) {
                return;
            }
        }
    }

    Step step_;
    std::uint32_t file_;
    char delimiter_;
    bool ended_ = true;
    face_detail::KeyList list_;
    std::string_view key_;
};

/// One thing that is wrong with a file: its number and fields as in the problem report of QXVerifyGroup.
struct Damage {
    std::uint32_t Number = 0;
    std::vector<std::string> Fields;

    bool operator==(const Damage&) const = default;
};

/// A file as a whole, as measured by QXVerifyGroup.
struct FileMeasures {
    std::uint32_t Modulo = 0;     ///< number of groups
    std::uint32_t FrameSize = 0;  ///< bytes
    std::uint32_t HeaderLength = 0;
    std::uint64_t PrimaryBytes = 0;  ///< in whole frames, as OverflowBytes
    std::uint64_t OverflowBytes = 0;
    std::uint32_t SizeLock = 0;
    std::uint32_t RecordCount = 0;  ///< as counted from call to call
    std::uint64_t Alpha = 0;        ///< likewise: bytes in use in the groups, each counted up to one frame
    std::uint32_t ListFrames = 0;   ///< frames that list free ones, frame 0 of the overflow file included
    std::uint64_t FreeFrames = 0;   ///< of the overflow file; those that list others included
    std::uint32_t HighWater = 0;    ///< frames that the overflow file holds, frame 0 included; 1 when it is empty
};

/// How a group is stored, as measured by QXVerifyGroup.
struct GroupMeasures {
    bool OutOfOrder = false;  ///< its overflow frames do not follow each other in the file
    std::uint64_t Records = 0;
    std::uint64_t OverflowFrames = 0;
    std::uint64_t FrameVisits = 0;   ///< by reading every record once, and 1
    std::uint64_t FreeBytes = 0;     ///< of the last frame, from the mark that ends the group on
    std::uint64_t DepthSquares = 0;  ///< sum of the squares of the visits for each record
};

/// What was measured, or what is wrong.
struct GroupVerification {
    std::optional<qx::Damage> Damage;
    GroupMeasures Measures;
};

namespace face_detail QX_API {

/// The fields of a verification report, one after the other.
class ReportFields {
  public:
    explicit ReportFields(std::string_view report) noexcept : rest_(report) {}

    bool AtEnd() const noexcept { return rest_.empty(); }

    std::string_view Text() noexcept {
        const std::size_t end = rest_.find('\xFE');
        const std::string_view field = rest_.substr(0, end);
        rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
        return field;
    }

    template <class Value>
    void Number(Value& value) noexcept {
        const std::string_view field = Text();
        std::from_chars(field.data(), field.data() + field.size(), value);
    }

  private:
    std::string_view rest_;
};

}  // namespace QX_API

/// A check of a file: as a whole when it is made, then group by group, in any order. Made by File::Verify, which it
/// must not outlive.
///
/// Unless something is wrong with the file as a whole, the number of groups stays as it is while this object lives.
class FileVerification {
  public:
    FileVerification(const FileVerification&) = delete;
    FileVerification& operator=(const FileVerification&) = delete;
    ~FileVerification() {
        if (!damage_) {
            StatusRecord ignored;
            std::string report;
            face_detail::CallBuffers buffers;
            const std::uint32_t statistics = buffers.Output(report);
            QXVerifyGroup(file_, kRelease, 0, statistics, buffers.Output(report), &ignored);
        }
    }

    /// What is wrong with the file as a whole; Measures tells nothing then.
    const std::optional<qx::Damage>& Damage() const noexcept { return damage_; }
    const FileMeasures& Measures() const noexcept { return measures_; }

    /// Checks a group. Throws 1014 and the codes of locking, but not for damage.
    GroupVerification Group(std::uint32_t group) const {
        GroupVerification result;
        std::string statistics;
        result.Damage = Call(kGroup, group, statistics);
        face_detail::ReportFields fields(statistics);
        std::uint32_t outOfOrder = 0;
        fields.Number(outOfOrder);
        GroupMeasures& measures = result.Measures;
        measures.OutOfOrder = outOfOrder != 0;
        for (std::uint64_t* value : {&measures.Records, &measures.OverflowFrames, &measures.FrameVisits,
                                     &measures.FreeBytes, &measures.DepthSquares}) {
            fields.Number(*value);
        }
        return result;
    }

  private:
    friend class File;
    enum Mode : std::uint32_t { kFile = 0, kGroup = 1, kRelease = 2 };

    explicit FileVerification(std::uint32_t file) : file_(file) {
        std::string statistics;
        damage_ = Call(kFile, 0, statistics);
        face_detail::ReportFields fields(statistics);
        fields.Number(measures_.Modulo);
        fields.Number(measures_.FrameSize);
        fields.Number(measures_.HeaderLength);
        fields.Number(measures_.PrimaryBytes);
        fields.Number(measures_.OverflowBytes);
        for (int split = 0; split < 3; ++split) {
            fields.Text();  // follows from Modulo
        }
        fields.Number(measures_.SizeLock);
        fields.Number(measures_.RecordCount);
        fields.Number(measures_.Alpha);
        fields.Number(measures_.ListFrames);
        fields.Number(measures_.FreeFrames);
        fields.Number(measures_.HighWater);
        // The report tells 1 and the free frames that do not list others.
        measures_.FreeFrames += measures_.ListFrames;
        measures_.FreeFrames -= std::min<std::uint64_t>(measures_.FreeFrames, 2);
    }

    std::optional<qx::Damage> Call(Mode mode, std::uint32_t group, std::string& statistics) const {
        std::string problem;
        StatusRecord status{};
        face_detail::CallBuffers buffers;
        const std::uint32_t first = buffers.Output(statistics);
        face_detail::Check(QXVerifyGroup(file_, mode, group, first, buffers.Output(problem), &status), status);
        if (problem.empty()) {
            return std::nullopt;
        }
        qx::Damage damage;
        face_detail::ReportFields fields(problem);
        fields.Number(damage.Number);
        while (!fields.AtEnd()) {
            damage.Fields.emplace_back(fields.Text());
        }
        return damage;
    }

    std::uint32_t file_;
    std::optional<qx::Damage> damage_;
    FileMeasures measures_;
};

/// What a report of Session::Statistics is about.
enum class StatisticsKind : std::uint32_t { Process = 1, Volume = 2, File = 3, Session = 4, Handle = 5, Servers = 6 };

/// In a list, elements are separated by the byte FD. A table has its title and its columns in the label and its rows in
/// the value, separated by FD; columns and cells are separated by FC.
struct StatisticsEntry {
    std::string Label;
    std::string Value;
};

/// How a session locks a file or a key: together with others that do so shared, or alone.
enum class LockKind { Shared, Exclusive };

class File;

class Session {
  public:
    /// Throws 1022, 1015, 1028, and 1100 when `library` has been closed.
    explicit Session(const Library& /*library*/, const SessionSettings& settings = {}) : handle_(Open(settings)) {}

    /// `name`: a path in any form without extension, at most 256 bytes. Throws as QXCreateFile fails: 230 (it exists),
    /// and so on.
    void CreateFile(std::string_view name, const CreateSettings& settings = {}) {
        const CreateOptions options = settings;
        StatusRecord status{};
        face_detail::CallBuffers buffers;
        face_detail::Check(QXCreateFile(handle_.Get(), buffers.Input(name), &options, &status), status);
    }

    /// Throws 231 (there is none), 102, 1102 (this process has it open), 104.
    void DeleteFile(std::string_view name) {
        StatusRecord status{};
        face_detail::CallBuffers buffers;
        face_detail::Check(QXDeleteFile(handle_.Get(), buffers.Input(name), &status), status);
    }

    /// Throws 231 (there is none). A file that exists and cannot be read is told by the first call that works on it.
    File OpenFile(std::string_view name, const OpenSettings& settings = {});

    /// Brings what was written to the session's files safely to disk. Throws 104, 1028.
    void Flush() {
        StatusRecord status{};
        face_detail::Check(QXFlush(handle_.Get(), &status), status);
    }

    /// What this process has counted, in the order of the report. `path`: a file, or a volume with a separator behind
    /// it; `handle`: a session's or file's. Throws 100 (the process does not use the volume or file), 1000, 1005, 1006
    /// (path), 1002, 1028, 1100, 1107.
    std::vector<StatisticsEntry> Statistics(StatisticsKind kind, std::string_view path = {},
                                            std::uint32_t handle = 0) const {
        std::string labels;
        std::string values;
        StatusRecord status{};
        face_detail::CallBuffers buffers;
        const std::uint32_t pathBuffer = buffers.Input(path);
        const std::uint32_t labelBuffer = buffers.Output(labels);
        face_detail::Check(QXGetStatistics(handle_.Get(), static_cast<std::uint32_t>(kind), pathBuffer, handle, 0,
                                           labelBuffer, buffers.Output(values), &status),
                           status);
        std::vector<StatisticsEntry> entries;
        std::string_view labelsLeft = labels;
        std::string_view valuesLeft = values;
        while (!labelsLeft.empty()) {
            std::string label(TakeEntry(labelsLeft));
            entries.push_back({std::move(label), std::string(TakeEntry(valuesLeft))});
        }
        return entries;
    }

    /// Closes the session's files and the session; does nothing the second time. Throws 1102 (another call is inside
    /// it; it stays open) and the first failure met while closing, after which it is closed.
    void Close() { handle_.Close(); }

    /// For calls of the C interface; stays owned by this object. 0xFFFFFFFF when closed or moved from.
    std::uint32_t Handle() const noexcept { return handle_.Get(); }

  private:
    static std::string_view TakeEntry(std::string_view& list) noexcept {
        const std::size_t end = list.find('\xFE');
        const std::string_view entry = list.substr(0, end);
        list.remove_prefix(end == std::string_view::npos ? list.size() : end + 1);
        return entry;
    }

    static std::uint32_t Open(const SessionOptions& options) {
        std::uint32_t handle = 0;
        StatusRecord status{};
        face_detail::Check(QXOpenSession(face_detail::ServeBuffer, &options, &handle, &status), status);
        return handle;
    }

    face_detail::OwnedHandle<QXCloseSession> handle_;
};

/// An open hashed file. Reading never changes the file, whatever the settings.
class File {
  public:
    File(Session& session, std::string_view name, const OpenSettings& settings = {})
        : handle_(Open(session.Handle(), name, settings)),
          delimiter_(settings.SelectDelimiter == '\0' ? '\xFE' : settings.SelectDelimiter) {}

    /// Empty when there is no record with this key. Throws 1002, 160 and the errors of a damaged file.
    std::optional<std::string> Read(std::string_view key) const {
        std::optional<std::string> record(std::in_place);
        if (!Read(key, *record)) {
            record.reset();
        }
        return record;
    }

    /// The same into the caller's string, whose memory is used again: false, and `into` is left as it was, when there
    /// is no such record. After a failure `into` holds anything.
    bool Read(std::string_view key, std::string& into) const {
        StatusRecord status{};
        face_detail::CallBuffers buffers;
        const std::uint32_t keyBuffer = buffers.Input(key);
        return face_detail::CheckUnless(QXReadRecord(handle_.Get(), keyBuffer, buffers.Output(into), &status), status,
                                        kNotFound);
    }

    /// Stores a record, in place of one with the same key. Throws 102 (read-only), 1002, 1001, 103, 104.
    void Write(std::string_view key, std::string_view record) {
        StatusRecord status{};
        face_detail::CallBuffers buffers;
        const std::uint32_t keyBuffer = buffers.Input(key);
        face_detail::Check(QXWriteRecord(handle_.Get(), keyBuffer, buffers.Input(record), &status), status);
    }

    /// False when there was no record with this key. Throws 102 (read-only), 103, 104.
    bool Delete(std::string_view key) {
        StatusRecord status{};
        face_detail::CallBuffers buffers;
        return face_detail::CheckUnless(QXDeleteRecord(handle_.Get(), buffers.Input(key), &status), status, kNotFound);
    }

    /// Removes every record. Throws 102 (read-only).
    void Clear() {
        StatusRecord status{};
        face_detail::Check(QXClearFile(handle_.Get(), &status), status);
    }

    /// Reads the header afresh. Throws 107, 1003, 1009.
    HeaderValues Header() const {
        FileHeaderRecord record{};
        record.Size = sizeof record;
        StatusRecord status{};
        face_detail::Check(QXGetFileHeader(handle_.Get(), &record, &status), status);
        return {record.Version, record.FrameSize,   record.Threshold, record.SizeLock,
                record.Modulo,  record.RecordCount, record.Alpha,     record.ModuloVerified != 0};
    }

    /// The group that the key belongs to, whether there is such a record or not.
    std::uint32_t GroupNumber(std::string_view key) const {
        std::uint32_t group = 0;
        StatusRecord status{};
        face_detail::CallBuffers buffers;
        face_detail::Check(QXGetGroupNumber(handle_.Get(), buffers.Input(key), &group, &status), status);
        return group;
    }

    /// Every key, from the first group to the last, in the order in which the groups hold them. The range must not
    /// outlive this object.
    KeyWalk Keys() { return KeyWalk(handle_.Get(), delimiter_, QXReadNextKeyIdGroup); }

    /// The same from the last group to the first; the order within a group is that of Keys().
    KeyWalk ReverseKeys() { return KeyWalk(handle_.Get(), delimiter_, QXReadPreviousKeyIdGroup); }

    /// Checks the file for damage, which is told and not thrown. Throws 1014, 1028 and the codes of locking.
    FileVerification Verify() { return FileVerification(handle_.Get()); }

    /// Locks the file as a whole against other sessions, of any process, that lock it too; nothing else heeds the lock.
    /// Nobody waits: false when another session's lock is in the way. Throws 414 (this session has locked it), 1010,
    /// 1011, 1017, 1028. Closing the file or the session unlocks.
    bool TryLock(LockKind kind) {
        StatusRecord status{};
        const auto lock = kind == LockKind::Exclusive ? QXExclusiveLockFile : QXSharedLockFile;
        return face_detail::CheckUnless(lock(handle_.Get(), &status), status, kLockedByOther);
    }

    /// Throws 411 (this session has not locked it), 1028.
    void Unlock() {
        StatusRecord status{};
        face_detail::Check(QXUnlockFile(handle_.Get(), &status), status);
    }

    /// The same for one key, whether there is such a record or not. Locks on keys and those on the file as a whole have
    /// nothing to do with each other.
    bool TryLockRecord(std::string_view key, LockKind kind) {
        StatusRecord status{};
        face_detail::CallBuffers buffers;
        const auto lock = kind == LockKind::Exclusive ? QXExclusiveLockRecord : QXSharedLockRecord;
        return face_detail::CheckUnless(lock(handle_.Get(), buffers.Input(key), &status), status, kLockedByOther);
    }

    /// Throws 412 (this session has not locked it), 1028.
    void UnlockRecord(std::string_view key) {
        StatusRecord status{};
        face_detail::CallBuffers buffers;
        face_detail::Check(QXUnlockRecord(handle_.Get(), buffers.Input(key), &status), status);
    }

    /// Writes back what is not yet stored and closes; does nothing the second time. Throws 1102 (another call is inside
    /// it; it stays open) and what writing can fail with, after which it is closed.
    void Close() { handle_.Close(); }

    /// For calls of the C interface; stays owned by this object. 0xFFFFFFFF when closed or moved from.
    std::uint32_t Handle() const noexcept { return handle_.Get(); }

  private:
    static constexpr std::uint32_t kNotFound = 100;
    static constexpr std::uint32_t kLockedByOther = 415;

    static std::uint32_t Open(std::uint32_t session, std::string_view name, const OpenOptions& options) {
        std::uint32_t handle = 0;
        StatusRecord status{};
        face_detail::CallBuffers buffers;
        face_detail::Check(QXOpenFile(session, buffers.Input(name), &options, &handle, &status), status);
        return handle;
    }

    face_detail::OwnedHandle<QXCloseFile> handle_;
    char delimiter_;
};

inline File Session::OpenFile(std::string_view name, const OpenSettings& settings) {
    return File(*this, name, settings);
}

}  // namespace qx

#endif
