// Changing the number of groups by one.
#pragma once

#include "storage/operation_context.h"

namespace qx {

// Adds a group and moves into it the records that now belong there: a split. Removes the last group and gives its
// records back to the groups that they came from: a merge. The caller owns the file's structure mutex and nothing holds
// its number of groups still. True when the step was done, or found that it is no longer needed; false when it was not
// needed in the first place. A failure before the header is written leaves the file as it was. After that the step
// counts as done: a split may leave copies of records in the groups that they have moved from, and a group that was
// being written without them may be damaged; a merge may leave frames that nothing leads to. Raises 129 for a record in
// a group where it has never belonged, and what reading, writing and taking frames raise.
bool Expand(OperationContext& context);
bool Contract(OperationContext& context);

}  // namespace qx
