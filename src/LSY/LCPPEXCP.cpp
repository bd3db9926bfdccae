// The filter a host may put in front of its C++ handlers, and the scope
// object with which a host marks a stretch of a thread as one in which it
// wants no exception messages. The library itself shows none; the count is
// kept for hosts, per thread.
#include "internal/context.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLCPPEXCP

int lcppexcpFilter(class CObject*) { return 1; }

L_CStopExceptMsg::L_CStopExceptMsg(void) { ++lde::Context()->stopMsgCount; }

L_CStopExceptMsg::~L_CStopExceptMsg(void) { --lde::Context()->stopMsgCount; }

int L_CStopExceptMsg::IsStopMsg(void) { return lde::Context()->stopMsgCount != 0 ? 1 : 0; }
