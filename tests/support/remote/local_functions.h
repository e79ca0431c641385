// The exported functions of the engine that the test is linked with, for programs in which the calls of the tests go to
// a client of its own.
#pragma once

#include <qx.h>

#define LOCAL(name)                                \
    extern "C" decltype(QX##name) __real_QX##name; \
    namespace qx_test::local {                     \
    inline constexpr auto* name = __real_QX##name; \
    }

LOCAL(Initialize)
LOCAL(Terminate)
LOCAL(OpenSession)
LOCAL(CloseSession)
LOCAL(Flush)
LOCAL(UnlockAll)
LOCAL(GetStatistics)
LOCAL(CreateFile)
LOCAL(DeleteFile)
LOCAL(OpenFile)
LOCAL(CloseFile)
LOCAL(ClearFile)
LOCAL(ClearSelect)
LOCAL(UnlockFile)
LOCAL(SharedLockFile)
LOCAL(ExclusiveLockFile)
LOCAL(GetFileHeader)
LOCAL(GetGroupNumber)
LOCAL(ReadRecord)
LOCAL(ReadOnlyRecord)
LOCAL(WriteRecord)
LOCAL(DeleteRecord)
LOCAL(ReadNextKeyIdGroup)
LOCAL(ReadPreviousKeyIdGroup)
LOCAL(VerifyGroup)
LOCAL(SharedLockRecord)
LOCAL(ExclusiveLockRecord)
LOCAL(UnlockRecord)
LOCAL(LockGroup)
LOCAL(UnlockGroup)

#undef LOCAL
