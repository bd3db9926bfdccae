// Inside the platform: where an injectable operation asks whether this call
// is to fail. The answer is per thread and costs one thread-local read while
// nothing is armed.
#pragma once

#include <orvanest/platform/orvaext.h>

namespace orva::fault {

// Read on every injectable call, so it uses the initial-exec model: a plain
// thread-pointer access instead of a call into the dynamic loader. The
// platform is loaded with the program, and one byte fits the static TLS that
// the loader keeps spare even for a late load.
// constinit tells every reader that no dynamic initialiser has to run first.
extern thread_local constinit bool t_anyArmed __attribute__((tls_model("initial-exec")));
bool HitSlow(OrvaFaultOp op, DWORD* code);

// True when this call of op is to fail; *code then holds the last error to set.
inline bool Hit(OrvaFaultOp op, DWORD* code) { return t_anyArmed && HitSlow(op, code); }

}  // namespace orva::fault
