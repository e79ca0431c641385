/* Corvane: hashed record files.
 *
 * The C interface of libqx.so. All functions return 1 for success and 0 for failure, except QXFormatError. A call that
 * fails fills the caller's status record; a call that succeeds leaves it as it was. Any thread may call any function.
 *
 * Names, keys, records and key lists never cross this interface as pointers. The application numbers its buffers as it
 * likes and hands over those numbers ("buffer objects"); the library reads and fills them through the session's
 * BufferCallback.
 */
#ifndef QX_H
#define QX_H

#include <stdint.h>

#if defined(__GNUC__)
#define QX_API __attribute__((visibility("default")))
#else
#define QX_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Why a call failed: an error code and two details whose meaning depends on the code. Where a file of a hashed file is
 * named, 1 is the primary file (.LK) and 2 the overflow file (.OV). QXFormatError turns the record into text. */
typedef struct StatusRecord {
    uint32_t Code;
    uint32_t Detail1;
    uint32_t Detail2;
} StatusRecord;

/* The application's buffer function; returns nonzero on success and may fill `status` on failure. The bytes must stay
 * where they are until the library call that asked for them returns. It is called in the thread of that call, possibly
 * while the call holds locks, and must not call the library.
 *
 *   operation 0, get:      store the buffer's length in *outLength and the address of its bytes in *outAddress
 *   operation 1, extend:   make the buffer at least `length` bytes long and keep what it holds; store its new capacity
 *                          and address
 *   operation 2, allocate: make the buffer `length` bytes long; store its length and address
 */
typedef int32_t (*BufferCallback)(uint32_t operation, uint32_t buffer, uint32_t length, uint32_t* outLength,
                                  void** outAddress, StatusRecord* status);

/* Every caller record begins with its size in bytes; words that the size does not cover are not read or written. */

/* In: the interface version that the caller was written for, 1.1.0 or later. Out: the library's, 1.1.1. */
typedef struct ApiVersionRecord {
    uint32_t Size; /* at least 16 */
    uint32_t Major;
    uint32_t Minor;
    uint32_t Revision;
} ApiVersionRecord;

typedef struct SessionOptions {
    uint32_t Size;
    uint32_t MaximumRecordSize; /* bytes; larger records are neither read nor written (1002); 0: no limit */
    uint32_t Reserved1;
    uint32_t Reserved2;
    uint32_t MaximumIdentifierSessions; /* how many sessions may carry the same identifier (1022); 0: any number */
    uint32_t IdentifierLength;          /* bytes of Identifier in use, 0 to 16 */
    uint8_t Identifier[16];
} SessionOptions;

/* A word of 0 takes the default. */
typedef struct CreateOptions {
    uint32_t Size;
    uint32_t Modulo;    /* number of groups to start with; 1 */
    uint32_t FrameSize; /* bytes; 1024; at least 256 */
    uint32_t Threshold; /* load at which a group is added, in 256ths of a frame, 25 to 255; 204 */
    uint32_t SizeLock;  /* 0: the file grows and shrinks; 1: it only grows; 2 or more: it keeps its number of groups */
    uint32_t Version;   /* file format, 110 or 120; 120. 110 holds frames of at most 65,535 bytes */
} CreateOptions;

typedef struct OpenOptions {
    uint32_t Size;
    uint32_t ReuseHandle;         /* nonzero: return the session's handle on this file if there is one */
    uint32_t ReadOnly;            /* nonzero: the handle refuses changes (102) */
    uint32_t SelectDelimiter;     /* byte after each key of a key list; 0: 0xFE */
    uint32_t SelectMinimumSize;   /* bytes that a forward walk gathers before it returns; 0: one group */
    uint32_t TrimLastDelimiter;   /* nonzero: no delimiter after the last key of a list */
    uint32_t PositionObjectInUse; /* nonzero: the walk's position is kept in the buffer object PositionObject */
    uint32_t PositionObject;
} OpenOptions;

