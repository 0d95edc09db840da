// Resources of the simulated target: a process-wide table of resource names with stable
// indexes, the list of resources added to each session, and peer-to-peer FIFO endpoints.
#include <algorithm>

#include "BrennDll.h"
#include "BrennSim.h"
#include "SimCall.h"

using namespace brenn::sim;

extern "C" {

// A call that asks for the count without a buffer, or whose buffer is too small, is a size
// query: the count is written and the answer is kBrennSizeQueryAnswer, which callers take as
// "go on and fetch". Fetching an empty list needs no buffer and answers 0.
int32_t BrennDll_GetSessionIndexes(uint32_t session, uint32_t* indexes, size_t capacity, size_t* count) {
    return call(__func__, args(session, indexes, capacity, count), outs(count), [&] {
        return Target::instance().withSession(session, [&](Session& open) {
            size_t available = open.resourceIndexes.size();
            if (count) *count = available;
            bool sizeQuery = !indexes && count;
            if (sizeQuery || capacity < available) return int32_t{kBrennSizeQueryAnswer};
            if (!indexes && available != 0) return int32_t{kBrennSimInvalidArgument};
            std::copy(open.resourceIndexes.begin(), open.resourceIndexes.end(), indexes);
            return int32_t{0};
        });
    });
}

int32_t BrennDll_GetResourceName(uint32_t index, const char** name) {
    return call(__func__, args(index, name), outs(), [&] {
        if (!name) return int32_t{kBrennSimInvalidArgument};
        return Target::instance().withState([&](TargetState& state) {
            const std::string* found = state.resources.find(index);
            if (!found) return int32_t{kBrennSimInvalidArgument};
            *name = found->c_str();
            return int32_t{0};
        });
    });
}

int32_t BrennDll_AddResources(uint32_t session, const char* const* names, const void* arg3, const void* arg4,
                              size_t count) {
    return call(__func__, args(session, names, arg3, arg4, count), outs(), [&] {
        return Target::instance().withState([&](TargetState& state) {
            Session* open = state.find(session);
            if (!open) return int32_t{kBrennSimInvalidSession};
            if (!names && count != 0) return int32_t{kBrennSimInvalidArgument};
            // All or nothing: a bad entry anywhere leaves the session's list as it was.
            for (size_t i = 0; i < count; ++i) {
                if (!names[i]) return int32_t{kBrennSimInvalidArgument};
            }
            auto& list = open->resourceIndexes;
            for (size_t i = 0; i < count; ++i) {
                uint32_t index = state.resources.intern(names[i]);
                if (std::find(list.begin(), list.end(), index) == list.end()) list.push_back(index);
            }
            return int32_t{0};
        });
    });
}

int32_t BrennDll_GetResourceIndex(const char* name, uint32_t* index) {
    return call(__func__, args(name, index), outs(index), [&] {
        if (!name || !index) return int32_t{kBrennSimInvalidArgument};
        return Target::instance().withState([&](TargetState& state) {
            uint32_t found = state.resources.intern(name);
            ++state.resources.references[found - 1];
            *index = found;
            return int32_t{0};
        });
    });
}

int32_t BrennDll_ReleaseResourceIndex(uint32_t index) {
    return call(__func__, args(index), outs(), [&] {
        return Target::instance().withState([&](TargetState& state) {
            // Names stay in the table (callers may still hold their pointers); only the count
            // of indexes handed out by GetResourceIndex is kept honest.
            if (!state.resources.find(index) || state.resources.references[index - 1] == 0) {
                return int32_t{kBrennSimInvalidArgument};
            }
            --state.resources.references[index - 1];
            return int32_t{0};
        });
    });
}

int32_t BrennDll_GetPeerToPeerFifoEndpoint(uint32_t session, uint32_t fifo, uint32_t* endpoint) {
    return call(__func__, args(session, fifo, endpoint), outs(endpoint), [&] {
        return Target::instance().withSession(session, [&](Session&) {
            if (!endpoint) return int32_t{kBrennSimInvalidArgument};
            *endpoint = 0;
            return int32_t{0};
        });
    });
}

}  // extern "C"
