// Path text of the lstr family: the parts of a path, a path shortened for
// display, a trailing separator, and the text left or right of a character.
// Source .\LST\LSTR. Works on text alone, never on the file system, and has
// no failure path: nothing here sets an error or a mark.
//
// In code page 932 the byte 0x5C may be the trail byte of a character, so no
// function here looks for a separator byte by byte: every search goes through
// the platform's multibyte operations (_splitpath, _mbschr, _mbsrchr,
// _mbsstr, _mbsinc, _mbsbtype).
//
// The three forms: the buffer form does the work; the reference form either
// joins the parts in a stack buffer and assigns them, or (lstrCutShortDir,
// lstrLeftByFind, lstrRightByFind) runs the buffer form on the CString's own
// buffer; the value form runs the reference form on a new CString.
#include <cstring>

#include "LST/textcore.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLSTR

using orvacrt::_MAX_DIR;
using orvacrt::_MAX_DRIVE;
using orvacrt::_MAX_EXT;
using orvacrt::_MAX_FNAME;

namespace {

enum PathPart { kDrive = 1, kDir = 2, kName = 4, kExt = 8 };

// Splits path and writes the chosen parts, in path order, to out (which holds
// at least _MAX_DRIVE + _MAX_DIR + _MAX_FNAME + _MAX_EXT bytes).
char* JoinParts(const char* path, int parts, char* out) {
    char drive[_MAX_DRIVE];
    char dir[_MAX_DIR];
    char name[_MAX_FNAME];
    char ext[_MAX_EXT];
    orvacrt::_splitpath(path, (parts & kDrive) ? drive : nullptr, (parts & kDir) ? dir : nullptr,
                        (parts & kName) ? name : nullptr, (parts & kExt) ? ext : nullptr);
    out[0] = '\0';
    if (parts & kDrive) std::strcat(out, drive);
    if (parts & kDir) std::strcat(out, dir);
    if (parts & kName) std::strcat(out, name);
    if (parts & kExt) std::strcat(out, ext);
    return out;
}

constexpr size_t kJoinedSize = _MAX_DRIVE + _MAX_DIR + _MAX_FNAME + _MAX_EXT;

CString& JoinParts(const char* path, int parts, CString& destination) {
    char joined[kJoinedSize];
    destination = JoinParts(path, parts, joined);
    return destination;
}

// The place of ch that lstrLeftByFind and lstrRightByFind cut at, or null.
const char* FindCut(const char* source, unsigned char ch, bool first) {
    return first ? orvacrt::_mbschr(source, ch) : orvacrt::_mbsrchr(source, ch);
}

// Writes [begin, end) to destination; memmove, as the CString forms hand in
// a buffer that may be the source's own.
char* CopyRange(const char* begin, const char* end, char* destination) {
    size_t n = static_cast<size_t>(end - begin);
    std::memmove(destination, begin, n);
    destination[n] = '\0';
    return destination;
}

// The reference form of lstrCutShortDir, lstrLeftByFind and lstrRightByFind:
// the buffer form on the CString's buffer, sized for the source. source is
// read before the buffer is written, so it may be the destination's own
// text: a buffer of the source's length is never reallocated.
template <typename Fill>
void FillInPlace(const char* source, CString& destination, Fill fill) {
    char* buffer = destination.GetBuffer(static_cast<int>(std::strlen(source)));
    fill(buffer);
    destination.ReleaseBuffer(-1);
}

}  // namespace

// ---- the parts of a path ------------------------------------------------------------

char* lstrGetFolder(const char* path, char* destination) { return JoinParts(path, kDrive | kDir, destination); }
CString& lstrGetFolder(const char* path, CString& destination) {
    return JoinParts(path, kDrive | kDir, destination);
}
CString lstrGetFolder(const char* path) {
    CString result;
    return lstrGetFolder(path, result);
}

char* lstrGetFile(const char* path, char* destination) { return JoinParts(path, kName | kExt, destination); }
CString& lstrGetFile(const char* path, CString& destination) { return JoinParts(path, kName | kExt, destination); }
CString lstrGetFile(const char* path) {
    CString result;
    return lstrGetFile(path, result);
}

char* lstrGetBase(const char* path, char* destination) { return JoinParts(path, kName, destination); }
CString& lstrGetBase(const char* path, CString& destination) { return JoinParts(path, kName, destination); }
CString lstrGetBase(const char* path) {
    CString result;
    return lstrGetBase(path, result);
}

char* lstrGetExt(const char* path, char* destination) { return JoinParts(path, kExt, destination); }
CString& lstrGetExt(const char* path, CString& destination) { return JoinParts(path, kExt, destination); }
CString lstrGetExt(const char* path) {
    CString result;
    return lstrGetExt(path, result);
}

// ---- shortening for display -------------------------------------------------------

