// Checking a file: as a whole, and group by group.
#pragma once

#include <cstdint>

#include "records/verification_report.h"
#include "storage/file_call.h"

namespace qx {

enum VerifyMode : uint32_t { kVerifyFile = 0, kVerifyGroup = 1 };

// One call of a check, with its two reports handed over: mode 0 checks the file as a whole and leaves it under a select
// hold if nothing is wrong, mode 1 checks a group, any other mode gives the hold up. Raises 1014, 160, and what taking
// the hold and reading raise beyond what is told as a problem.
void Verify(FileCall& call, uint32_t mode, uint32_t group, uint32_t statisticsBuffer, uint32_t problemBuffer);

void CheckFile(FileCall& call, Verification& result);
void CheckGroup(FileCall& call, uint32_t group, Verification& result);

}  // namespace qx