typedef struct FileHeaderRecord {
    uint32_t Size;
    uint32_t Version;   /* 100, 110 or 120 */
    uint32_t FrameSize; /* bytes */
    uint32_t Threshold; /* in 256ths of a frame */
    uint32_t SizeLock;
    uint32_t Modulo;         /* number of groups */
    uint32_t RecordCount;    /* as this process knows it; a file of version 100 does not store it */
    uint32_t Alpha;          /* low 32 bits of the bytes in use in the groups, each counted up to one frame */
    uint32_t ModuloVerified; /* 1: a walk under way has counted every group exactly */
} FileHeaderRecord;

/* Starting and stopping. */

/* Starts the library in this process, or counts one more user of it. Fails with 1018 (version record), 1007 (set-up;
 * detail 2 is the step), 1015 (worker thread), 1101 or 1102 (it is being started or stopped).
 *
 * A process that is forked off begins with a library that is not started: every call fails with 1100 until the process
 * starts the library for itself. It has none of its parent's sessions, files and locks, and its parent keeps them all.
 * A buffer callback must not fork a process that returns from the callback. */
QX_API int32_t QXInitialize(ApiVersionRecord* version, StatusRecord* status);

/* Undoes one QXInitialize. The last one closes every session and file and stops the worker thread. Fails with 1100 (not
 * started), 1102 (calls are under way; nothing is stopped and it can be tried again), 1015, or with the first failure
 * met while closing, which is 1106 for a server that cannot be taken leave of. */
QX_API int32_t QXTerminate(StatusRecord* status);

/* Puts the message for `status` into `buffer`, which holds `bufferSize` characters including the terminating zero.
 * Returns the number of characters stored without that zero; 0 when the code has no message or the buffer is too small.
 * There is one language, so `languageId` may be anything. Needs no started library. */
QX_API uint32_t QXFormatError(const StatusRecord* status, uint32_t languageId, uint32_t bufferSize, char* buffer);

/* Sessions. */

/* Opens a session that reaches its buffers through `callback`; `options` may be null. Fails with 1100 (library not
 * started), 1022 (too many sessions with this identifier), 1015, 1028. */
QX_API int32_t QXOpenSession(BufferCallback callback, const SessionOptions* options, uint32_t* session,
                             StatusRecord* status);

/* Closes the session's files and the session. Fails with 1100 (no such session; detail 2 is 1 when there never was
 * one), 1102 (another call is inside it) or 1028, and the session stays open but for the group that it had locked; or
 * with the first failure met while closing its files and its sessions on servers (1105), and the session is closed. */
QX_API int32_t QXCloseSession(uint32_t session, StatusRecord* status);

/* Brings every file of the session that was written to safely to disk. Fails with 1100, 1028, 104, 1105. */
QX_API int32_t QXFlush(uint32_t session, StatusRecord* status);

/* Releases every file, record and group lock of the session. Fails with 1100, 1028, 1105. */
QX_API int32_t QXUnlockAll(uint32_t session, StatusRecord* status);

/* Reports on the process (kind 1), a volume (2), a file (3), a session (4), a file handle (5) or the servers (6); the
 * session or file handle is `subjectHandle`. `path` is a buffer object with the name of a file of the volume, with the
 * volume's own name and a separator behind it, or with nothing. `names` and `values` are buffer objects that receive
 * two parallel lists; each entry ends with the byte FE, in nested lists with FD and FC. Fails with 100 (no such kind,
 * or the process does not use the volume or file), 1000, 1005, 1006 (path), 1002 (report larger than the session's
 * limit), 1028, 1029, 1100, 1107, 107, and 1018, 1104 or 1105 (server); the buffers are not brought to their final
 * length then. */
QX_API int32_t QXGetStatistics(uint32_t session, uint32_t kind, uint32_t path, uint32_t subjectHandle,
                               uint32_t reserved, uint32_t names, uint32_t values, StatusRecord* status);

/* Files. `name` is a buffer object with a path in any form, at most 256 bytes, without extension. Every function that
 * takes a name can fail with 1000, 1005 or 1006 (the name), 107 (the parameter file cannot be read), 1019 to 1022, 1024
 * and 1025 (the volume), 1015, 1028, 1029 (no file handle to spare), 1018 (the server is too old) and 1104, 1105 (the
 * server). Every function that takes a handle can fail with 1100, and with 1105 if the file is a server's. */

