// Standard containers whose memory comes from the library's allocator, with a sticky
// allocation-failure flag instead of exceptions.
//
// The allocator throws std::bad_alloc when `allocate` gives nothing. That exception never
// leaves this header: each mutating operation below catches it at the container call and
// raises the container's `allocationFailed` flag, which stays raised. The owner reads the flag
// after the operation and reports -52000 at kStlStatusFile / kStlStatusLine.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <new>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "protons/cppNewDelete/memoryAllocation.h"
#include "protons/status/stlStatus.h"

namespace quorvane {

template <class T>
class tStlAllocator {
public:
    using value_type = T;
    tStlAllocator() noexcept = default;
    template <class U>
    tStlAllocator(const tStlAllocator<U>&) noexcept {}

    T* allocate(std::size_t n) {
        void* block = n > static_cast<std::size_t>(-1) / sizeof(T) ? nullptr : quorvane::allocate(n * sizeof(T));
        if (block == nullptr) throw std::bad_alloc();
        return static_cast<T*>(block);
    }
    void deallocate(T* p, std::size_t) noexcept { quorvane::deallocate(p); }

    template <class U>
    bool operator==(const tStlAllocator<U>&) const noexcept {
        return true;
    }
};

// Shared by the wrappers: runs `operation`, turning an allocation failure into the flag.
class tAllocationFailureFlag {
public:
    bool allocationFailed() const noexcept { return failed_; }
    // Reports the flag into `status` (-52000 at the container location) and returns whether it
    // is raised.
    bool reportInto(tStatus& status) const noexcept {
        if (failed_) status.setCode(kStatusMemoryFull, kStlStatusFile, kStlStatusLine);
        return failed_;
    }

protected:
    template <class F>
    bool guarded(F&& operation) noexcept {
        try {
            operation();
            return true;
        } catch (const std::bad_alloc&) {
            failed_ = true;
            return false;
        } catch (const std::length_error&) {
            // A size beyond the container's maximum is a request that no memory can satisfy.
            failed_ = true;
            return false;
        }
    }

private:
    bool failed_ = false;
};

// Ordered map; values are built in place and never move while they are in the map.
template <class K, class V>
class tMap : public tAllocationFailureFlag {
public:
    using Storage = std::map<K, V, std::less<K>, tStlAllocator<std::pair<const K, V>>>;

    // Finds the value under `key`, or builds one from `args`. Returns the value and whether it
    // was inserted; {nullptr, false} when memory ran out (the flag is then raised).
    template <class... Args>
    std::pair<V*, bool> tryEmplace(const K& key, Args&&... args) noexcept {
        std::pair<V*, bool> result{nullptr, false};
        guarded([&] {
            auto [it, inserted] = map_.try_emplace(key, std::forward<Args>(args)...);
            result = {&it->second, inserted};
        });
        return result;
    }
    V* find(const K& key) noexcept {
        auto it = map_.find(key);
        return it == map_.end() ? nullptr : &it->second;
    }
    bool erase(const K& key) noexcept { return map_.erase(key) != 0; }
    std::size_t size() const noexcept { return map_.size(); }
    bool empty() const noexcept { return map_.empty(); }
    Storage& items() noexcept { return map_; }

private:
    Storage map_;
};

// Double-ended queue: appending at the back and removing at the front leave every other
// element where it is.
//
// The standard deque allocates already when it is constructed, which would throw out of a
// noexcept owner; so the queue is built on the first append, inside the guard.
template <class T>
class tDeque : public tAllocationFailureFlag {
public:
    // Appends; returns the new element, or nullptr when memory ran out (flag raised).
    template <class... Args>
    T* emplaceBack(Args&&... args) noexcept {
        T* element = nullptr;
        guarded([&] {
            if (!queue_) queue_.emplace();
            element = &queue_->emplace_back(std::forward<Args>(args)...);
        });
        return element;
    }
    void popFront() noexcept { queue_->pop_front(); }
    void popBack() noexcept { queue_->pop_back(); }
    T& front() noexcept { return queue_->front(); }
    T& back() noexcept { return queue_->back(); }
    bool empty() const noexcept { return !queue_ || queue_->empty(); }
    std::size_t size() const noexcept { return queue_ ? queue_->size() : 0; }

private:
    std::optional<std::deque<T, tStlAllocator<T>>> queue_;
};

// Doubly linked list, in insertion order.
template <class T>
class tList : public tAllocationFailureFlag {
public:
    using Storage = std::list<T, tStlAllocator<T>>;
    bool pushBack(const T& value) noexcept {
        return guarded([&] { list_.push_back(value); });
    }
    // Removes the first element equal to `value`; returns whether one was found.
    bool removeFirst(const T& value) noexcept {
        for (auto it = list_.begin(); it != list_.end(); ++it) {
            if (*it == value) {
                list_.erase(it);
                return true;
            }
        }
        return false;
    }
    bool empty() const noexcept { return list_.empty(); }
    std::size_t size() const noexcept { return list_.size(); }
    Storage& items() noexcept { return list_; }

private:
    Storage list_;
};

// Growable array.
template <class T>
class tVector : public tAllocationFailureFlag {
public:
    using Storage = std::vector<T, tStlAllocator<T>>;
    bool resize(std::size_t count) noexcept {
        return guarded([&] { vector_.resize(count); });
    }
    bool pushBack(T value) noexcept {
        return guarded([&] { vector_.push_back(std::move(value)); });
    }
    T& operator[](std::size_t i) noexcept { return vector_[i]; }
    T* data() noexcept { return vector_.data(); }
    std::size_t size() const noexcept { return vector_.size(); }
    Storage& items() noexcept { return vector_; }

private:
    Storage vector_;
};

}  // namespace quorvane
