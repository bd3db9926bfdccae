// The module's header: attach and detach, and every family's declarations.
// A host includes this one file.
#pragma once

#include <orvanest/platform/platform.h>

#include <orvanest/LAL.h>
#include <orvanest/LCL.h>
#include <orvanest/LDE.h>
#include <orvanest/LMM.h>
#include <orvanest/LST.h>
#include <orvanest/LSY.h>

// A detach hook gives 0 to refuse the detach, anything else to let it go on.
typedef int (*LDE_DETACHHOOK)(void);

// Stores hook as the process's detach hook; on the first call on a thread,
// clears the accounting counters and attaches the thread. 1, or 0 when thread
// attach failed.
ORVANEST_EXPORT int l_orvanestProcessAttach(LDE_DETACHHOOK hook);
// On a thread on which process attach finished: calls the process hook, then
// detaches the thread. 1, or 0 when a hook refused.
ORVANEST_EXPORT int l_orvanestProcessDetach(void);
// Stores hook as this thread's detach hook; on the first call makes the
// thread's containers. 1, or 0 when a container is not made.
ORVANEST_EXPORT int l_orvanestThreadAttach(LDE_DETACHHOOK hook);
// Calls the thread's hook, then destroys the thread's arenas and containers.
// 1, or 0 when the hook refused (nothing is destroyed then).
ORVANEST_EXPORT int l_orvanestThreadDetach(void);
ORVANEST_EXPORT void l_orvanestSetProcDetachFuncName(LDE_DETACHHOOK hook);
ORVANEST_EXPORT void l_orvanestSetThreadDetachFuncName(LDE_DETACHHOOK hook);
