// Hands out handles for shared objects and finds the objects again. A value is never reused, so a handle that was
// closed, or never opened, finds nothing; a found object stays alive for as long as its finder holds it. Any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace jorvet::compat {

template <class Object>
class handle_table {
  public:
    // Handles are `residue` modulo 4, so that those of one table mean nothing to a table with another residue.
    explicit handle_table(std::uintptr_t residue) : last_(residue) {}

    // Adds `object` and returns its handle, never null. Throws std::bad_alloc, the table unchanged.
    void* add(std::shared_ptr<Object> object) {
        const std::lock_guard<std::mutex> lock(mutex_);
        do
            last_ += 4;
        while (last_ == 0 || objects_.count(last_) != 0);
        objects_.emplace(last_, std::move(object));
        return reinterpret_cast<void*>(last_);
    }

    // The object of an open handle, or null.
    std::shared_ptr<Object> find(void* handle) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = objects_.find(reinterpret_cast<std::uintptr_t>(handle));
        return found == objects_.end() ? nullptr : found->second;
    }

    // The handle of an object for which `matches(object)` is true, or null.
    template <class Predicate>
    void* handle_where(Predicate matches) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [handle, object] : objects_)
            if (matches(*object))
                return reinterpret_cast<void*>(handle);
        return nullptr;
    }

    // Closes a handle and returns its object, or null when it was not open.
    std::shared_ptr<Object> remove(void* handle) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = objects_.find(reinterpret_cast<std::uintptr_t>(handle));
        if (found == objects_.end())
            return nullptr;
        std::shared_ptr<Object> object = std::move(found->second);
        objects_.erase(found);
        return object;
    }

    std::size_t size() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return objects_.size();
    }

  private:
    mutable std::mutex mutex_;
    std::uintptr_t last_;
    std::unordered_map<std::uintptr_t, std::shared_ptr<Object>> objects_;
};

} // namespace jorvet::compat
