// CString of the MFC subset. Each object owns its buffer outright; an empty
// object points at one shared, never-written terminator and owns nothing, so
// empty strings (the common case for out-parameters) cost no allocation.
// Appends grow the buffer geometrically. Find and ReverseFind go through the
// runtime's multibyte searches, so they step by code page 932 characters.
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include <orvanest/platform/crt_mbcs.h>
#include <orvanest/platform/cstring.h>
#include <orvanest/platform/win32_text.h>

namespace {

char g_emptyText[1] = {'\0'};

int Clamp(int value, int low, int high) { return value < low ? low : (value > high ? high : value); }

int LengthOf(const char* text) { return text == nullptr ? 0 : static_cast<int>(std::strlen(text)); }

bool IsWhite(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

CString::CString() : m_pchData(g_emptyText), m_nDataLength(0), m_nAllocLength(0) {}

CString::CString(const CString& other) : CString() { Assign(other.m_pchData, other.m_nDataLength); }

CString::CString(CString&& other) noexcept
    : m_pchData(other.m_pchData), m_nDataLength(other.m_nDataLength), m_nAllocLength(other.m_nAllocLength) {
    other.m_pchData = g_emptyText;
    other.m_nDataLength = 0;
    other.m_nAllocLength = 0;
}

CString::CString(const char* text) : CString() { Assign(text, LengthOf(text)); }

CString::CString(const char* text, int length) : CString() {
    if (text == nullptr || length <= 0) return;
    Assign(text, static_cast<int>(strnlen(text, static_cast<size_t>(length))));
}

CString::CString(char ch, int count) : CString() {
    if (count <= 0) return;
    Reserve(count);
    std::memset(m_pchData, ch, static_cast<size_t>(count));
    m_pchData[count] = '\0';
    m_nDataLength = count;
}

CString::~CString() { Release(); }

CString& CString::operator=(const CString& other) {
    if (this != &other) Assign(other.m_pchData, other.m_nDataLength);
    return *this;
}

CString& CString::operator=(CString&& other) noexcept {
    if (this != &other) {
        Release();
        m_pchData = other.m_pchData;
        m_nDataLength = other.m_nDataLength;
        m_nAllocLength = other.m_nAllocLength;
        other.m_pchData = g_emptyText;
        other.m_nDataLength = 0;
        other.m_nAllocLength = 0;
    }
    return *this;
}

CString& CString::operator=(const char* text) {
    Assign(text, LengthOf(text));
    return *this;
}

CString& CString::operator=(char ch) {
    Assign(&ch, 1);
    return *this;
}

CString& CString::operator+=(const CString& other) {
    Append(other.m_pchData, other.m_nDataLength);
    return *this;
}

CString& CString::operator+=(const char* text) {
    Append(text, LengthOf(text));
    return *this;
}

CString& CString::operator+=(char ch) {
    Append(&ch, 1);
    return *this;
}

CString& CString::operator+=(unsigned char ch) {
    char c = static_cast<char>(ch);
    Append(&c, 1);
    return *this;
}

void CString::Empty() {
    Release();
    m_pchData = g_emptyText;
    m_nDataLength = 0;
    m_nAllocLength = 0;
}

char CString::GetAt(int index) const {
    return index >= 0 && index < m_nDataLength ? m_pchData[index] : '\0';
}

void CString::SetAt(int index, char ch) {
    if (index >= 0 && index < m_nDataLength) m_pchData[index] = ch;
}

char* CString::GetBuffer(int minLength) {
    // The empty text is shared and read-only, so even GetBuffer(0) allocates.
    Reserve(minLength > m_nDataLength ? minLength : m_nDataLength);
    if (m_nAllocLength == 0) Reserve(1);
    return m_pchData;
}

void CString::ReleaseBuffer(int newLength) {
    if (m_nAllocLength == 0) return;  // no buffer was handed out
    if (newLength < 0) {
        newLength = static_cast<int>(strnlen(m_pchData, static_cast<size_t>(m_nAllocLength)));
    }
    m_nDataLength = Clamp(newLength, 0, m_nAllocLength);
    m_pchData[m_nDataLength] = '\0';
}

CString CString::Left(int count) const { return CString(m_pchData, Clamp(count, 0, m_nDataLength)); }

CString CString::Mid(int start) const { return Mid(start, m_nDataLength); }

CString CString::Mid(int start, int count) const {
    start = Clamp(start, 0, m_nDataLength);
    count = Clamp(count, 0, m_nDataLength - start);
    return CString(m_pchData + start, count);
}

CString CString::Right(int count) const {
    count = Clamp(count, 0, m_nDataLength);
    return CString(m_pchData + (m_nDataLength - count), count);
}

int CString::Find(char ch, int start) const {
    if (start < 0 || start >= m_nDataLength) return -1;
    const char* p = orvacrt::_mbschr(m_pchData + start, static_cast<unsigned char>(ch));
    return p == nullptr ? -1 : static_cast<int>(p - m_pchData);
}

int CString::Find(const char* text, int start) const {
    if (text == nullptr || start < 0 || start > m_nDataLength) return -1;
    const char* p = orvacrt::_mbsstr(m_pchData + start, text);
    return p == nullptr ? -1 : static_cast<int>(p - m_pchData);
}

int CString::ReverseFind(char ch) const {
    const char* p = orvacrt::_mbsrchr(m_pchData, static_cast<unsigned char>(ch));
    return p == nullptr ? -1 : static_cast<int>(p - m_pchData);
}

int CString::Compare(const char* text) const { return std::strcmp(m_pchData, text == nullptr ? "" : text); }

int CString::CompareNoCase(const char* text) const { return lstrcmpiA(m_pchData, text == nullptr ? "" : text); }

CString& CString::TrimLeft() {
    int n = 0;
    while (n < m_nDataLength && IsWhite(m_pchData[n])) ++n;
    if (n > 0) {
        std::memmove(m_pchData, m_pchData + n, static_cast<size_t>(m_nDataLength - n + 1));
        m_nDataLength -= n;
    }
    return *this;
}

CString& CString::TrimRight() {
    // Walk by characters: the white bytes are never trail bytes, but a run of
    // them is only trailing if no character starts after it.
    const char* keepEnd = m_pchData;
    for (const char* p = m_pchData; *p != '\0'; p = orvacrt::_mbsinc(p)) {
        if (!IsWhite(*p)) keepEnd = orvacrt::_mbsinc(p);
    }
    int n = static_cast<int>(keepEnd - m_pchData);
    if (n < m_nDataLength) {
        m_pchData[n] = '\0';
        m_nDataLength = n;
    }
    return *this;
}

void CString::Format(const char* format, ...) {
    va_list args;
    va_start(args, format);
    FormatV(format, args);
    va_end(args);
}

void CString::FormatV(const char* format, va_list args) {
    va_list probe;
    va_copy(probe, args);
    int n = std::vsnprintf(nullptr, 0, format, probe);
    va_end(probe);
    if (n <= 0) {
        Empty();
        return;
    }
    // Format into a fresh buffer: an argument may be this string's own text.
    CString result;
    result.Reserve(n);
    std::vsnprintf(result.m_pchData, static_cast<size_t>(n) + 1, format, args);
    result.m_nDataLength = n;
    *this = static_cast<CString&&>(result);
}

void CString::Assign(const char* text, int length) {
    if (length <= 0) {
        if (m_nAllocLength > 0) m_pchData[0] = '\0';
        m_nDataLength = 0;
        return;
    }
    if (length > m_nAllocLength) {
        // text may lie in our own buffer: copy before the old one goes.
        char* fresh = new char[static_cast<size_t>(length) + 1];
        std::memcpy(fresh, text, static_cast<size_t>(length));
        Release();
        m_pchData = fresh;
        m_nAllocLength = length;
    } else {
        std::memmove(m_pchData, text, static_cast<size_t>(length));
    }
    m_pchData[length] = '\0';
    m_nDataLength = length;
}

void CString::Append(const char* text, int length) {
    if (length <= 0) return;
    // A length beyond an int is more than a string can hold; the sum must not
    // wrap to a negative total that the test below lets through.
    if (length > INT_MAX - m_nDataLength) throw std::bad_alloc();
    int total = m_nDataLength + length;
    if (total > m_nAllocLength) {
        // Half again, as far as an int reaches.
        int64_t grown = int64_t{m_nAllocLength} + m_nAllocLength / 2;
        if (grown > INT_MAX) grown = INT_MAX;
        int capacity = total > grown ? total : static_cast<int>(grown);
        char* fresh = new char[static_cast<size_t>(capacity) + 1];
        std::memcpy(fresh, m_pchData, static_cast<size_t>(m_nDataLength));
        std::memcpy(fresh + m_nDataLength, text, static_cast<size_t>(length));  // text may be ours
        Release();
        m_pchData = fresh;
        m_nAllocLength = capacity;
    } else {
        std::memmove(m_pchData + m_nDataLength, text, static_cast<size_t>(length));
    }
    m_nDataLength = total;
    m_pchData[total] = '\0';
}

void CString::Reserve(int capacity) {
    if (capacity <= m_nAllocLength) return;
    char* fresh = new char[static_cast<size_t>(capacity) + 1];
    std::memcpy(fresh, m_pchData, static_cast<size_t>(m_nDataLength) + 1);
    Release();
    m_pchData = fresh;
    m_nAllocLength = capacity;
}

void CString::Release() {
    if (m_nAllocLength > 0) delete[] m_pchData;
}

CString operator+(const CString& first, const CString& second) {
    CString result(first);
    result += second;
    return result;
}

CString operator+(const CString& first, const char* second) {
    CString result(first);
    result += second;
    return result;
}

CString operator+(const char* first, const CString& second) {
    CString result(first);
    result += second;
    return result;
}

CString operator+(const CString& first, char second) {
    CString result(first);
    result += second;
    return result;
}

CString operator+(char first, const CString& second) {
    CString result(first);
    result += second;
    return result;
}
