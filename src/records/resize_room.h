// Room on the volume for a change of the number of groups.
#pragma once

#include "records/resize_writer.h"
#include "storage/operation_context.h"

namespace qx {

// Takes room for every frame that a step may add to the files before it moves the first record: a step that ran out of
// room half way would leave groups without the records that it had in hand. The groups are those that the step takes
// records from, and locked. Raises 103, 104, and what reading frames raises; nothing has been changed then.
void TakeRoomForExpand(OperationContext& context, const ResizeGroups& sources);
void TakeRoomForContract(OperationContext& context, uint32_t removed, const ResizeGroups& targets);

}  // namespace qx
