// One call of a random run, with or without the next global-heap allocation
// armed to fail. The call is made after PrepareCall, so the last error and
// the latest mark tell what it did.
#pragma once

#include <functional>

#include "support/marks.h"

namespace orvatest {

struct Outcome {
    long long result;  // what the call gave, when it did not raise
    bool raised;       // it raised L_CMemoryException
    bool injected;     // the armed failure happened
};

inline Outcome CallWithHeapFault(bool arm, const std::function<long long()>& call) {
    if (arm) OrvaFaultArm(ORVA_FAULT_GLOBALALLOC, 1, ERROR_NOT_ENOUGH_MEMORY, FALSE);
    PrepareCall();
    Outcome o{0, false, false};
    try {
        o.result = call();
    } catch (L_CMemoryException*) {
        o.raised = true;
    }
    DWORD error = GetLastError();
    o.injected = arm && OrvaFaultInjected(ORVA_FAULT_GLOBALALLOC) != 0;
    OrvaFaultReset();
    SetLastError(error);
    return o;
}

}  // namespace orvatest
