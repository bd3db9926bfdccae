// _splitpath for code page 932 paths. One walk by characters finds the last
// separator and the last '.', so a trail byte 0x5C inside a name never cuts
// the path; '\' and '/' both separate, and "C:" at the start is the drive.
// Each part is copied into the caller's buffer, cut to its _MAX_* size on a
// character boundary so that no buffer ends in half a character.
#include <cstring>

#include <orvanest/platform/crt_mbcs.h>

#include "internal/cp932.h"

namespace cp = orva::cp932;

namespace {

using UC = unsigned char;

// Copies [begin, end) into out (when out is not null), at most size - 1
// bytes, cut before a character that would not fit whole.
void CopyPart(const UC* begin, const UC* end, char* out, int size) {
    if (out == nullptr) return;
    const UC* stop = begin;
    const UC* limit = begin + (size - 1);
    while (stop < end) {
        const UC* next = cp::Next(stop);
        if (next > limit || next > end) break;
        stop = next;
    }
    size_t n = static_cast<size_t>(stop - begin);
    std::memcpy(out, begin, n);
    out[n] = '\0';
}

}  // namespace

namespace orvacrt {

void _splitpath(const char* path, char* drive, char* dir, char* fname, char* ext) {
    const UC* p = reinterpret_cast<const UC*>(path);
    const UC* rest = p;
    if (p[0] != 0 && p[1] == ':') rest = p + 2;  // ':' is never a trail byte
    CopyPart(p, rest, drive, _MAX_DRIVE);

    const UC* lastSep = nullptr;
    const UC* lastDot = nullptr;
    const UC* q = rest;
    for (; *q != 0; q = cp::Next(q)) {
        if (*q == '\\' || *q == '/') lastSep = q;  // at a character start, 0x5C is the separator
        else if (*q == '.') lastDot = q;
    }
    const UC* end = q;
    const UC* nameStart = lastSep != nullptr ? lastSep + 1 : rest;
    if (lastDot != nullptr && lastDot < nameStart) lastDot = nullptr;  // a dot of a directory
    const UC* nameEnd = lastDot != nullptr ? lastDot : end;

    CopyPart(rest, nameStart, dir, _MAX_DIR);
    CopyPart(nameStart, nameEnd, fname, _MAX_FNAME);
    CopyPart(nameEnd, end, ext, _MAX_EXT);
}

}  // namespace orvacrt
