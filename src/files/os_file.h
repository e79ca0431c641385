// The operating-system file layer: names in canonical form, positions as unit times index, and results as the small
// integers that the layers above turn into status codes.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "files/mount_table.h"
#include "platform/file_service.h"

namespace qx {

// Exhausted: no file handle to spare (names), a short transfer or the end of the file (reads), a full volume or a short
// transfer (writes), a failing lock service (locks).
enum class FileResult : int32_t { Done = 1, Failed = 0, Exhausted = -1 };

// The file systems that are mounted now. NoHandles or Other when the system does not tell them.
SystemError ReadMounts(std::optional<MountTable>* mounts);

FileResult OsFileExists(std::string_view name);
FileResult OsCreateFile(std::string_view name, Sharing sharing, OsHandle* handle);
FileResult OsOpenFile(std::string_view name, Access access, Sharing sharing, OsHandle* handle);

// Deleting in two steps: a claimed file cannot be opened by anybody, and its claim fails while anybody has it open.
FileResult OsClaimForDelete(std::string_view name, OsHandle* claim);
FileResult OsDeleteClaimed(std::string_view name, OsHandle claim);

FileResult OsRead(OsHandle handle, uint32_t unit, uint32_t index, void* buffer, uint32_t length);
FileResult OsWrite(OsHandle handle, uint32_t unit, uint32_t index, uint32_t extra, const void* buffer, uint32_t length);

// Whole units in the file.
bool OsGetSize(OsHandle handle, uint32_t unit, uint32_t* count);
bool OsSetSize(OsHandle handle, uint32_t unit, uint32_t count);
bool OsFlush(OsHandle handle);

void OsClose(OsHandle handle);

}  // namespace qx
