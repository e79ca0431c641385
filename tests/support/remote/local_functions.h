// The exported functions of the engine that the test is linked with, for programs in which the calls of the tests go to
// a client of its own.
#pragma once

#include <qx.h>

extern "C" {
extern decltype(QXInitialize) __real_QXInitialize;
extern decltype(QXTerminate) __real_QXTerminate;
extern decltype(QXOpenSession) __real_QXOpenSession;
extern decltype(QXCloseSession) __real_QXCloseSession;
extern decltype(QXFlush) __real_QXFlush;
extern decltype(QXUnlockAll) __real_QXUnlockAll;
extern decltype(QXGetStatistics) __real_QXGetStatistics;
extern decltype(QXCreateFile) __real_QXCreateFile;
extern decltype(QXDeleteFile) __real_QXDeleteFile;
extern decltype(QXOpenFile) __real_QXOpenFile;
extern decltype(QXCloseFile) __real_QXCloseFile;
extern decltype(QXClearFile) __real_QXClearFile;
extern decltype(QXClearSelect) __real_QXClearSelect;
extern decltype(QXUnlockFile) __real_QXUnlockFile;
extern decltype(QXSharedLockFile) __real_QXSharedLockFile;
extern decltype(QXExclusiveLockFile) __real_QXExclusiveLockFile;
extern decltype(QXGetFileHeader) __real_QXGetFileHeader;
extern decltype(QXGetGroupNumber) __real_QXGetGroupNumber;
extern decltype(QXReadRecord) __real_QXReadRecord;
extern decltype(QXReadOnlyRecord) __real_QXReadOnlyRecord;
extern decltype(QXWriteRecord) __real_QXWriteRecord;
extern decltype(QXDeleteRecord) __real_QXDeleteRecord;
extern decltype(QXReadNextKeyIdGroup) __real_QXReadNextKeyIdGroup;
extern decltype(QXReadPreviousKeyIdGroup) __real_QXReadPreviousKeyIdGroup;
extern decltype(QXVerifyGroup) __real_QXVerifyGroup;
extern decltype(QXSharedLockRecord) __real_QXSharedLockRecord;
extern decltype(QXExclusiveLockRecord) __real_QXExclusiveLockRecord;
extern decltype(QXUnlockRecord) __real_QXUnlockRecord;
extern decltype(QXLockGroup) __real_QXLockGroup;
extern decltype(QXUnlockGroup) __real_QXUnlockGroup;
}

namespace qx_test::local {

inline constexpr auto* Initialize = __real_QXInitialize;
inline constexpr auto* Terminate = __real_QXTerminate;
inline constexpr auto* OpenSession = __real_QXOpenSession;
inline constexpr auto* CloseSession = __real_QXCloseSession;
inline constexpr auto* Flush = __real_QXFlush;
inline constexpr auto* UnlockAll = __real_QXUnlockAll;
inline constexpr auto* GetStatistics = __real_QXGetStatistics;
inline constexpr auto* CreateFile = __real_QXCreateFile;
inline constexpr auto* DeleteFile = __real_QXDeleteFile;
inline constexpr auto* OpenFile = __real_QXOpenFile;
inline constexpr auto* CloseFile = __real_QXCloseFile;
inline constexpr auto* ClearFile = __real_QXClearFile;
inline constexpr auto* ClearSelect = __real_QXClearSelect;
inline constexpr auto* UnlockFile = __real_QXUnlockFile;
inline constexpr auto* SharedLockFile = __real_QXSharedLockFile;
inline constexpr auto* ExclusiveLockFile = __real_QXExclusiveLockFile;
inline constexpr auto* GetFileHeader = __real_QXGetFileHeader;
inline constexpr auto* GetGroupNumber = __real_QXGetGroupNumber;
inline constexpr auto* ReadRecord = __real_QXReadRecord;
inline constexpr auto* ReadOnlyRecord = __real_QXReadOnlyRecord;
inline constexpr auto* WriteRecord = __real_QXWriteRecord;
inline constexpr auto* DeleteRecord = __real_QXDeleteRecord;
inline constexpr auto* ReadNextKeyIdGroup = __real_QXReadNextKeyIdGroup;
inline constexpr auto* ReadPreviousKeyIdGroup = __real_QXReadPreviousKeyIdGroup;
inline constexpr auto* VerifyGroup = __real_QXVerifyGroup;
inline constexpr auto* SharedLockRecord = __real_QXSharedLockRecord;
inline constexpr auto* ExclusiveLockRecord = __real_QXExclusiveLockRecord;
inline constexpr auto* UnlockRecord = __real_QXUnlockRecord;
inline constexpr auto* LockGroup = __real_QXLockGroup;
inline constexpr auto* UnlockGroup = __real_QXUnlockGroup;

}  // namespace qx_test::local
