#include "SimTarget.h"

#include <cstring>

namespace brenn::sim {

uint32_t ResourceTable::intern(const std::string& name) {
    auto found = indexByName.find(name);
    if (found != indexByName.end()) return found->second;
    names.push_back(std::make_unique<std::string>(name));
    references.push_back(0);
    auto index = static_cast<uint32_t>(names.size());
    indexByName.emplace(name, index);
    return index;
}

const std::string* ResourceTable::find(uint32_t index) const {
    if (index == 0 || index > names.size()) return nullptr;
    return names[index - 1].get();
}

Session* TargetState::find(uint32_t handle) {
    auto found = sessions.find(sessionKey(handle));
    return found == sessions.end() ? nullptr : &found->second;
}

namespace {
// `candidate`, or the start of the following 64 Ki block when it has a flag bit set.
uint32_t skipFlagBits(uint32_t candidate) {
    return (candidate & kHandleFlagMask) ? (candidate | 0xFFFFu) + 1 : candidate;
}
}  // namespace

uint32_t TargetState::lowestFreeHandle() const {
    uint32_t candidate = kFirstHandle;
    for (const auto& [handle, session] : sessions) {
        if (handle > candidate) break;
        if (handle == candidate) candidate = skipFlagBits(candidate + 1);
    }
    return candidate;
}

uint32_t TargetState::issueHandle() {
    if (reuseHandles) return lowestFreeHandle();
    for (;;) {
        const uint32_t candidate = skipFlagBits(nextHandle);
        nextHandle = candidate + 1;
        if (candidate == 0 || sessions.count(candidate)) continue;
        return candidate;
    }
}

Session& TargetState::open(uint32_t parent, std::shared_ptr<const TargetDescription> target) {
    uint32_t handle = issueHandle();
    Session& session = sessions[handle];
    ++sessionStats.opened;
    session.handle = handle;
    session.parent = parent;
    session.target = std::move(target);
    session.faultCalls.assign(session.target->faults.size(), 0);
    session.injections = std::make_shared<InjectionCounts>(session.target->injected.size());
    session.irqs = std::make_shared<SimIrqs>(IrqDrops(session.target->irqDrops, session.injections));
    applyResetValues(session);
    return session;
}

void applyResetValues(Session& session) {
    for (const RegisterSpec& spec : session.target->registers) {
        uint8_t bytes[8];
        for (size_t i = 0; i < sizeof bytes; ++i) bytes[i] = static_cast<uint8_t>(spec.resetValue >> (8 * i));
        session.registers.write(spec.address, bytes, spec.bytes);
    }
}

Target& Target::instance() noexcept {
    // Never destroyed: a call made while the process exits still finds a target.
    static Target* target = new Target;
    return *target;
}

void Target::holdNext(const char* function) {
    std::lock_guard lock(holdMutex_);
    ++holds_[function].pending;
    ++holdsPending_;
}

void Target::release(const char* function) {
    std::lock_guard lock(holdMutex_);
    auto found = holds_.find(function);
    if (found == holds_.end()) return;
    ++found->second.releases;
    holdReleased_.notify_all();
}

size_t Target::heldCalls(const char* function) {
    std::lock_guard lock(holdMutex_);
    auto found = holds_.find(function);
    return found == holds_.end() ? 0 : found->second.waiting;
}

void Target::pauseIfHeld(const char* function) {
    if (holdsPending_.load() == 0) return;
    std::unique_lock lock(holdMutex_);
    auto found = holds_.find(function);
    if (found == holds_.end() || found->second.pending == 0) return;
    Hold& hold = found->second;
    --hold.pending;
    --holdsPending_;
    ++hold.waiting;
    const uint64_t releasesBefore = hold.releases;
    holdReleased_.wait(lock, [&] { return hold.releases != releasesBefore; });
    --hold.waiting;
}

void Target::script(const char* function, const BrennSimAnswer& answer) {
    std::lock_guard lock(mutex_);
    scripts_[function].push_back(answer);
}

bool Target::takeAnswer(const char* function, BrennSimAnswer& answer) {
    std::lock_guard lock(mutex_);
    auto queue = scripts_.find(function);
    if (queue == scripts_.end() || queue->second.empty()) {
        const auto planned = planned_.next();
        if (!planned) return false;
        answer = BrennSimAnswer{};
        answer.status = *planned;
        answer.mode = kBrennSimReplace;
        return true;
    }
    answer = queue->second.front();
    queue->second.pop_front();
    return true;
}

size_t Target::scriptsPending(const char* function) {
    std::lock_guard lock(mutex_);
    if (function) {
        auto queue = scripts_.find(function);
        return queue == scripts_.end() ? 0 : queue->second.size();
    }
    size_t pending = 0;
    for (const auto& [name, queue] : scripts_) pending += queue.size();
    return pending;
}

void Target::record(const char* function, const CallArgs& args, int32_t result) noexcept {
    std::lock_guard lock(mutex_);
    if (!logEnabled_) return;
    ++totalCalls_;
    try {
        ++callsByFunction_[function];
        if (log_.size() < kBrennSimLogCapacity) {
            BrennSimCall entry{};
            std::strncpy(entry.function, function, sizeof entry.function - 1);
            entry.argCount = args.count;
            std::memcpy(entry.args, args.values, sizeof entry.args);
            entry.result = result;
            log_.push_back(entry);
        }
    } catch (...) {
        // Out of memory while logging: the call itself already happened, so it stays counted
        // in the total and its entry is lost.
    }
}

void Target::enableLog(bool enabled) {
    std::lock_guard lock(mutex_);
    logEnabled_ = enabled;
}

size_t Target::callCount() {
    std::lock_guard lock(mutex_);
    return totalCalls_;
}

bool Target::getCall(size_t index, BrennSimCall& call) {
    std::lock_guard lock(mutex_);
    if (index >= log_.size()) return false;
    call = log_[index];
    return true;
}

size_t Target::countCalls(const char* function) {
    std::lock_guard lock(mutex_);
    auto found = callsByFunction_.find(function);
    return found == callsByFunction_.end() ? 0 : found->second;
}

void Target::reset() {
    {
        // Calls still held are let go: a reset must not leave a thread waiting for good.
        std::lock_guard lock(holdMutex_);
        for (auto& [function, hold] : holds_) {
            ++hold.releases;
            hold.pending = 0;
        }
        holdsPending_ = 0;
        holdReleased_.notify_all();
    }
    std::lock_guard lock(mutex_);
    state_ = TargetState{};
    planned_.set(0, 0, false);
    resetTotalFifoStats();
    scripts_.clear();
    log_.clear();
    log_.shrink_to_fit();
    totalCalls_ = 0;
    callsByFunction_.clear();
    logEnabled_ = true;
}

}  // namespace brenn::sim
