// A seam for tests: while a VirtualBlocks object lives on a thread, the
// ordinary allocations of the library on that thread come out as virtual
// blocks, so that the paths that commit pages of a fresh virtual block can
// be reached and made to fail.
#pragma once

#include <orvanest/ORVANEST.h>

namespace orvatest {

class VirtualBlocks {
public:
    VirtualBlocks();
    ~VirtualBlocks();
    VirtualBlocks(const VirtualBlocks&) = delete;
    VirtualBlocks& operator=(const VirtualBlocks&) = delete;

    // The latest block handed out on this thread while the seam was on.
    static void* Latest();
};

}  // namespace orvatest
