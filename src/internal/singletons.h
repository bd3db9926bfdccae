// The six exception objects that the library raises, built among the
// module's static objects (startup.cpp) and raised by lsysThrow*.
#pragma once

#include <orvanest/LSY.h>

namespace lsy {

extern L_CStandardException g_standardException;
extern L_CMemoryException g_memoryException;
extern L_CNotSupportedException g_notSupportedException;
extern L_CArchiveException g_archiveException;
extern L_CFileException g_fileException;
extern L_CResourceException g_resourceException;

}  // namespace lsy
