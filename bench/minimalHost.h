// What the benchmarks' minimal Host offers besides the Host functions it stands in for.
#pragma once

#include <stdint.h>

extern "C" {
// Deletes the calling thread's live reference: calls the deletion callback stored in its record.
int32_t MinimalHost_DeleteReference(void);
// The calling thread's reference record, as the library filled it.
const void* MinimalHost_ReferenceRecord(void);
}
