// Inside the platform: where an injectable operation asks whether this call
// is to fail. The answer is per thread and costs one thread-local read while
// nothing is armed.
#pragma once

#include <orvanest/platform/orvaext.h>

namespace orva::fault {

extern thread_local bool t_anyArmed;
bool HitSlow(OrvaFaultOp op, DWORD* code);

// True when this call of op is to fail; *code then holds the last error to set.
inline bool Hit(OrvaFaultOp op, DWORD* code) { return t_anyArmed && HitSlow(op, code); }

}  // namespace orva::fault
