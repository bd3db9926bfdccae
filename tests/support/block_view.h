// The block that a container hands out under its lock, with its size as the
// global heap reports it (the size asked for), which is how a test sees a
// container's capacity from outside. The container must be open.
#pragma once

#include <orvanest/ORVANEST.h>

namespace orvatest {

struct BlockView {
    unsigned char* block;
    DWORD capacity;
};

inline BlockView ViewOf(void* handle, void* (*lock)(void*), int (*unlock)(void*)) {
    auto* block = static_cast<unsigned char*>(lock(handle));
    auto capacity = static_cast<DWORD>(GlobalSize(block));
    unlock(handle);
    return {block, capacity};
}

}  // namespace orvatest
