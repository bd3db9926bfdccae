// CString, the string class of the MFC subset: a run of code page 932 bytes
// with a terminator behind it, owned by the object. Lengths and indices count
// bytes. Copies are deep (no sharing), so an object may be handed between
// threads like any value. Searches step by characters, so a trail byte is
// never found. Memory comes from operator new; running out raises
// std::bad_alloc.
#pragma once

#include <cstdarg>

#include "win32.h"

class ORVANEST_EXPORT CString {
public:
    CString();
    CString(const CString& other);
    CString(CString&& other) noexcept;
    // A copy of the text; null gives an empty string.
    CString(const char* text);
    // The first length bytes of text (fewer if its terminator comes first).
    CString(const char* text, int length);
    // ch repeated count times.
    CString(char ch, int count = 1);
    ~CString();

    CString& operator=(const CString& other);
    CString& operator=(CString&& other) noexcept;
    CString& operator=(const char* text);
    CString& operator=(char ch);

    CString& operator+=(const CString& other);
    CString& operator+=(const char* text);
    CString& operator+=(char ch);
    CString& operator+=(unsigned char ch);

    // The text with its terminator; good until the object changes.
    operator const char*() const { return m_pchData; }

    int GetLength() const { return m_nDataLength; }
    BOOL IsEmpty() const { return m_nDataLength == 0; }
    // Sets the length to 0 and gives the memory back.
    void Empty();

    // The byte at index; 0 for an index outside the text.
    char GetAt(int index) const;
    char operator[](int index) const { return GetAt(index); }
    // Writes the byte at index; an index outside the text changes nothing.
    void SetAt(int index, char ch);

    // A writable buffer of at least minLength + 1 bytes that holds the text
    // and its terminator. Until ReleaseBuffer no other member may be called.
    char* GetBuffer(int minLength);
    // Ends GetBuffer: the new length is newLength, or with -1 the place of
    // the first terminator in the buffer.
    void ReleaseBuffer(int newLength = -1);

    // New strings of the first count bytes, the bytes from start on, count
    // bytes from start, the last count bytes. Arguments are clamped to the text.
    CString Left(int count) const;
    CString Mid(int start) const;
    CString Mid(int start, int count) const;
    CString Right(int count) const;

    // The byte index of the first place of ch or text at or behind start, or
    // -1. Stepping is by characters from start.
    int Find(char ch) const { return Find(ch, 0); }
    int Find(char ch, int start) const;
    int Find(const char* text) const { return Find(text, 0); }
    int Find(const char* text, int start) const;
    // The byte index of the last place of ch, or -1.
    int ReverseFind(char ch) const;

    // strcmp order: negative, 0 or positive.
    int Compare(const char* text) const;
    // As lstrcmpiA: 0 when the two are equal ignoring case.
    int CompareNoCase(const char* text) const;

    // Remove the white space (0x09-0x0D, 0x20) at that end.
    CString& TrimLeft();
    CString& TrimRight();

    // printf formatting into the string, replacing it.
    void Format(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void FormatV(const char* format, va_list args);

private:
    void Assign(const char* text, int length);
    void Append(const char* text, int length);
    // Makes room for capacity bytes of text and a terminator; keeps the text.
    void Reserve(int capacity);
    void Release();

    char* m_pchData;     // never null; the shared empty text when nothing is owned
    int m_nDataLength;   // bytes before the terminator
    int m_nAllocLength;  // bytes of text the buffer holds besides its terminator; 0 for the empty text
};

ORVANEST_EXPORT CString operator+(const CString& first, const CString& second);
ORVANEST_EXPORT CString operator+(const CString& first, const char* second);
ORVANEST_EXPORT CString operator+(const char* first, const CString& second);
ORVANEST_EXPORT CString operator+(const CString& first, char second);
ORVANEST_EXPORT CString operator+(char first, const CString& second);

inline bool operator==(const CString& a, const char* b) { return a.Compare(b) == 0; }
inline bool operator==(const char* a, const CString& b) { return b.Compare(a) == 0; }
inline bool operator==(const CString& a, const CString& b) { return a.Compare(b) == 0; }
inline bool operator!=(const CString& a, const char* b) { return a.Compare(b) != 0; }
inline bool operator!=(const char* a, const CString& b) { return b.Compare(a) != 0; }
inline bool operator!=(const CString& a, const CString& b) { return a.Compare(b) != 0; }
inline bool operator<(const CString& a, const CString& b) { return a.Compare(b) < 0; }
