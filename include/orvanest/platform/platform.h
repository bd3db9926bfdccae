// Everything the platform exports: the Win32 subset, the MFC subset and the
// platform's own extensions.
#pragma once

#include "afx.h"
#include "crt_ctype.h"
#include "crt_float.h"
#include "crt_mbcs.h"
#include "crt_number.h"
#include "cstring.h"
#include "orvaext.h"
#include "win32.h"
#include "win32_datetime.h"
#include "win32_format.h"
#include "win32_memory.h"
#include "win32_seh.h"
#include "win32_system.h"
#include "win32_text.h"
