// Resource names and indexes, and the peer-to-peer endpoint.
#include "forwarding.h"

using namespace quorvane::trace;

extern "C" int32_t Quorvane_GetResources(uint32_t session, void** stringArray) noexcept {
    return traced(
        __func__, [&] { return realLibrary().GetResources(session, stringArray); },
        [&](LineWriter& line, int32_t status) {
            line.argument("session").session(session);
            if (stringArray == nullptr) line.argument("names").put("null");
            if (stringArray != nullptr && wroteResults(status)) hostArray(line, "names", stringArray, true);
        });
}

extern "C" int32_t Quorvane_AddResources(uint32_t session, void** stringArray, const void* arg3,
                                         const void* arg4) noexcept {
    return traced(
        __func__, [&] { return realLibrary().AddResources(session, stringArray, arg3, arg4); },
        [&](LineWriter& line, int32_t) {
            line.argument("session").session(session);
            hostArray(line, "names", stringArray);
            line.argument("arg3").pointer(arg3);
            line.argument("arg4").pointer(arg4);
        });
}

// Answers an index, not a status: the record has none, and 0xFFFFFFFF reads as the failure it is.
extern "C" uint32_t Quorvane_GetResourceIndex(const char* name) noexcept {
    TracedCall call(__func__, RecordKind::exportCall);
    const uint32_t index = realLibrary().GetResourceIndex(name);
    call.finishWithoutStatus([&](LineWriter& line) {
        line.argument("name").quoted(name);
        if (index == 0xFFFFFFFFu) {
            line.result("index").put("0xffffffff (failed)");
        } else {
            line.result("index").decimal(index);
        }
    });
    return index;
}

extern "C" void Quorvane_ReleaseResourceIndex(uint32_t index) noexcept {
    TracedCall call(__func__, RecordKind::exportCall);
    realLibrary().ReleaseResourceIndex(index);
    call.finishWithoutStatus([&](LineWriter& line) { line.argument("index").decimal(index); });
}

extern "C" int32_t Quorvane_GetResourceName(uint32_t index, const char** name) noexcept {
    return traced(
        __func__, [&] { return realLibrary().GetResourceName(index, name); },
        [&](LineWriter& line, int32_t status) {
            line.argument("index").decimal(index);
            if (wroteResults(status) && name != nullptr) line.result("name").quoted(*name);
        });
}

extern "C" int32_t Quorvane_GetPeerToPeerFifoEndpoint(uint32_t session, uint32_t fifo, uint32_t* endpoint) noexcept {
    return traced(
        __func__, [&] { return realLibrary().GetPeerToPeerFifoEndpoint(session, fifo, endpoint); },
        [&](LineWriter& line, int32_t status) {
            line.argument("session").session(session);
            line.argument("fifo").decimal(fifo);
            if (wroteResults(status) && endpoint != nullptr) line.result("endpoint").hex(*endpoint);
        });
}