/* Makes an empty hashed file; `options` may be null. Fails with 230 (it exists), 102 (read-only volume), 1102 (it is
 * open), 1008 (one of its files cannot be made), 103, 104, 1014, 1026, 1027; no file is left behind then. */
QX_API int32_t QXCreateFile(uint32_t session, uint32_t name, const CreateOptions* options, StatusRecord* status);

/* Removes a hashed file. Fails with 231 (there is none), 102, 1102 (this process has it open), 104 (another process has
 * it open, or the system refuses); a refused delete removes nothing. */
QX_API int32_t QXDeleteFile(uint32_t session, uint32_t name, StatusRecord* status);

/* Opens a hashed file; `options` may be null. Fails with 231 (there is none). A file that exists and cannot be read is
 * reported by the first call that works on it. */
QX_API int32_t QXOpenFile(uint32_t session, uint32_t name, const OpenOptions* options, uint32_t* file,
                          StatusRecord* status);

/* Writes back what is not yet stored and closes the handle. Fails with 1102 (another call is inside it) or 1028, and
 * the handle stays open but for the group that was locked through it; or with what writing and flushing can fail with,
 * and the handle is closed. */
QX_API int32_t QXCloseFile(uint32_t file, StatusRecord* status);

/* Removes every record; the file shrinks to one group when its size lock is 0 and nobody walks it. Fails with 102, 1014
 * and with what reading, locking and writing frames can fail with. */
QX_API int32_t QXClearFile(uint32_t file, StatusRecord* status);

/* Ends the handle's walk, if any. Fails with 1028 and with what writing the header can fail with. */
QX_API int32_t QXClearSelect(uint32_t file, StatusRecord* status);

/* Advisory locks on the whole file, held by the session until unlocked. The lock functions never wait: 415 (somebody
 * else holds a conflicting lock), 414 (the session holds one already), 1010, 1011, 1017, 1028; QXUnlockFile: 411 (the
 * session holds none). */
QX_API int32_t QXUnlockFile(uint32_t file, StatusRecord* status);
QX_API int32_t QXSharedLockFile(uint32_t file, StatusRecord* status);
QX_API int32_t QXExclusiveLockFile(uint32_t file, StatusRecord* status);

/* Reads the file's header afresh; `header` may be null. Fails with 107, 1003, 1009, 1014 and the group lock codes 1011,
 * 1012, 1013. */
QX_API int32_t QXGetFileHeader(uint32_t file, FileHeaderRecord* header, StatusRecord* status);

/* The group that `key` belongs to, under the number of groups that this process knows of. */
QX_API int32_t QXGetGroupNumber(uint32_t file, uint32_t key, uint32_t* group, StatusRecord* status);

/* Records. `key` and `record` are buffer objects; both hold any bytes, none included. All of these can fail with the
 * errors of a damaged group (125, 126, 127, 107, 1003), 129 (the file changed its number of groups twice meanwhile),
 * 1014, and the group lock codes 1011, 1012, 1013, 1015. */

/* Fetches a record into `record`. Fails with 100 (no such key), 1002 (larger than a limit), 160 (the callback refused
 * the buffer). The two differ in what is counted. */
QX_API int32_t QXReadRecord(uint32_t file, uint32_t key, uint32_t record, StatusRecord* status);
QX_API int32_t QXReadOnlyRecord(uint32_t file, uint32_t key, uint32_t record, StatusRecord* status);

/* Stores a record, in place of one with the same key. Fails with 102 (read-only), 1002, 1001 (the group's keys would
 * exceed a limit), 103, 104, 1004. */
QX_API int32_t QXWriteRecord(uint32_t file, uint32_t key, uint32_t record, StatusRecord* status);

/* Removes a record. Fails with 100 (no such key), 102, 103, 104, 1004. */
QX_API int32_t QXDeleteRecord(uint32_t file, uint32_t key, StatusRecord* status);

/* The keys of the next or previous group, each followed by the handle's delimiter, into the buffer object `keyList`.
 * A group of a local file extends the buffer whenever a key does not fit, and then by this key alone: a callback that
 * grants what is asked for and no more learns where each key ends, be the delimiter part of it or not.
 * The number of groups stays as it is until the walk ends, which it does with 111, with any other failure and with
 * QXClearSelect. Fails with 1001, 160, 1028 and with what reading can fail with. */
