// The procedures the library hands the Host, traced.
//
// The library registers its session cleanup and its acquisition abort procedures with the
// Host's RTSetCleanupProc, and writes its region deletion callback into the record that the
// Host's EDVR_CreateReference made. The forwarding library defines both Host functions too;
// found ahead of the Host's runtime in the lookup order, it receives the library's calls and
// passes them on to the next definition (dlsym RTLD_NEXT), handing the Host a wrapper in place of
// each procedure of the library's. A wrapper traces the call of the procedure it stands for.
//
// Wrappers are fixed functions, one per slot: a slot holds one original procedure for good, so
// the same procedure always gets the same wrapper, and the Host's removal of a registration by
// its (procedure, argument) pair finds the pair it registered. Eight slots per kind are far more
// than the library has procedures; a ninth would be passed on unwrapped, untraced. Procedures
// that are not the library's (the Host's own registrations) are passed on unchanged.
#pragma once

namespace quorvane::trace {

// Marks a region acquisition on this thread, so that EDVR_CreateReference keeps the record it
// made; the export wraps that record's deletion callback once the real call has returned.
class AcquisitionScope {
public:
    AcquisitionScope() noexcept;
    ~AcquisitionScope();
    AcquisitionScope(const AcquisitionScope&) = delete;
    AcquisitionScope& operator=(const AcquisitionScope&) = delete;

    // The record made during the acquisition, or null.
    void* record() const noexcept;

private:
    bool outerAcquiring_;
    void* outerRecord_;
};

// Replaces the deletion callback in `record` by its traced wrapper.
void wrapRegionDeletion(void* record) noexcept;

}  // namespace quorvane::trace
