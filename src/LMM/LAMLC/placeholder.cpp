// Stands where arena destruction will go: no arena can exist until arenas
// are built, so reaching this is a broken invariant.
#include <cstdio>
#include <cstdlib>

int lamlcDestroyNotYetAvailable(void*) {
    std::fputs("orvanest: an arena was found in the thread's list, but arenas are not built\n", stderr);
    std::abort();
}
