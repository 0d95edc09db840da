// Sessions: open, close, resource sessions, and the session-wide operations.
#include "forwarding.h"

using namespace quorvane::trace;

extern "C" int32_t Quorvane_Open(const char* bitfile, const char* signature, const char* resource, uint32_t attribute,
                                 uint32_t* session) noexcept {
    return traced(
        __func__, [&] { return realLibrary().Open(bitfile, signature, resource, attribute, session); },
        [&](LineWriter& line, int32_t status) {
            line.argument("bitfile").quoted(bitfile);
            line.argument("signature").quoted(signature);
            line.argument("resource").quoted(resource);
            line.argument("attribute").decimal(attribute);
            if (wroteResults(status) && session != nullptr) line.result("session").session(*session);
        });
}

extern "C" int32_t Quorvane_Close(uint32_t session, uint32_t attribute) noexcept {
    return traced(
        __func__, [&] { return realLibrary().Close(session, attribute); },
        [&](LineWriter& line, int32_t) {
            line.argument("session").session(session);
            line.argument("attribute").decimal(attribute);
        });
}

extern "C" int32_t Quorvane_OpenResource(uint32_t session, const char* name, uint32_t attribute,
                                         uint32_t* resourceSession) noexcept {
    return traced(
        __func__, [&] { return realLibrary().OpenResource(session, name, attribute, resourceSession); },
        [&](LineWriter& line, int32_t status) {
            line.argument("session").session(session);
            line.argument("name").quoted(name);
            line.argument("attribute").decimal(attribute);
            if (wroteResults(status) && resourceSession != nullptr) {
                line.result("resource session").session(*resourceSession);
            }
        });
}

namespace {

// Reset, Download, Abort: the session alone.
template <class Call>
int32_t sessionCall(const char* name, uint32_t session, Call&& call) noexcept {
    return traced(name, call, [&](LineWriter& line, int32_t) { line.argument("session").session(session); });
}

}  // namespace

extern "C" int32_t Quorvane_Reset(uint32_t session) noexcept {
    return sessionCall(__func__, session, [&] { return realLibrary().Reset(session); });
}

extern "C" int32_t Quorvane_Download(uint32_t session) noexcept {
    return sessionCall(__func__, session, [&] { return realLibrary().Download(session); });
}

extern "C" int32_t Quorvane_Abort(uint32_t session) noexcept {
    return sessionCall(__func__, session, [&] { return realLibrary().Abort(session); });
}

extern "C" int32_t Quorvane_Run(uint32_t session, uint32_t attribute) noexcept {
    return traced(
        __func__, [&] { return realLibrary().Run(session, attribute); },
        [&](LineWriter& line, int32_t) {
            line.argument("session").session(session);
            line.argument("attribute").decimal(attribute);
        });
}
