#include "soakHost.h"

#include <algorithm>

#include "HostSim.h"

namespace quorvane::soak {

namespace {

template <class T>
size_t pick(Random& random, const std::vector<T>& items) {
    return static_cast<size_t>(random() % items.size());
}

}  // namespace

SoakHost::Call::Call(SoakHost& host) : host_(host) {
    std::unique_lock lock(host_.gateMutex_);
    host_.gateChanged_.wait(lock, [this] { return !host_.stopping_; });
    ++host_.callsInProgress_;
}

SoakHost::Call::~Call() {
    std::lock_guard lock(host_.gateMutex_);
    if (--host_.callsInProgress_ == 0) host_.gateChanged_.notify_all();
}

size_t SoakHost::stopProgram() {
    {
        std::unique_lock lock(gateMutex_);
        gateChanged_.wait(lock, [this] { return !stopping_; });
        stopping_ = true;
        gateChanged_.wait(lock, [this] { return callsInProgress_ == 0; });
    }
    ++stops_;
    const size_t ran = HostSim_RunProgramStop();
    std::lock_guard lock(gateMutex_);
    stopping_ = false;
    gateChanged_.notify_all();
    return ran;
}

uint64_t SoakHost::stops() const {
    return stops_.load();
}

// Callers hold a Call, so no program stop runs meanwhile and the count of stops stays as read.
bool SoakHost::closeable(const HostSession& session) const {
    if (session.closing) return false;
    if (session.parent && !closeable(*session.parent)) return false;
    return session.stopsBefore == stops_.load();
}

void SoakHost::markClosing(HostSession& session) {
    session.closing = true;
    for (const SessionPtr& other : sessions_) {
        if (other->parent.get() == &session) other->closing = true;
    }
}

void SoakHost::addSession(uint32_t handle, SessionPtr parent) {
    auto session = std::make_shared<HostSession>();
    session->handle = handle;
    session->stopsBefore = stops();
    std::lock_guard lock(mutex_);
    // A resource session opened while its parent's close was under way belongs to that close.
    if (parent && !closeable(*parent)) return;
    session->parent = std::move(parent);
    sessions_.push_back(std::move(session));
}

SessionPtr SoakHost::anySession(Random& random) {
    std::lock_guard lock(mutex_);
    return sessions_.empty() ? nullptr : sessions_[pick(random, sessions_)];
}

SessionPtr SoakHost::closeableParent(Random& random) {
    std::lock_guard lock(mutex_);
    if (sessions_.empty()) return nullptr;
    const SessionPtr& candidate = sessions_[pick(random, sessions_)];
    return !candidate->parent && closeable(*candidate) ? candidate : nullptr;
}

SessionPtr SoakHost::closeCandidate(Random& random) {
    std::lock_guard lock(mutex_);
    if (sessions_.empty()) return nullptr;
    const size_t start = pick(random, sessions_);
    for (size_t i = 0; i < sessions_.size(); ++i) {
        const SessionPtr& candidate = sessions_[(start + i) % sessions_.size()];
        if (closeable(*candidate)) return candidate;
    }
    return nullptr;
}

bool SoakHost::beginClose(const SessionPtr& session) {
    std::lock_guard lock(mutex_);
    if (!closeable(*session)) return false;
    markClosing(*session);
    return true;
}

void SoakHost::forget(const SessionPtr& session) {
    std::lock_guard lock(mutex_);
    std::erase_if(sessions_, [&](const SessionPtr& other) {
        const bool closedNow = session && (other == session || other->parent == session);
        return closedNow || (!other->closing && !closeable(*other));
    });
}

size_t SoakHost::sessionCount() {
    std::lock_guard lock(mutex_);
    return sessions_.size();
}

void SoakHost::lend(HostReference reference) {
    std::lock_guard lock(mutex_);
    references_.push_back(std::move(reference));
}

std::optional<HostReference> SoakHost::takeAny(Random& random) {
    std::lock_guard lock(mutex_);
    if (references_.empty()) return std::nullopt;
    const size_t index = pick(random, references_);
    HostReference taken = std::move(references_[index]);
    references_[index] = std::move(references_.back());
    references_.pop_back();
    return taken;
}

std::optional<HostReference> SoakHost::takeOfCloseable(Random& random) {
    std::lock_guard lock(mutex_);
    if (references_.empty()) return std::nullopt;
    const size_t start = pick(random, references_);
    for (size_t i = 0; i < references_.size(); ++i) {
        const size_t index = (start + i) % references_.size();
        if (!closeable(*references_[index].session)) continue;
        HostReference taken = std::move(references_[index]);
        references_[index] = std::move(references_.back());
        references_.pop_back();
        return taken;
    }
    return std::nullopt;
}

size_t SoakHost::referenceCount() {
    std::lock_guard lock(mutex_);
    return references_.size();
}

}  // namespace quorvane::soak
