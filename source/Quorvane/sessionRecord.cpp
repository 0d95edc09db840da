#include "Quorvane/sessionRecord.h"

#include "protons/cppNewDelete/memoryAllocation.h"

namespace quorvane {

tSessionRecord::tSessionRecord() noexcept {
    fifoStates.reportInto(status);
    lock = static_cast<tReaderWriterLock*>(allocateWithStatus(sizeof(tReaderWriterLock), status));
    if (lock != nullptr) new (lock) tReaderWriterLock(status);
}

tSessionRecord::~tSessionRecord() {
    deleteObject(lock);
}

}  // namespace quorvane
