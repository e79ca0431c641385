#include "support/faulty_platform.h"

#include <algorithm>

namespace qx_test {

using qx::SystemError;

const char* NameOf(Call call) {
    static constexpr const char* kNames[] = {
        "Exists",         "Create",      "Open",       "ClaimForDelete",   "Delete",
        "Read",           "Write",       "GetSize",    "SetSize",          "Flush",
        "Lock",           "EventCreate", "EventReset", "HeapCreate",       "HeapAllocate",
        "BufferAllocate", "ThreadStart", "PinModule",  "CurrentDirectory", "MountTable",
        "IsSupported"};
    static_assert(std::size(kNames) == kCallKinds);
    return kNames[static_cast<uint32_t>(call)];
}

namespace {

class FaultyFiles final : public qx::FileService {
  public:
    explicit FaultyFiles(FaultyPlatform& owner) : owner_(owner) {}

    SystemError Exists(const char* path) override {
        const SystemError error = owner_.Ask(Call::Exists);
        return error != SystemError::None ? error : Real().Exists(path);
    }

    SystemError Create(const char* path, qx::Sharing sharing, qx::OsHandle* handle) override {
        return Opened(owner_.Ask(Call::Create), [&] { return Real().Create(path, sharing, handle); });
    }

    SystemError Open(const char* path, qx::Access access, qx::Sharing sharing, qx::OsHandle* handle) override {
        return Opened(owner_.Ask(Call::Open), [&] { return Real().Open(path, access, sharing, handle); });
    }

    void Close(qx::OsHandle handle) override {
        Real().Close(handle);
        --owner_.Held.OpenHandles;
    }

    SystemError ClaimForDelete(const char* path, qx::OsHandle* claim) override {
        return Opened(owner_.Ask(Call::ClaimForDelete), [&] { return Real().ClaimForDelete(path, claim); });
    }

    SystemError DeleteClaimed(const char* path, qx::OsHandle claim) override {
        --owner_.Held.OpenHandles;
        const SystemError error = owner_.Ask(Call::Delete);
        if (error != SystemError::None) {
            Real().Close(claim);
            return error;
        }
        return Real().DeleteClaimed(path, claim);
    }

    SystemError Read(qx::OsHandle handle, uint64_t offset, void* buffer, size_t length) override {
        const SystemError error = owner_.Ask(Call::Read);
        if (error != SystemError::None) {
            Real().Read(handle, offset, buffer, std::min<size_t>(owner_.PartialTransfer(), length));
            return error;
        }
        return Real().Read(handle, offset, buffer, length);
    }

    SystemError Write(qx::OsHandle handle, uint64_t offset, const void* buffer, size_t length) override {
        const SystemError error = owner_.Ask(Call::Write);
        if (error != SystemError::None) {
            Real().Write(handle, offset, buffer, std::min<size_t>(owner_.PartialTransfer(), length));
            return error;
        }
        return Real().Write(handle, offset, buffer, length);
    }

    SystemError GetSize(qx::OsHandle handle, uint64_t* size) override {
        const SystemError error = owner_.Ask(Call::GetSize);
        return error != SystemError::None ? error : Real().GetSize(handle, size);
    }

    SystemError SetSize(qx::OsHandle handle, uint64_t size) override {
        const SystemError error = owner_.Ask(Call::SetSize);
        return error != SystemError::None ? error : Real().SetSize(handle, size);
    }

    SystemError Flush(qx::OsHandle handle) override {
        const SystemError error = owner_.Ask(Call::Flush);
        return error != SystemError::None ? error : Real().Flush(handle);
    }

    SystemError TryLock(qx::OsHandle handle, uint64_t offset, uint32_t length, qx::LockMode mode) override {
        SystemError error = owner_.Ask(Call::Lock);
        if (error == SystemError::None) {
            error = Real().TryLock(handle, offset, length, mode);
        }
        if (error == SystemError::None) {
            owner_.Held.LockedBytes += length;
        }
        return error;
    }

    SystemError Unlock(qx::OsHandle handle, uint64_t offset, uint32_t length) override {
        if (owner_.DuringUnlock) {
            owner_.DuringUnlock();
        }
        owner_.Held.LockedBytes -= length;
        return Real().Unlock(handle, offset, length);
    }

