// A handle of platform/sync.h that is closed at the end of its life. A mutex that is still held
// then is not released by it: the kernel's lock goes with the last handle of its name in the
// process.
#ifndef AGENT_HOST_OWNED_HANDLE_H
#define AGENT_HOST_OWNED_HANDLE_H

#include "platform/sync.h"

namespace host {

class OwnedHandle {
  public:
    // Null is no handle: what could not be made needs no end.
    explicit OwnedHandle(HANDLE handle) : handle_(handle) {}
    ~OwnedHandle()
    {
        if (handle_ != nullptr)
            CloseHandle(handle_);
    }
    OwnedHandle(const OwnedHandle &) = delete;
    OwnedHandle &operator=(const OwnedHandle &) = delete;
    [[nodiscard]] HANDLE get() const { return handle_; }

  private:
    HANDLE handle_;
};

} // namespace host

#endif // AGENT_HOST_OWNED_HANDLE_H
