// The structured-exception services for hosts: the display of an exception,
// which shows nothing.
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLEXCEPT

void lexceptDispInfo(struct _EXCEPTION_POINTERS*) {}