  private:
    qx::FileService& Real() { return *owner_.Real().Files; }

    template <class Body>
    SystemError Opened(SystemError error, Body&& body) {
        if (error != SystemError::None) {
            return error;
        }
        if (!owner_.MayOpen()) {
            return SystemError::NoHandles;
        }
        error = body();
        if (error == SystemError::None) {
            ++owner_.Held.OpenHandles;
        }
        return error;
    }

    FaultyPlatform& owner_;
};

class FaultyEvents final : public qx::EventService {
  public:
    explicit FaultyEvents(FaultyPlatform& owner) : owner_(owner) {}

    qx::OsEvent* Create() override {
        if (owner_.Ask(Call::EventCreate) != SystemError::None) {
            return nullptr;
        }
        ++owner_.Held.Events;
        return Real().Create();
    }
    void Close(qx::OsEvent* event) override {
        --owner_.Held.Events;
        Real().Close(event);
    }
    void Signal(qx::OsEvent* event) override { Real().Signal(event); }
    bool Reset(qx::OsEvent* event) override {
        return owner_.Ask(Call::EventReset) == SystemError::None && Real().Reset(event);
    }
    void Wait(qx::OsEvent* event) override { Real().Wait(event); }

  private:
    qx::EventService& Real() { return *owner_.Real().Events; }
    FaultyPlatform& owner_;
};

class FaultyHeap final : public qx::PrivateHeap {
  public:
    FaultyHeap(FaultyPlatform& owner, qx::PrivateHeap* real) : owner_(owner), real_(real) {}
    ~FaultyHeap() override {
        owner_.Held.HeapBlocks -= static_cast<int64_t>(real_->BlockCount());
        owner_.Real().Memory->DestroyHeap(real_);
    }
    void* Allocate(size_t size) override {
        if (owner_.Ask(Call::HeapAllocate) != SystemError::None) {
            return nullptr;
        }
        void* block = real_->Allocate(size);
        owner_.Held.HeapBlocks += block != nullptr;
        return block;
    }
    void Free(void* block) override {
        --owner_.Held.HeapBlocks;
        real_->Free(block);
    }
    size_t BlockCount() const override { return real_->BlockCount(); }

  private:
    FaultyPlatform& owner_;
    qx::PrivateHeap* const real_;
};

class FaultyMemory final : public qx::MemoryService {
  public:
    explicit FaultyMemory(FaultyPlatform& owner) : owner_(owner) {}

    qx::PrivateHeap* CreateHeap(bool guarded) override {
        if (owner_.Ask(Call::HeapCreate) != SystemError::None) {
            return nullptr;
        }
        ++owner_.Held.Heaps;
        return new FaultyHeap(owner_, owner_.Real().Memory->CreateHeap(guarded));
    }
    void DestroyHeap(qx::PrivateHeap* heap) override {
        --owner_.Held.Heaps;
        delete heap;
    }
    void* AllocateBuffer(size_t size) override {
        if (owner_.Ask(Call::BufferAllocate) != SystemError::None) {
            return nullptr;
        }
        void* buffer = owner_.Real().Memory->AllocateBuffer(size);
        owner_.Held.Buffers += buffer != nullptr;
        return buffer;
    }
    void FreeBuffer(void* buffer) override {
        --owner_.Held.Buffers;
        owner_.Real().Memory->FreeBuffer(buffer);
    }

  private:
    FaultyPlatform& owner_;
};

class FaultyThreads final : public qx::ThreadService {
  public:
    explicit FaultyThreads(FaultyPlatform& owner) : owner_(owner) {}

    qx::OsThread* Start(void (*body)(void*), void* argument) override {
        return owner_.Ask(Call::ThreadStart) == SystemError::None ? Real().Start(body, argument) : nullptr;
    }
    void Join(qx::OsThread* thread) override { Real().Join(thread); }
    void Yield() override { Real().Yield(); }
    void Sleep(uint32_t milliseconds) override { Real().Sleep(milliseconds); }

  private:
    qx::ThreadService& Real() { return *owner_.Real().Threads; }
    FaultyPlatform& owner_;
};

class FaultyHost final : public qx::HostService {
  public:
    explicit FaultyHost(FaultyPlatform& owner) : owner_(owner) {}

