// Sessions of the simulated target: open, resource sessions, close, IRQ context reservation
// and the whole-target operations (reset, download, run, abort).
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
        // Copied before the lock is taken so that the lock is held only for the table update.
        std::string bitfileCopy = copyOrEmpty(bitfile);
        std::string signatureCopy = copyOrEmpty(signature);
        std::string resourceCopy = copyOrEmpty(resource);
        *session = Target::instance().withState([&](TargetState& state) {
            Session& opened = state.open(0);
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
            Session& opened = state.open(parent->handle);
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
            if (!open) return int32_t{kBrennSimInvalidSession};
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
    return call(__func__, args(session), outs(),
                [&] { return Target::instance().withSession(session, [](Session&) { return int32_t{0}; }); });
}

int32_t BrennDll_Download(uint32_t session) {
    return call(__func__, args(session), outs(),
                [&] { return Target::instance().withSession(session, [](Session&) { return int32_t{0}; }); });
}

int32_t BrennDll_Run(uint32_t session, uint32_t attribute) {
    return call(__func__, args(session, attribute), outs(),
                [&] { return Target::instance().withSession(session, [](Session&) { return int32_t{0}; }); });
}

int32_t BrennDll_Abort(uint32_t session) {
    return call(__func__, args(session), outs(),
                [&] { return Target::instance().withSession(session, [](Session&) { return int32_t{0}; }); });
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

}  // extern "C"
