#include "threadBuffer.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <new>

#include "traceRecord.h"

namespace quorvane::trace {

struct ThreadBuffer {
    static constexpr size_t kBytes = 64 * 1024;

    std::mutex mutex;  // taken by its thread for every record, by others only at exit and fork
    size_t used = 0;
    pid_t thread = 0;
    ThreadBuffer* next = nullptr;  // the registry's list, under the registry's mutex
    ThreadBuffer* previous = nullptr;
    char data[kBytes];
};

namespace {

// Every live thread's buffer, so that the process's exit can write out those of threads that
// are still running. Lock order: the registry's mutex, then a buffer's.
struct Registry {
    std::mutex mutex;
    ThreadBuffer* first = nullptr;
    ThreadBuffer* abandoned = nullptr;  // in a forked child: buffers of threads that did not follow
};

Registry gRegistry;
int gRecords = -1;  // set once at load, before any thread can trace
std::atomic<bool> gExiting{false};
pthread_key_t gThreadEnd;  // its destructor writes out and frees a thread's buffer
thread_local ThreadBuffer* tBuffer = nullptr;

void writeOut(ThreadBuffer& buffer) noexcept {
    const char* data = buffer.data;
    size_t left = buffer.used;
    while (left > 0) {
        const ssize_t written = write(gRecords, data, left);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) break;  // the file cannot take more; these records are lost
        data += written;
        left -= static_cast<size_t>(written);
    }
    buffer.used = 0;
}

void removeFromRegistry(ThreadBuffer& buffer) noexcept {
    if (buffer.previous != nullptr) {
        buffer.previous->next = buffer.next;
    } else {
        gRegistry.first = buffer.next;
    }
    if (buffer.next != nullptr) buffer.next->previous = buffer.previous;
    buffer.next = buffer.previous = nullptr;
}

// At the end of a thread: out of the registry first, so that the exit's write-out no longer
// sees it, then written and freed.
void retireThreadBuffer(void* opaque) noexcept {
    auto* buffer = static_cast<ThreadBuffer*>(opaque);
    {
        std::lock_guard registry(gRegistry.mutex);
        removeFromRegistry(*buffer);
    }
    {
        std::lock_guard guard(buffer->mutex);
        writeOut(*buffer);
    }
    tBuffer = nullptr;
    delete buffer;
}

ThreadBuffer* threadBuffer() noexcept {
    if (tBuffer != nullptr || gRecords < 0) return tBuffer;
    auto* buffer = new (std::nothrow) ThreadBuffer;
    if (buffer == nullptr) return nullptr;
    buffer->thread = gettid();
    {
        std::lock_guard registry(gRegistry.mutex);
        buffer->next = gRegistry.first;
        if (buffer->next != nullptr) buffer->next->previous = buffer;
        gRegistry.first = buffer;
    }
    tBuffer = buffer;
    pthread_setspecific(gThreadEnd, buffer);
    return buffer;
}

void lockRegistryForFork() noexcept {
    gRegistry.mutex.lock();
}

void unlockRegistryAfterFork() noexcept {
    gRegistry.mutex.unlock();
}

// The child has only the forking thread: the records buffered before the fork belong to the
// parent, and the other threads' buffers are set aside, never to be written again.
void forgetParentRecords() noexcept {
    for (ThreadBuffer* buffer = gRegistry.first; buffer != nullptr;) {
        ThreadBuffer* next = buffer->next;
        if (buffer != tBuffer) {
            removeFromRegistry(*buffer);
            buffer->next = gRegistry.abandoned;
            gRegistry.abandoned = buffer;
        }
        buffer = next;
    }
    if (tBuffer != nullptr) {
        tBuffer->used = 0;
        tBuffer->thread = gettid();
    }
    gRegistry.mutex.unlock();
}

__attribute__((constructor)) void openRecords() noexcept {
    const char* path = std::getenv(kRecordsVariable);
    if (path == nullptr || *path == '\0') return;
    if (pthread_key_create(&gThreadEnd, retireThreadBuffer) != 0) return;
    if (pthread_atfork(lockRegistryForFork, unlockRegistryAfterFork, forgetParentRecords) != 0) return;
    gRecords = open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
}

// Runs after the program's own exit handlers and static destructors (this library was loaded
// before the program's code), so their calls are written too. Buffers of threads still running
// stay registered: what they trace from now on is written at once.
__attribute__((destructor)) void writeOutAtExit() noexcept {
    gExiting.store(true);
    std::lock_guard registry(gRegistry.mutex);
    for (ThreadBuffer* buffer = gRegistry.first; buffer != nullptr; buffer = buffer->next) {
        std::lock_guard guard(buffer->mutex);
        writeOut(*buffer);
    }
}

}  // namespace

RecordSlot::RecordSlot() noexcept : buffer_(threadBuffer()) {
    if (buffer_ == nullptr) return;
    buffer_->mutex.lock();
    if (ThreadBuffer::kBytes - buffer_->used < kRecordCapacity) writeOut(*buffer_);
}

RecordSlot::~RecordSlot() {
    if (buffer_ == nullptr) return;
    if (gExiting.load(std::memory_order_relaxed)) writeOut(*buffer_);
    buffer_->mutex.unlock();
}

char* RecordSlot::begin() const noexcept {
    return buffer_->data + buffer_->used;
}

pid_t RecordSlot::thread() const noexcept {
    return buffer_->thread;
}

void RecordSlot::commit(char* end) noexcept {
    buffer_->used = static_cast<size_t>(end - buffer_->data);
}

}  // namespace quorvane::trace
