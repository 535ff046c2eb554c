// Opaque handles for objects. A number is never used again, so a handle that was closed is known as
// such for ever, and never reaches another object. A pointer would not do: the module uses closed
// handles on purpose, and the memory could be another object's by then.
#ifndef AGENT_HOST_HANDLE_TABLE_H
#define AGENT_HOST_HANDLE_TABLE_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace host {

template <typename Object>
class HandleTable {
  public:
    // `first` keeps the handles of different tables, and fixed handles, apart.
    explicit HandleTable(uintptr_t first) : next_(first) {}

    // Gives an object a handle, never null. From any thread, as all of them.
    void *Add(std::shared_ptr<Object> object)
    {
        const std::lock_guard lock(mutex_);
        const uintptr_t number = next_;
        next_ += 4; // handles look like aligned addresses
        objects_.emplace(number, std::move(object));
        return reinterpret_cast<void *>(number);
    }

    // The object, or null for a handle that is not open. Whoever has got it keeps it alive, even
    // when another thread closes the handle meanwhile.
    std::shared_ptr<Object> Get(const void *handle)
    {
        const std::lock_guard lock(mutex_);
        const auto found = objects_.find(reinterpret_cast<uintptr_t>(handle));
        return found != objects_.end() ? found->second : nullptr;
    }

    // Forgets the handle. False: it was not open.
    bool Close(const void *handle)
    {
        const std::lock_guard lock(mutex_);
        return objects_.erase(reinterpret_cast<uintptr_t>(handle)) > 0;
    }

  private:
    // Guards what follows.
    std::mutex mutex_;
    std::unordered_map<uintptr_t, std::shared_ptr<Object>> objects_;
    // The number of the next handle.
    uintptr_t next_;
};

} // namespace host

#endif // AGENT_HOST_HANDLE_TABLE_H
