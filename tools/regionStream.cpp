#include "regionStream.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "HostSim.h"
#include "Quorvane.h"
#include "progress.h"

namespace quorvane::tools {

namespace {

// Where the Host's reference record keeps the address of element 0 and the element count.
constexpr size_t kRecordElementsOffset = 16;
constexpr size_t kRecordCountOffset = 24;

struct Region {
    uint32_t reference = 0;
    void* elements = nullptr;
    uint64_t count = 0;
};

// Reads the region's elements and count from the record the Host holds for the reference.
bool lookUp(Region& region) {
    const auto* record = static_cast<const unsigned char*>(HostSim_ReferenceRecord(region.reference));
    if (!record) return false;
    uintptr_t address = 0;
    std::memcpy(&address, record + kRecordElementsOffset, sizeof address);
    std::memcpy(&region.count, record + kRecordCountOffset, sizeof region.count);
    region.elements = reinterpret_cast<void*>(address);
    return true;
}

class RegionStream {
public:
    RegionStream(const StreamSetup& setup, FifoPlan& fifo, StatusLog& log)
        : setup_(setup), fifo_(fifo), log_(log), random_(0x5eed) {}

    StreamResult run() {
        result_.ran = true;
        const uint64_t total = std::max<uint64_t>(1, setup_.amount / fifo_.type->bytes);
        Progress progress(std::string("regions ") + (fifo_.toHost ? "to host" : "to target"), total * fifo_.type->bytes,
                          setup_.terminal);
        uint64_t done = 0;
        while (done < total && !result_.failed) {
            while (held_.size() < fifo_.window && done < total) {
                const uint64_t count = acquire(std::min(setup_.block, total - done));
                if (count == 0) break;
                done += count;
                progress.update(done * fifo_.type->bytes);
            }
            retireHeld();
        }
        result_.bytes = done * fifo_.type->bytes;
        result_.seconds = progress.finish(result_.bytes);
        return result_;
    }

private:
    // Acquires one region, checks or fills it and holds it; answers its element count, 0 when
    // the stream has to stop.
    uint64_t acquire(uint64_t requested) {
        Region region;
        size_t acquired = 0, remaining = 0;
        const auto call = fifo_.toHost ? Quorvane_AcquireFifoReadRegionScalar : Quorvane_AcquireFifoWriteRegionScalar;
        const int32_t status =
            log_.note(fifo_.toHost ? "Quorvane_AcquireFifoReadRegionScalar" : "Quorvane_AcquireFifoWriteRegionScalar",
                      call(setup_.session, fifo_.fifo, &region.reference, requested, fifo_.type->code, 0,
                           setup_.timeout, &acquired, &remaining));
        if (status < 0) {
            result_.failed = true;
            return 0;
        }
        ++result_.regionsAcquired;
        if (!lookUp(region) || region.count != acquired || (acquired != 0 && !region.elements)) {
            ++result_.mismatches;  // the library described a region other than the one it lent
            held_.push_back(region.reference);
            result_.failed = true;
            return 0;
        }
        held_.push_back(region.reference);
        result_.elementsInRegions += region.count;
        if (fifo_.toHost) {
            result_.mismatches +=
                countMismatches(fifo_.type->code, region.elements, region.count, fifo_.pattern, fifo_.nextIndex);
        } else {
            fillPattern(fifo_.type->code, region.elements, region.count, fifo_.pattern, fifo_.nextIndex);
        }
        fifo_.nextIndex += region.count;
        if (region.count == 0) {
            // A success that lends nothing would repeat forever; the target always lends some.
            std::printf("  an acquisition succeeded without lending an element; stopping\n");
            ++result_.mismatches;
            result_.failed = true;
        }
        return region.count;
    }

    // Deletes every held reference in a shuffled order, as a Host that lets go of its data in
    // whatever order it finishes with it. The seed is fixed so that runs repeat.
    void retireHeld() {
        std::shuffle(held_.begin(), held_.end(), random_);
        for (uint32_t reference : held_) {
            const int32_t answer = HostSim_DeleteReference(reference);
            if (answer == -1) {
                std::printf("  the Host no longer knew region reference 0x%x\n", reference);
                ++result_.mismatches;
                continue;
            }
            log_.note("the region's delete callback", answer);
            ++result_.regionsRetired;
        }
        held_.clear();
    }

    const StreamSetup& setup_;
    FifoPlan& fifo_;
    StatusLog& log_;
    std::minstd_rand random_;
    std::vector<uint32_t> held_;
    StreamResult result_;
};

}  // namespace

StreamResult streamRegions(const StreamSetup& setup, FifoPlan& fifo, StatusLog& log) {
    return RegionStream(setup, fifo, log).run();
}

}  // namespace quorvane::tools