    bool IsSupported() override { return owner_.Ask(Call::IsSupported) == SystemError::None && Real().IsSupported(); }
    uint32_t ComputerName(char (&name)[16]) override { return Real().ComputerName(name); }
    qx::OsModule* PinModule() override {
        return owner_.Ask(Call::PinModule) == SystemError::None ? Real().PinModule() : nullptr;
    }
    void UnpinModule(qx::OsModule* module) override { Real().UnpinModule(module); }
    bool OnFork(void (*inNewProcess)()) override { return Real().OnFork(inNewProcess); }

  private:
    qx::HostService& Real() { return *owner_.Real().Host; }
    FaultyPlatform& owner_;
};

class FaultyDirectories final : public qx::DirectoryService {
  public:
    explicit FaultyDirectories(FaultyPlatform& owner) : owner_(owner) {}

    bool CurrentDirectory(std::string* path) override {
        return owner_.Ask(Call::CurrentDirectory) == SystemError::None && Real().CurrentDirectory(path);
    }
    SystemError FindEntry(const std::string& directory, std::string_view stem, std::string_view extension,
                          std::string* storedStem) override {
        return Real().FindEntry(directory, stem, extension, storedStem);
    }
    bool ResolveDirectoryLink(const std::string& path, std::string* target) override {
        return Real().ResolveDirectoryLink(path, target);
    }
    SystemError MountTable(std::string* table) override {
        SystemError error = owner_.Ask(Call::MountTable);
        if (error == SystemError::None) {
            error = Real().MountTable(table);
        }
        *table += owner_.PretendedMounts();
        return error;
    }

  private:
    qx::DirectoryService& Real() { return *owner_.Real().Directories; }
    FaultyPlatform& owner_;
};

}  // namespace

struct FaultyPlatform::Services {
    explicit Services(FaultyPlatform& owner)
        : OfFiles(owner), OfEvents(owner), OfMemory(owner), OfThreads(owner), OfHost(owner), OfDirectories(owner) {}

    FaultyFiles OfFiles;
    FaultyEvents OfEvents;
    FaultyMemory OfMemory;
    FaultyThreads OfThreads;
    FaultyHost OfHost;
    FaultyDirectories OfDirectories;
};

FaultyPlatform::FaultyPlatform() : real_(qx::thePlatform), services_(std::make_unique<Services>(*this)) {
    qx::thePlatform.Files = &services_->OfFiles;
    qx::thePlatform.Events = &services_->OfEvents;
    qx::thePlatform.Memory = &services_->OfMemory;
    qx::thePlatform.Threads = &services_->OfThreads;
    qx::thePlatform.Host = &services_->OfHost;
    qx::thePlatform.Directories = &services_->OfDirectories;
}

FaultyPlatform::~FaultyPlatform() {
    qx::thePlatform = real_;
}

void FaultyPlatform::Fail(Call call, uint64_t nth, SystemError error, bool andAfter) {
    const std::lock_guard guard(mutex_);
    const auto kind = static_cast<uint32_t>(call);
    orders_[kind] = {counts_[kind] + nth, error, andAfter};
    delivered_ = false;
}

void FaultyPlatform::FailAny(uint64_t nth, SystemError error) {
    const std::lock_guard guard(mutex_);
    any_ = {all_ + nth, error, false};
    delivered_ = false;
}

void FaultyPlatform::Clear() {
    const std::lock_guard guard(mutex_);
    orders_ = {};
    any_ = {};
    partial_ = 0;
    openHandlesLimit_ = kNoLimit;
    delivered_ = false;
}

SystemError FaultyPlatform::Ask(Call call) {
    const std::lock_guard guard(mutex_);
    const auto kind = static_cast<uint32_t>(call);
    const uint64_t ofKind = ++counts_[kind];
    const uint64_t ofAll = ++all_;
    for (const auto& [order, number] : {std::pair{orders_[kind], ofKind}, std::pair{any_, ofAll}}) {
        if (order.At != 0 && (number == order.At || (order.AndAfter && number > order.At))) {
            delivered_ = true;
            deliveredCall_ = call;
            return order.Error;
        }
    }
    return SystemError::None;
}

}  // namespace qx_test