int lstrCutShortDir(const char* path, int limit, char* destination) {
    const int n = static_cast<int>(std::strlen(path));
    // 1. It fits.
    if (limit >= n) {
        std::memmove(destination, path, static_cast<size_t>(n) + 1);
        return n;
    }
    char file[kJoinedSize];
    lstrGetFile(path, file);
    const int f = static_cast<int>(std::strlen(file));
    // 2. Not even the file name fits: its start, never half a character.
    if (limit < f) {
        int cut = limit;
        if (cut > 0 && orvacrt::_mbsbtype(file, static_cast<size_t>(cut - 1)) == orvacrt::_MBC_LEAD) --cut;
        CopyRange(file, file + cut, destination);
        return cut;
    }
    // 3. The separator, and the end of the head's first part: the host of a
    //    network path, else index 2 (behind a drive). Index 2 is moved on when
    //    it falls inside a character, so the head never ends in half of one.
    const char* p = path + (n < 2 ? n : 2);
    if (n > 2 && orvacrt::_mbsbtype(path, 2) == orvacrt::_MBC_TRAIL) ++p;
    char sep;
    if (orvacrt::_mbschr(path, '/') != nullptr) {
        sep = '/';
        if (const char* pair = orvacrt::_mbsstr(path, "//")) {
            p = pair + 2;
            while (*p != '\0' && *p != '/') p = orvacrt::_mbsinc(p);
        }
    } else {
        sep = '\\';
        if (path[0] != '\0' && path[1] == '\\') {
            p = path + 2;
            while (*p != '\0' && *p != '\\') p = orvacrt::_mbsinc(p);
        }
    }
    // 4. With directories enough, the head takes one more component: the
    //    share of a network path or the first directory of a drive path.
    const char* fileStart = path + (n - f);
    if (n - f > 3 && fileStart - p > 1) {
        p = orvacrt::_mbsinc(p);
        while (*p != '\0' && *p != sep) p = orvacrt::_mbsinc(p);
    }
    // 5. The head.
    const int h = static_cast<int>(p - path);
    // 6. The head stands whole: "\..." and as much of the tail as fits, cut
    //    on a character boundary (not necessarily a separator).
    if (h + f + 5 <= limit) {
        const char* tail = p;
        int tailLength = n - h;
        while (h + 4 + tailLength > limit) {
            const char* next = orvacrt::_mbsinc(tail);
            tailLength -= static_cast<int>(next - tail);
            tail = next;
        }
        // Tail first, then mark, then head: the CString form may hand in the
        // path's own buffer, and the tail lies behind the place of the mark.
        std::memmove(destination + h + 4, tail, static_cast<size_t>(tailLength) + 1);
        const char mark[4] = {sep, '.', '.', '.'};
        std::memcpy(destination + h, mark, 4);
        std::memmove(destination, path, static_cast<size_t>(h));
        return h + 4 + tailLength;
    }
    // 7. The head is cut too, and the mark comes behind it: "...\".
    const int k = limit - f - 5;
    if (k < 0) {
        CopyRange(file, file + f, destination);
        return f;
    }
    int keep = orvacrt::_mbsbtype(path, static_cast<size_t>(k)) == orvacrt::_MBC_LEAD ? k : k + 1;
    const char mark[5] = {'.', '.', '.', sep, '\0'};
    CopyRange(path, path + keep, destination);
    std::strcat(destination, mark);
    std::strcat(destination, file);
    return keep + 4 + f;
}

int lstrCutShortDir(const char* path, int limit, CString& destination) {
    int length = 0;
    FillInPlace(path, destination, [&](char* buffer) { length = lstrCutShortDir(path, limit, buffer); });
    return length;
}

CString lstrCutShortDir(const char* path, int limit) {
    CString result;
    lstrCutShortDir(path, limit, result);
    return result;
}

// ---- separators -------------------------------------------------------------------

namespace {

// Whether the text ends in '\' or '/' standing as a character of its own.
bool EndsInSeparator(const char* path) {
    size_t n = std::strlen(path);
    if (n == 0) return false;
    char last = path[n - 1];
    return (last == '\\' || last == '/') && orvacrt::_mbsbtype(path, n - 1) == orvacrt::_MBC_SINGLE;
}

}  // namespace

void lstrAddSeparator(char* path, bool backslash) {
    if (EndsInSeparator(path)) return;
    size_t n = std::strlen(path);
    path[n] = backslash ? '\\' : '/';
    path[n + 1] = '\0';
}

void lstrAddSeparator(CString& path, bool backslash) {
    if (EndsInSeparator(path)) return;
    path += backslash ? '\\' : '/';
}

// ---- left and right of a character ----------------------------------------------------

char* lstrLeftByFind(const char* source, unsigned char ch, char* destination, bool first, bool include) {
    const char* found = FindCut(source, ch, first);
    if (found == nullptr) return CopyRange(source, source, destination);
    return CopyRange(source, include ? found + 1 : found, destination);
}

CString& lstrLeftByFind(const char* source, unsigned char ch, CString& destination, bool first, bool include) {
    FillInPlace(source, destination,
                [&](char* buffer) { lstrLeftByFind(source, ch, buffer, first, include); });
    return destination;
}

CString lstrLeftByFind(const char* source, unsigned char ch, bool first, bool include) {
    CString result;
    return lstrLeftByFind(source, ch, result, first, include);
}

char* lstrRightByFind(const char* source, unsigned char ch, char* destination, bool first, bool include) {
    const char* found = FindCut(source, ch, first);
    if (found == nullptr) return CopyRange(source, source, destination);
    const char* begin = include ? found : found + 1;
    return CopyRange(begin, begin + std::strlen(begin), destination);
}

CString& lstrRightByFind(const char* source, unsigned char ch, CString& destination, bool first, bool include) {
    FillInPlace(source, destination,
                [&](char* buffer) { lstrRightByFind(source, ch, buffer, first, include); });
    return destination;
}

CString lstrRightByFind(const char* source, unsigned char ch, bool first, bool include) {
    CString result;
    return lstrRightByFind(source, ch, result, first, include);
}
