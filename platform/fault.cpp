// Fault injection: fail the nth call of a named operation, once or from then
// on, with a chosen last error. Each thread arms its own operations, so tests
// that run in parallel do not see each other's faults.
#include "internal/fault.h"

namespace orva::fault {

namespace {
struct Arming {
    DWORD n;          // calls left until the failing one; 0 = disarmed
    DWORD code;       // last error of an injected failure
    BOOL persistent;  // keep failing after the nth call
    BOOL failing;     // the nth call has come and persistent is set
    DWORD injected;   // failures injected since arming
};
thread_local Arming t_arming[ORVA_FAULT_OP_COUNT];
}  // namespace

thread_local constinit bool t_anyArmed __attribute__((tls_model("initial-exec"))) = false;

bool HitSlow(OrvaFaultOp op, DWORD* code) {
    Arming& a = t_arming[op];
    if (a.failing) {
        ++a.injected;
        *code = a.code;
        return true;
    }
    if (a.n == 0) return false;
    if (--a.n != 0) return false;
    ++a.injected;
    *code = a.code;
    if (a.persistent) a.failing = TRUE;
    return true;
}

}  // namespace orva::fault

using namespace orva::fault;

void OrvaFaultArm(OrvaFaultOp op, DWORD n, DWORD code, BOOL persistent) {
    if (op < 0 || op >= ORVA_FAULT_OP_COUNT) return;
    t_arming[op] = Arming{n, code, persistent, FALSE, 0};
    if (n != 0) t_anyArmed = true;
}

void OrvaFaultReset(void) {
    for (auto& a : t_arming) a = Arming{};
    t_anyArmed = false;
}

DWORD OrvaFaultInjected(OrvaFaultOp op) {
    if (op < 0 || op >= ORVA_FAULT_OP_COUNT) return 0;
    return t_arming[op].injected;
}
