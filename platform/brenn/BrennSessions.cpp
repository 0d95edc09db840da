// Sessions of the simulated target: open, resource sessions, close, IRQ context reservation
// and the whole-target operations (reset, download, run, abort).
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "BrennDll.h"
#include "BrennSim.h"
#include "SimCall.h"
#include "SimFifo.h"

using namespace brenn::sim;

namespace {

std::string copyOrEmpty(const char* text) {
    return text ? std::string(text) : std::string();
}

}  // namespace

extern "C" {

int32_t BrennDll_Open(const char* bitfile, const char* signature, const char* resource, uint32_t attribute,
                      uint32_t* session) {
    return call(__func__, args(bitfile, signature, resource, attribute, session), outs(session), [&] {
        if (!session) return int32_t{kBrennSimInvalidArgument};
        // Read before the lock is taken so that the lock is held only for the table update.
        std::string error;
        std::shared_ptr<const TargetDescription> target = loadTarget(bitfile, error);
        if (!target) {
            // The one place the stand-in talks: whoever opened a broken description needs to
            // know which line to fix, and a status code cannot say that.
            std::fprintf(stderr, "libBrenn: %s\n", error.c_str());
            return int32_t{kBrennSimBadTargetDescription};
        }
        std::string bitfileCopy = copyOrEmpty(bitfile);
        std::string signatureCopy = copyOrEmpty(signature);
        std::string resourceCopy = copyOrEmpty(resource);
        *session = Target::instance().withState([&](TargetState& state) {
            Session& opened = state.open(0, target);
            for (const std::string& name : target->resources) {
                opened.resourceIndexes.push_back(state.resources.intern(name));
            }
            opened.bitfile = std::move(bitfileCopy);
            opened.signature = std::move(signatureCopy);
            opened.resource = std::move(resourceCopy);
            opened.attribute = attribute;
            return opened.handle;
        });
        return int32_t{0};
    });
}

int32_t BrennDll_OpenResource(uint32_t session, const char* name, uint32_t attribute, uint32_t* resourceSession) {
    return call(__func__, args(session, name, attribute, resourceSession), outs(resourceSession), [&] {
        if (!resourceSession) return int32_t{kBrennSimInvalidArgument};
        std::string nameCopy = copyOrEmpty(name);
        return Target::instance().withState([&](TargetState& state) {
            Session* parent = state.find(session);
            if (!parent) return int32_t{kBrennSimInvalidSession};
            if (!parent->target->undeclaredAllowed && !parent->target->declaresResource(nameCopy)) {
                return int32_t{kBrennSimInvalidArgument};
            }
            Session& opened = state.open(parent->handle, parent->target);
            opened.resource = std::move(nameCopy);
            opened.attribute = attribute;
            *resourceSession = opened.handle;
            return int32_t{0};
        });
    });
}

int32_t BrennDll_Close(uint32_t session, uint32_t attribute) {
    return call(__func__, args(session, attribute), outs(), [&] {
        std::vector<std::shared_ptr<SimFifo>> fifos;
        std::shared_ptr<SimIrqs> irqs;
        int32_t status = Target::instance().withState([&](TargetState& state) {
            Session* open = state.find(session);
            if (!open) {
                ++state.sessionStats.closesNotOpen;
                return int32_t{kBrennSimInvalidSession};
            }
            ++state.sessionStats.closed;
            for (auto& [number, fifo] : open->fifos) fifos.push_back(fifo);
            irqs = open->irqs;
            const uint32_t handle = open->handle;
            state.sessions.erase(handle);
            return int32_t{0};
        });
        // Woken outside the table mutex; callers still blocked on them answer that the
        // session is gone.
        for (auto& fifo : fifos) fifo->close();
        if (irqs) irqs->close();
        return status;
    });
}

int32_t BrennDll_ReserveIrqContext(uint32_t session, void** context) {
    return call(__func__, args(session, context), outs(context), [&] {
        return Target::instance().withState([&](TargetState& state) {
            Session* open = state.find(session);
            if (!open) return int32_t{kBrennSimInvalidSession};
            ++open->irqContextsReserved;
            // An opaque token, never dereferenced: the target recognises its contexts by value.
            uintptr_t token = state.nextIrqContext++;
            if (context) *context = reinterpret_cast<void*>(token);
            return int32_t{0};
        });
    });
}

int32_t BrennDll_Reset(uint32_t session) {
    return call(__func__, args(session), outs(), [&] {
        return Target::instance().withSession(session, [](Session& open) {
            applyResetValues(open);
            return int32_t{0};
        });
    });
}

int32_t BrennDll_Download(uint32_t session) {
    return call(__func__, args(session), outs(), [&] {
        return Target::instance().withSession(session, [](Session& open) {
            applyResetValues(open);
            return int32_t{0};
        });
    });
}

int32_t BrennDll_Run(uint32_t session, uint32_t attribute) {
    return call(__func__, args(session, attribute), outs(),
                [&] { return Target::instance().withSession(session, [](Session&) { return int32_t{0}; }); });
}

int32_t BrennDll_Abort(uint32_t session) {
    return call(__func__, args(session), outs(),
                [&] { return Target::instance().withSession(session, [](Session&) { return int32_t{0}; }); });
}

void BrennSim_ReuseHandles(int enabled) {
    Target::instance().withState([&](TargetState& state) { state.reuseHandles = enabled != 0; });
}

void BrennSim_GetSessionStats(BrennSimSessionStats* stats) {
    if (!stats) return;
    *stats = Target::instance().withState([](TargetState& state) { return state.sessionStats; });
}

uint32_t BrennSim_OpenSessionCount(void) {
    return Target::instance().withState(
        [](TargetState& state) { return static_cast<uint32_t>(state.sessions.size()); });
}

int BrennSim_IsSessionOpen(uint32_t session) {
    return Target::instance().withState([&](TargetState& state) { return state.find(session) ? 1 : 0; });
}

uint32_t BrennSim_ParentSession(uint32_t session) {
    return Target::instance().withState([&](TargetState& state) {
        Session* open = state.find(session);
        return open ? open->parent : 0u;
    });
}

uint32_t BrennSim_IrqContextsReserved(uint32_t session) {
    return Target::instance().withState([&](TargetState& state) {
        Session* open = state.find(session);
        return open ? open->irqContextsReserved : 0u;
    });
}

size_t BrennSim_DescribeFifos(uint32_t session, BrennSimFifoInfo* infos, size_t capacity) {
    if (!infos) capacity = 0;
    return Target::instance().withState([&](TargetState& state) {
        Session* open = state.find(session);
        if (!open) return size_t{0};
        const std::vector<FifoSpec>& fifos = open->target->fifos;
        for (size_t i = 0; i < std::min(capacity, fifos.size()); ++i) {
            const FifoSpec& spec = fifos[i];
            BrennSimFifoInfo info{};
            info.fifo = spec.number;
            info.direction = spec.direction == FifoDirection::TargetToHost ? kBrennSimToHost : kBrennSimToTarget;
            info.elementType = spec.elementType;
            info.elementBytes = static_cast<uint32_t>(spec.elementBytes);
            info.depth = spec.depth;
            info.rate = spec.rate;
            info.patternStart = spec.patternStart;
            info.patternStep = spec.patternStep;
            std::strncpy(info.name, spec.name.c_str(), sizeof info.name - 1);
            infos[i] = info;
        }
        return fifos.size();
    });
}

int BrennSim_TargetName(uint32_t session, char* name, size_t capacity) {
    return Target::instance().withState([&](TargetState& state) {
        Session* open = state.find(session);
        if (!open || !name || capacity == 0) return 0;
        const std::string& title = open->target->title;
        const size_t length = std::min(capacity - 1, title.size());
        std::memcpy(name, title.data(), length);
        name[length] = '\0';
        return 1;
    });
}

int BrennSim_AllowsUndeclared(uint32_t session) {
    return Target::instance().withState([&](TargetState& state) {
        Session* open = state.find(session);
        return open && open->target->undeclaredAllowed ? 1 : 0;
    });
}

}  // extern "C"
