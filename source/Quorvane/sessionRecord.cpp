#include "Quorvane/sessionRecord.h"

#include "protons/cppNewDelete/memoryAllocation.h"

namespace quorvane {

namespace {
std::atomic<uint64_t> gNextSerial{1};
}  // namespace

tSessionRecord::tSessionRecord() noexcept : serial(gNextSerial.fetch_add(1, std::memory_order_relaxed)) {
    fifoStates_.reportInto(status);
    lock = static_cast<tReaderWriterLock*>(allocateWithStatus(sizeof(tReaderWriterLock), status));
    if (lock != nullptr) new (lock) tReaderWriterLock(status);
}

tSessionRecord::~tSessionRecord() {
    deleteObject(lock);
}

}  // namespace quorvane
