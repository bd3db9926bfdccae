// String scanning of the lstr family: joining, white space, words, quoted
// runs, look-up in a null-ended array, and cutting at a byte count without
// splitting a character. Source .\LST\LSTR. None of these sets an error or a
// mark, and only lstrTrimLeft allocates (its CString).
//
// Walks by characters go through the platform's stepper. lstrFindSpace is the
// exception: it walks bytes on purpose, so a trail byte 0x81 followed by 0x40
// is reported as a full-width space, which callers have come to expect.
#include <cstdarg>
#include <cstring>

#include "LST/textcore.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLSTR

using lst::IsSpaceAt;
using lst::IsWordByte;

void lstrCatEx(char* destination, ...) {
    va_list args;
    va_start(args, destination);
    const char* source = va_arg(args, const char*);
    std::strcpy(destination, source);  // a copy, not an append to what was there
    char* end = destination + std::strlen(destination);
    while ((source = va_arg(args, const char*)) != nullptr) {
        size_t n = std::strlen(source);
        std::memcpy(end, source, n + 1);
        end += n;
    }
    va_end(args);
}

char* lstrSkipSpace(const char* text) {
    const char* p = text;
    while (IsSpaceAt(p)) p += lst::SpaceWidth(p);
    return *p != '\0' ? const_cast<char*>(p) : nullptr;
}

char* lstrFindSpace(const char* text) {
    for (const char* p = text; *p != '\0'; ++p) {
        if (IsSpaceAt(p)) return const_cast<char*>(p);
    }
    return nullptr;
}

int lstrFindWord(const char* text, const char* position, char** start, int* length) {
    // 1. The anchor: the word character at the position, or the first
    //    character behind white space there.
    const char* anchor = position;
    if (!IsWordByte(*anchor)) {
        if (!IsSpaceAt(anchor)) return 0;
        anchor = lstrSkipSpace(anchor);
        if (anchor == nullptr || !IsWordByte(*anchor)) return 0;
    }
    // 2. Left while word characters go on; a two-byte character in front
    //    ends the word too, even if its trail byte looks like a letter.
    const char* first = anchor;
    while (first > text) {
        if (CharPrevA(text, first) != first - 1) break;
        if (!IsWordByte(first[-1])) break;
        --first;
    }
    // 3, 4. Right to the first byte that is no word character; a lead byte
    //    never is one, so bytes will do.
    const char* end = anchor + 1;
    while (IsWordByte(*end)) ++end;
    *start = const_cast<char*>(first);
    *length = static_cast<int>(end - first);
    return 1;
}

char* lstrFindEncloseEnd(const char* text, unsigned short quote) {
    if (text == nullptr || *text == '\0') return nullptr;
    // The quote is compared as a character code, so a one-byte quote meets
    // only one-byte characters and a two-byte quote only two-byte ones. A
    // one-byte quote of 0x80-0xFF thus finds half-width kana brackets, and a
    // lead-byte value finds only a lead byte standing alone.
    const char* p = text;
    while (*p != '\0') {
        const char* next = orvacrt::_mbsinc(p);
        if (lst::CharCode(p, next) == quote) {
            if (*next == '\0') return const_cast<char*>(p);
            const char* after = orvacrt::_mbsinc(next);
            if (lst::CharCode(next, after) != quote) return const_cast<char*>(p);
            next = after;  // a doubled quote stands for the quote itself
        }
        p = next;
    }
    return nullptr;
}

char* lstrFindInPtrArray(const char* key, const char** const array, DWORD mode) {
    const char* best = nullptr;
    size_t bestLength = 0;
    size_t keyLength = std::strlen(key);
    for (const char* const* entry = array; *entry != nullptr; ++entry) {
        size_t n = std::strlen(*entry);
        bool match;
        if (mode == 2) {
            match = n <= keyLength && std::memcmp(key, *entry, n) == 0;
        } else if (mode == 3) {
            match = keyLength <= n && std::memcmp(*entry, key, keyLength) == 0;
        } else {
            if (std::strcmp(*entry, key) == 0) return const_cast<char*>(*entry);
            continue;
        }
        // The longest wins; among equals, the first (hence the strict >).
        if (match && (best == nullptr || n > bestLength)) {
            best = *entry;
            bestLength = n;
        }
    }
    return const_cast<char*>(best);
}

char* lstrCutOff(const char* text, DWORD count) {
    if (text == nullptr || count == 0) return nullptr;
    const char* previous = text;
    DWORD total = 0;
    for (const char* p = text; *p != '\0';) {
        const char* next = orvacrt::_mbsinc(p);
        total += static_cast<DWORD>(next - p);
        if (total == count) return const_cast<char*>(p);
        if (total > count) return const_cast<char*>(previous);  // a two-byte character went past
        previous = p;
        p = next;
    }
    return const_cast<char*>(previous);
}

CString lstrTrimLeft(const char* text, DWORD count) {
    if (text == nullptr || count == 0) return CString();
    size_t length = std::strlen(text);
    if (length <= count) return CString(text);
    if (orvacrt::_ismbslead(text, text + count - 1) != 0) --count;
    return CString(text, static_cast<int>(count));
}

bool lstrIsLeadByte(const char* text, int index) { return orvacrt::_ismbslead(text, text + index) == -1; }

bool lstrIsTrailByte(const char* text, int index) { return orvacrt::_ismbstrail(text, text + index) == -1; }
