// Changing the number of groups by one.
#pragma once

#include "storage/operation_context.h"

namespace qx {

// Adds a group and moves into it the records that now belong there: a split. Removes the last group and gives its
// records back to the groups that they came from: a merge. The caller owns the file's structure mutex and nothing holds
// its number of groups still. True when the step was done, or found that it is no longer needed; false when it was not
// needed in the first place. What a failure leaves: groups already written stay so, the others and the header are as
// they were. Raises 129 for a record in a group where it does not belong, and what reading, writing and taking frames
// raise.
bool Expand(OperationContext& context);
bool Contract(OperationContext& context);

}  // namespace qx
