#include "copyStream.h"

#include <algorithm>
#include <cstring>

#include "HostSim.h"
#include "Quorvane.h"
#include "progress.h"

namespace quorvane::tools {

namespace {

// A Host array handle, disposed of when it goes out of scope.
class HostArray {
public:
    HostArray(const ElementType& type, uint64_t count)
        : handle_(HostSim_NewNumericArray(static_cast<int32_t>(type.code), count)),
          header_(hostArrayHeaderBytes(type)) {}
    ~HostArray() {
        if (handle_) HostSim_DisposeHandle(handle_);
    }
    HostArray(const HostArray&) = delete;
    HostArray& operator=(const HostArray&) = delete;

    void** handle() const { return handle_; }
    // The block moves when the library resizes the array, so it is looked up every time.
    unsigned char* elements() const { return static_cast<unsigned char*>(*handle_) + header_; }
    int32_t count() const {
        int32_t count = 0;
        std::memcpy(&count, *handle_, sizeof count);
        return count;
    }

private:
    void** handle_;
    size_t header_;
};

}  // namespace

StreamResult streamCopies(const StreamSetup& setup, FifoPlan& fifo, StatusLog& log) {
    StreamResult result;
    result.ran = true;
    const ElementType& type = *fifo.type;
    const uint64_t total = std::max<uint64_t>(1, setup.amount / type.bytes);
    Progress progress(std::string("copies  ") + (fifo.toHost ? "to host" : "to target"), total * type.bytes,
                      setup.terminal);
    // Reads resize the array to each count; writes send the whole array, so the last, shorter
    // block gets an array of its own.
    HostArray full(type, fifo.toHost ? 0 : setup.block);
    uint64_t done = 0;
    while (done < total) {
        const uint64_t count = std::min(setup.block, total - done);
        uint32_t remaining = 0;
        int32_t status = 0;
        if (fifo.toHost) {
            status = log.note("Quorvane_ReadFifoScalar",
                              Quorvane_ReadFifoScalar(setup.session, fifo.fifo, static_cast<uint32_t>(count), type.code,
                                                      0, setup.timeout, full.handle(), &remaining));
            if (status >= 0) {
                if (full.count() != static_cast<int32_t>(count)) {
                    ++result.mismatches;  // the array does not hold what was asked for
                    result.failed = true;
                    break;
                }
                result.mismatches += countMismatches(type.code, full.elements(), count, fifo.pattern, fifo.nextIndex);
            }
        } else {
            HostArray last(type, count == setup.block ? 0 : count);
            const HostArray& array = count == setup.block ? full : last;
            fillPattern(type.code, array.elements(), count, fifo.pattern, fifo.nextIndex);
            status =
                log.note("Quorvane_WriteFifoScalar", Quorvane_WriteFifoScalar(setup.session, fifo.fifo, array.handle(),
                                                                              type.code, 0, setup.timeout, &remaining));
        }
        if (status < 0) {
            result.failed = true;
            break;
        }
        fifo.nextIndex += count;
        done += count;
        progress.update(done * type.bytes);
    }
    result.bytes = done * type.bytes;
    result.seconds = progress.finish(result.bytes);
    return result;
}

}  // namespace quorvane::tools