QX_API int32_t QXReadNextKeyIdGroup(uint32_t file, uint32_t keyList, StatusRecord* status);
QX_API int32_t QXReadPreviousKeyIdGroup(uint32_t file, uint32_t keyList, StatusRecord* status);

/* Checks the file as a whole and, if nothing is wrong with it, keeps its number of groups still (mode 0); checks one
 * group (mode 1); or lets the number of groups move again (any other mode). Damage is not a failure: the first thing
 * that is wrong is told in `problemReport`, and otherwise what was measured in `statisticsReport`. Both are buffer
 * objects and receive at most 1,024 bytes: fields, decimal numbers unless said otherwise, with the byte 0xFE between
 * them.
 *
 * Statistics of a file: number of groups, frame size, length of the file header, bytes of the primary and of the
 * overflow file in whole frames, the number of groups taken apart into level, multiplier and remainder, size lock,
 * records, bytes in use in the groups (all 64 bits of Alpha), frames that list free ones (frame 0 of the overflow file
 * included), 1 and the free frames that do not list others themselves, frames that the overflow file holds.
 *
 * Statistics of a group, each followed by 0xFE: 1 if its overflow frames do not follow each other in the file, else 0;
 * records; overflow frames; 1 and the frames visited by reading every record once; bytes of its last frame from the
 * end-of-group mark on; sum of the squares of the visits of each record.
 *
 * A problem is its number, followed by the fields named here; FILE is the word PRIME or OV:
 *
 *    1  primary file's name             it cannot be opened or read
 *    3  0                               the file header's first byte is none (mode 0)
 *    3  that byte                       a primary frame's first byte is wrong (mode 1)
 *    4  bytes, groups, frame size       the primary file does not hold as many frames as there are groups
 *    5  list frame                      a list frame's first byte is wrong (mode 0)
 *    5  that byte                       an overflow frame's first byte is wrong (mode 1)
 *    6  FILE, frame                     the group rule has no answer for a key
 *    7                                  a record's key belongs to another group
 *    8  group, FILE, frame, position    a record does not end, or its lengths contradict each other
 *    9  frame, its owner                a frame of the chain belongs to another group, or the chain has no end
 *   10  frames of the file, frame       the chain leads beyond the overflow file, or to a frame that cannot be read
 *   11  list frame                      it cannot be read
 *   12  list frame                      its entries are out of order, or the list has no end
 *   13  FILE, frame, position           a byte behind the end of a group is not the volume's fill character
 *   14  FILE, frame                     the last frame of a group leads on to another
 *
 * Fails with 1014, the callback's status, and what locking and opening fail with. */
QX_API int32_t QXVerifyGroup(uint32_t file, uint32_t mode, uint32_t group, uint32_t statisticsReport,
                             uint32_t problemReport, StatusRecord* status);

/* Advisory locks on one key, as those on a file; QXUnlockRecord: 412 (the session holds none). */
QX_API int32_t QXSharedLockRecord(uint32_t file, uint32_t key, StatusRecord* status);
QX_API int32_t QXExclusiveLockRecord(uint32_t file, uint32_t key, StatusRecord* status);
QX_API int32_t QXUnlockRecord(uint32_t file, uint32_t key, StatusRecord* status);

/* Locks a group against every other user of the file; a session holds at most one such lock. The thread that holds it
 * must not work on the file before it is released, and should not open, create, delete, flush or report on other files
 * either: such a call may wait for one that waits for the file. Closing the handle or the session releases the lock
 * first. Group 0xFFFFFFFE keeps the number of groups still instead (`exclusive` does not matter) and may be taken
 * several times. Fails with 1011 to 1015, 1028, and with what opening the file and storing its counts can fail with. */
QX_API int32_t QXLockGroup(uint32_t file, uint32_t group, uint32_t exclusive, StatusRecord* status);

/* Group 0xFFFFFFFE: gives up one such hold of this handle. Any other: releases the session's group lock, on whatever
 * file it is. Nothing held is no failure. */
QX_API int32_t QXUnlockGroup(uint32_t file, uint32_t group, StatusRecord* status);

#ifdef __cplusplus
}
#endif

#endif
