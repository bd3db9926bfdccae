// The library's 28 registered source objects and the way a source composes
// its positions. Each .cpp names its own object once:
//     #define LDE_THIS_SOURCE lde::g_srcLAVL
// and then marks with LDE_MARK() and passes failures on with LDE_POS().
#pragma once

#include <orvanest/LDE.h>
#include <orvanest/LSY.h>

namespace lde {

extern LDE_CSourceInfo g_srcORVANEST;
extern LDE_CSourceInfo g_srcLAEAR;
extern LDE_CSourceInfo g_srcLAEMM;
extern LDE_CSourceInfo g_srcLAL;
extern LDE_CSourceInfo g_srcLAVL;
extern LDE_CSourceInfo g_srcLBITBTL;
extern LDE_CSourceInfo g_srcLDLIST;
extern LDE_CSourceInfo g_srcLSLIST;
extern LDE_CSourceInfo g_srcLCALC;
extern LDE_CSourceInfo g_srcLUNITCIR;
extern LDE_CSourceInfo g_srcLDE;
extern LDE_CSourceInfo g_srcLCFILE;
extern LDE_CSourceInfo g_srcLFILE;
extern LDE_CSourceInfo g_srcLSEQFMT;
extern LDE_CSourceInfo g_srcLAMLC;
extern LDE_CSourceInfo g_srcLMEM;
extern LDE_CSourceInfo g_srcLMEMBUFS;
extern LDE_CSourceInfo g_srcLMEMFILE;
extern LDE_CSourceInfo g_srcLMEMWORK;
extern LDE_CSourceInfo g_srcLMMF;
extern LDE_CSourceInfo g_srcLSTACK;
extern LDE_CSourceInfo g_srcLSCALC;
extern LDE_CSourceInfo g_srcLSCHK;
extern LDE_CSourceInfo g_srcLSCVT;
extern LDE_CSourceInfo g_srcLSTR;
extern LDE_CSourceInfo g_srcLCPPEXCP;
extern LDE_CSourceInfo g_srcLEXCEPT;
extern LDE_CSourceInfo g_srcLSYS;

}  // namespace lde

// A position of this source at this line, without and with the mark bit.
#define LDE_POS() ((LDE_THIS_SOURCE).m_info[0].id | static_cast<DWORD>(__LINE__))
#define LDE_MARKPOS() (LDE_MARKBIT | LDE_POS())

// Marks a failure that arises here: the last error already says what it is.
#define LDE_MARK() ldbgSetMarkErr(LDE_MARKPOS())
// Passes a callee's failure on from here.
#define LDE_PASS() ldbgSetErr(LDE_POS())
// Raises L_CMemoryException at this line of this source.
#define LDE_THROW_MEMORY() lsysThrowMemory(static_cast<DWORD>(__LINE__), (LDE_THIS_SOURCE).m_info[0].name)
// Raises L_CMemoryException at this line for a size that 32 bits cannot
// hold: memory that cannot be had, with the last error of exhaustion.
#define LDE_THROW_TOO_LARGE() (SetLastError(ERROR_NOT_ENOUGH_MEMORY), LDE_THROW_MEMORY())
#define LDE_THROW_STANDARD() lsysThrowStandard(static_cast<DWORD>(__LINE__), (LDE_THIS_SOURCE).m_info[0].name)
