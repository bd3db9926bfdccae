// The MFC subset the library's exception family stands on: CObject with its
// run-time class records, CException with the automatic-delete flag, the
// class registration and the extension-module record of a loadable module.
#pragma once

#include "win32.h"

class CObject;
class CArchive;
class CDumpContext;

// The run-time record of a class: its name, object size, schema, creation
// function and the record of its base. Records are chained by their base
// pointer; AfxClassInit enters a record in the process's class list.
struct ORVANEST_EXPORT CRuntimeClass {
    LPCSTR m_lpszClassName;
    int m_nObjectSize;
    UINT m_wSchema;
    CObject* (*m_pfnCreateObject)();
    CRuntimeClass* m_pBaseClass;
    CRuntimeClass* m_pNextClass;  // link of the class list, set by AfxClassInit

    // Creates an object of the class, or null when it has no creation function.
    CObject* CreateObject() const;
    // TRUE when this record is pBaseClass or reaches it through its base chain.
    BOOL IsDerivedFrom(const CRuntimeClass* pBaseClass) const;
    // The entered record of that name, or null.
    static CRuntimeClass* FromName(LPCSTR lpszClassName);
};

#define RUNTIME_CLASS(class_name) (&class_name::class##class_name)

// Enters pClass in the class list (once; a second call changes nothing).
ORVANEST_EXPORT void AfxClassInit(CRuntimeClass* pClass);

// A static object of this type enters its class during static initialisation.
struct AFX_CLASSINIT {
    explicit AFX_CLASSINIT(CRuntimeClass* pNewClass) { AfxClassInit(pNewClass); }
};

class ORVANEST_EXPORT CObject {
public:
    virtual CRuntimeClass* GetRuntimeClass() const;
    virtual ~CObject();
    virtual void Serialize(CArchive& ar);
    virtual void AssertValid() const;
    virtual void Dump(CDumpContext& dc) const;

    // TRUE when the object's run-time record is pClass or derives from it.
    BOOL IsKindOf(const CRuntimeClass* pClass) const;

    static CRuntimeClass classCObject;

protected:
    CObject();

private:
    CObject(const CObject&) = delete;
    void operator=(const CObject&) = delete;
};

class ORVANEST_EXPORT CException : public CObject {
public:
    CException();
    explicit CException(BOOL bAutoDelete);
    ~CException() override;

    CRuntimeClass* GetRuntimeClass() const override;

    // Writes a text that describes the exception; FALSE when there is none.
    virtual BOOL GetErrorMessage(LPSTR lpszError, UINT nMaxError, PUINT pnHelpContext = nullptr) const;
    virtual BOOL GetErrorMessage(wchar_t* lpszError, UINT nMaxError, PUINT pnHelpContext = nullptr) const;
    // Shows the error text in a message box and gives the box's answer.
    virtual int ReportError(UINT nType = MB_OK, UINT nMessageID = 0) const;

    // Ends a caught exception: deletes it when it was made with the
    // automatic-delete flag, leaves it alone otherwise (a static object).
    void Delete();

    BOOL m_bAutoDelete;

    static CRuntimeClass classCException;
};

// ---- loadable modules ---------------------------------------------------------
// What a module's load entry keeps of its classes: the classes entered before
// AfxInitExtensionModule belong to the module and can be found by name once a
// CDynLinkLibrary has been made over the record.
struct AFX_EXTENSION_MODULE {
    BOOL bInitialized;
    HMODULE hModule;
    HMODULE hResource;
    CRuntimeClass* pFirstSharedClass;
};

ORVANEST_EXPORT BOOL AfxInitExtensionModule(AFX_EXTENSION_MODULE& state, HMODULE hModule);

class ORVANEST_EXPORT CDynLinkLibrary : public CObject {
public:
    explicit CDynLinkLibrary(AFX_EXTENSION_MODULE& state);
    ~CDynLinkLibrary() override;

    HMODULE m_hModule;
    CRuntimeClass* m_pFirstSharedClass;
    CDynLinkLibrary* m_pNextDLL;
};
