// The module's static objects, in the one order the rest of the library
// relies on, and the trigger that runs the load entry after them.
//
// C++ builds the objects of one translation unit in the order they are
// defined, so keeping them all here fixes the order whatever the linker does
// with the other files: the first 26 sources, the six exception singletons,
// the eight class registrations, the last two sources, then the load entry.
// The ids that the registry hands out follow from this order (0x00010000 for
// the first source, 0x001C0000 for the last).
#include <orvanest/ORVANEST.h>

#include "internal/context.h"
#include "internal/singletons.h"
#include "internal/sources.h"

BOOL DllMain(HINSTANCE hinstDLL, DWORD fdwReason, LPVOID lpvReserved);

namespace lde {

LDE_CSourceInfo g_srcORVANEST(".\\ORVANEST");
LDE_CSourceInfo g_srcLAEAR(".\\LAL\\LAEAR");
LDE_CSourceInfo g_srcLAEMM(".\\LAL\\LAEMM");
LDE_CSourceInfo g_srcLAL(".\\LAL\\LAL");
LDE_CSourceInfo g_srcLAVL(".\\LAL\\LAVL");
LDE_CSourceInfo g_srcLBITBTL(".\\LAL\\LBITBTL");
LDE_CSourceInfo g_srcLDLIST(".\\LAL\\LDLIST");
LDE_CSourceInfo g_srcLSLIST(".\\LAL\\LSLIST");
LDE_CSourceInfo g_srcLCALC(".\\LCL\\LCALC");
LDE_CSourceInfo g_srcLUNITCIR(".\\LCL\\LUNITCIR");
LDE_CSourceInfo g_srcLDE(".\\LDE\\LDE");
LDE_CSourceInfo g_srcLCFILE(".\\LFL\\LCFILE");
LDE_CSourceInfo g_srcLFILE(".\\LFL\\LFILE");
LDE_CSourceInfo g_srcLSEQFMT(".\\LFL\\LSEQFMT");
LDE_CSourceInfo g_srcLAMLC(".\\LMM\\LAMLC");
LDE_CSourceInfo g_srcLMEM(".\\LMM\\LMEM");
LDE_CSourceInfo g_srcLMEMBUFS(".\\LMM\\LMEMBUFS");
LDE_CSourceInfo g_srcLMEMFILE(".\\LMM\\LMEMFILE");
LDE_CSourceInfo g_srcLMEMWORK(".\\LMM\\LMEMWORK");
LDE_CSourceInfo g_srcLMMF(".\\LMM\\LMMF");
LDE_CSourceInfo g_srcLSTACK(".\\LMM\\LSTACK");
LDE_CSourceInfo g_srcLSCALC(".\\LST\\LSCALC");
LDE_CSourceInfo g_srcLSCHK(".\\LST\\LSCHK");
LDE_CSourceInfo g_srcLSCVT(".\\LST\\LSCVT");
LDE_CSourceInfo g_srcLSTR(".\\LST\\LSTR");
LDE_CSourceInfo g_srcLCPPEXCP(".\\LSY\\LCPPEXCP");

}  // namespace lde

namespace lsy {

// Built with the automatic-delete flag off: a caught one is never deleted.
L_CStandardException g_standardException(0);
L_CMemoryException g_memoryException(0);
L_CNotSupportedException g_notSupportedException(0);
L_CArchiveException g_archiveException(0);
L_CFileException g_fileException(0);
L_CResourceException g_resourceException(0);

namespace {
AFX_CLASSINIT g_initL_CException(&L_CException::classL_CException);
AFX_CLASSINIT g_initL_CPosException(&L_CPosException::classL_CPosException);
AFX_CLASSINIT g_initL_CStandardException(&L_CStandardException::classL_CStandardException);
AFX_CLASSINIT g_initL_CMemoryException(&L_CMemoryException::classL_CMemoryException);
AFX_CLASSINIT g_initL_CNotSupportedException(&L_CNotSupportedException::classL_CNotSupportedException);
AFX_CLASSINIT g_initL_CArchiveException(&L_CArchiveException::classL_CArchiveException);
AFX_CLASSINIT g_initL_CFileException(&L_CFileException::classL_CFileException);
AFX_CLASSINIT g_initL_CResourceException(&L_CResourceException::classL_CResourceException);
}  // namespace

}  // namespace lsy

namespace lde {

LDE_CSourceInfo g_srcLEXCEPT(".\\LSY\\LEXCEPT");
LDE_CSourceInfo g_srcLSYS(".\\LSY\\LSYS");

namespace {
// Last of all: hands the load entry to the platform, which runs it with
// DLL_PROCESS_ATTACH now, and with DLL_PROCESS_DETACH when the module goes.
struct ModuleLoader {
    ModuleLoader() { OrvaModuleLoad(DllMain); }
    ~ModuleLoader() { OrvaModuleUnload(g_module); }
} g_moduleLoader;
}  // namespace

}  // namespace lde
