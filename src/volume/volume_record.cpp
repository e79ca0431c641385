#include "volume/volume_record.h"

#include <cstddef>
#include <new>

#include "runtime/library_record.h"
#include "runtime/session_record.h"
#include "runtime/status.h"
#include "volume/parameter_file.h"
#include "volume/volume_locking.h"

namespace qx {

// Never ended: a program may exit while threads of its own are still inside the library.
NameTree<VolumeRecord>& Volumes() {
    alignas(NameTree<VolumeRecord>) static std::byte storage[sizeof(NameTree<VolumeRecord>)];
    static auto* volumes = new (storage) NameTree<VolumeRecord>;
    return *volumes;
}

VolumeRecord& VolumeOf(std::string_view name, size_t rootLength) {
    const auto found = Volumes().find(name);
    if (found != Volumes().end()) {
        return *found->second;
    }
    Parameters parameters;
    ReadParameterFile(name, rootLength, parameters);
    OwnedRecord<VolumeRecord> volume(theRecordHeap.Make<VolumeRecord>(name));
    volume->Settings = parameters.Settings;
    volume->Locks.Supported = parameters.Settings.Locks.value_or(false);
    volume->Locks.Map = LockMap(parameters.Settings.MaximumUsers);
    Volumes().emplace(volume->Name, volume.get());
    theProcessCounters.Enter(Counter::ActiveVolumes, Counter::PeakActiveVolumes);
    theProcessCounters.Increment(Counter::AddVolumes);
    return *volume.release();
}

namespace {

struct EndLockingIfUnused {
    VolumeRecord& Volume;
    ~EndLockingIfUnused() {
        if (Volume.Uses == nullptr) {
            EndLocking(Volume);
        }
    }
};

template <VolumeUse* VolumeUse::*next>
void Unlink(VolumeUse** head, VolumeUse& use) {
    while (*head != &use) {
        head = &((*head)->*next);
    }
    *head = use.*next;
}

}  // namespace

VolumeUse& UseVolume(SessionRecord& session, uint32_t sessionHandle, VolumeRecord& volume) {
    if (volume.Settings.ServerOnly) {
        Raise(Code::ServerOnly);
    }
    for (VolumeUse* use = session.VolumeUses; use != nullptr; use = use->NextOfSession) {
        if (use->Volume == &volume) {
            return *use;
        }
    }
    OwnedRecord<VolumeUse> use(theRecordHeap.Make<VolumeUse>());
    if (volume.Uses == nullptr) {
        BeginLocking(volume);
    }
    const EndLockingIfUnused endIfUnused{volume};
    use->IdentifierSlot = TakeIdentifierSlot(volume, session);
    use->Session = sessionHandle;
    use->Volume = &volume;
    use->NextOfSession = session.VolumeUses;
    session.VolumeUses = use.get();
    use->NextOfVolume = volume.Uses;
    volume.Uses = use.get();
    return *use.release();
}

void LeaveVolume(SessionRecord& session, VolumeUse& use) {
    if (!use.Files.IsEmpty()) {
        return;
    }
    const EndLockingIfUnused endIfUnused{*use.Volume};
    GiveBackIdentifierSlot(*use.Volume, use.IdentifierSlot);
    Unlink<&VolumeUse::NextOfSession>(&session.VolumeUses, use);
    Unlink<&VolumeUse::NextOfVolume>(&use.Volume->Uses, use);
    theRecordHeap.End(&use);
}

void ForgetVolumes() {
    while (!Volumes().empty()) {
        VolumeRecord* volume = Volumes().begin()->second;
        Volumes().erase(Volumes().begin());
        theRecordHeap.End(volume);
        theProcessCounters.Leave(Counter::ActiveVolumes);
    }
}

}  // namespace qx
