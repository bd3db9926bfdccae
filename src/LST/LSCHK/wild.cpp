// Wildcard matching of the lschk family: a text against a pattern of '*' and
// '?', or against a list of such patterns divided by ';'. Source .\LST\LSCHK.
// Note the sense of the result: 0 is a match, -1 none, -2 a bad argument
// (last error LERR_INVALIDARG and a mark).
//
// A pattern is compiled into tagLST_MatchWild records, one per literal, each
// saying what may stand in front of its literal: nothing (skip 0), exactly n
// bytes (a run of n '?'), or anything (a run that holds a '*'). The records
// point into two private copies of the pattern, one where every literal gets
// a terminator behind it and one where every wildcard run does; a third
// private copy holds the text. With flag 1 all three are upper-cased by
// _mbsupr first. Everything lives in 256-byte buffers on the stack: nothing is
// allocated, and text and pattern are bounded to 255 bytes.
//
// lschkMatchSub walks the records over the text, recursing one level per
// record. A literal behind a '*' is searched with _mbsstr, which steps by
// characters, so a literal never starts on a trail byte; if the rest fails,
// the search moves one character on and tries again, which is the only
// backtracking. Two choices of this matcher, both in the direction of
// ordinary wildcard meaning:
// - a literal behind n '?' is tested exactly n bytes on from the position,
//   not by searching for its first place (so "abab" matches "??ab");
// - only a literal behind a '*' is tried again further on; one behind
//   nothing or behind '?' stands where it stands or fails (so "aaxb" does not
//   match "a?b").
#include <cstring>

#include "LST/textcore.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLSCHK

namespace {

constexpr size_t kBufferSize = 256;
constexpr size_t kMaxLength = kBufferSize - 1;
// A pattern of 255 bytes has at most 128 literals (or 127 and a closing
// run), and the end mark follows.
constexpr size_t kMaxRecords = 129;

constexpr LONG kSkipAny = -1;
constexpr LONG kEndMark = -2;

// Sets the error, marks it at the line of the caller, and gives -2.
#define LSCHK_BAD_ARGUMENT() (SetLastError(LERR_INVALIDARG), LDE_MARK(), -2)

// The length of text, counted no further than limit + 1 so that an overlong
// text is not walked to its end.
size_t BoundedLength(const char* text, size_t limit) {
    size_t n = 0;
    while (n <= limit && text[n] != '\0') ++n;
    return n;
}

// The text checks and the text's private copy (upper-cased under flag 1):
// 0 when the copy is ready, -1 for an empty text, -2 for a null or overlong one.
int PrepareText(const char* text, DWORD flag, char* copy) {
    if (text == nullptr) return LSCHK_BAD_ARGUMENT();
    if (*text == '\0') return -1;
    size_t n = BoundedLength(text, kMaxLength);
    if (n > kMaxLength) return LSCHK_BAD_ARGUMENT();
    std::memcpy(copy, text, n + 1);
    if (flag == 1) orvacrt::_mbsupr(copy);
    return 0;
}

// Compiles the pattern held in both copies into records (see the banner):
// literals gets a terminator behind each literal, runs behind each run.
void Compile(char* literals, char* runs, tagLST_MatchWild* record) {
    size_t pos = 0;
    // 1. A literal at the start has nothing in front of it.
    size_t literalLength = orvacrt::_mbscspn(literals, "*?");
    if (literalLength > 0) {
        *record++ = {0, literals, static_cast<DWORD>(literalLength)};
        pos = literalLength;
    }
    // 2-5. Each wildcard run and the literal behind it (if any).
    while (runs[pos] != '\0') {
        literals[pos] = '\0';  // 3. ends the literal in front of the run
        size_t runLength = orvacrt::_mbsspn(runs + pos, "*?");
        size_t literalStart = pos + runLength;
        char* literal = nullptr;
        if (runs[literalStart] != '\0') {  // 4. otherwise the pattern ends in this run
            literal = literals + literalStart;
            runs[literalStart] = '\0';
        }
        // 5. A run that holds a '*' is a '*'; its '?' count for nothing.
        LONG skip = orvacrt::_mbschr(runs + pos, '*') != nullptr ? kSkipAny : static_cast<LONG>(runLength);
        literalLength = literal != nullptr ? orvacrt::_mbscspn(literal, "*?") : 0;
        *record++ = {skip, literal, static_cast<DWORD>(literalLength)};
        pos = literalStart + literalLength;
    }
    // 6. The end mark.
    *record = {kEndMark, nullptr, 0};
}

// Compiles pattern (checked: 1-255 bytes) and matches the prepared text.
int MatchPrepared(char* text, const char* pattern, size_t patternLength, DWORD flag) {
    char literals[kBufferSize];
    char runs[kBufferSize];
    std::memcpy(literals, pattern, patternLength + 1);
    std::memcpy(runs, pattern, patternLength + 1);
    if (flag == 1) {
        orvacrt::_mbsupr(literals);
        orvacrt::_mbsupr(runs);
    }
    tagLST_MatchWild records[kMaxRecords];
    Compile(literals, runs, records);
    return lschkMatchSub(text, records);
}

}  // namespace

int lschkIsMatchWild(char* text, char* pattern, DWORD flag) {
    char textCopy[kBufferSize];
    int ready = PrepareText(text, flag, textCopy);
    if (ready != 0) return ready;
    if (pattern == nullptr || *pattern == '\0') return LSCHK_BAD_ARGUMENT();
    size_t patternLength = BoundedLength(pattern, kMaxLength);
    if (patternLength > kMaxLength) return LSCHK_BAD_ARGUMENT();
    return MatchPrepared(textCopy, pattern, patternLength, flag);
}

int lschkMatchSub(char* text, tagLST_MatchWild* record) {
    // 1. The pattern ended in a wildcard run.
    if (record->literal == nullptr) {
        if (record->skip <= 0) return 0;
        return std::strlen(text) == static_cast<size_t>(record->skip) ? 0 : -1;
    }
    const bool lastRecord = record[1].skip == kEndMark;
    if (record->skip == kSkipAny) {
        if (lastRecord) {
            // The literal has to end the text, so the only place worth a
            // search is the one that ends there: the answer of the search
            // loop below, without its walk.
            size_t n = std::strlen(text);
            if (n < record->length) return -1;
            char* place = text + (n - record->length);
            if (std::memcmp(place, record->literal, record->length) != 0) return -1;
            return orvacrt::_ismbstrail(text, place) == 0 ? 0 : -1;
        }
        // 3, 5, 6. Each place of the literal, a character further each time.
        for (char* place = orvacrt::_mbsstr(text, record->literal); place != nullptr;
             place = orvacrt::_mbsstr(place, record->literal)) {
            if (lschkMatchSub(place + record->length, record + 1) == 0) return 0;
            place = orvacrt::_mbsinc(place);
            if (*place == '\0') return -1;
        }
        return -1;
    }
    // 2, 4. The literal stands right here, or exactly skip bytes on.
    char* place = text;
    for (LONG i = 0; i < record->skip; ++i, ++place) {
        if (*place == '\0') return -1;
    }
    if (std::strncmp(place, record->literal, record->length) != 0) return -1;
    // 5. What follows: the end of the text, or the next record.
    char* after = place + record->length;
    if (lastRecord) return *after == '\0' ? 0 : -1;
    return lschkMatchSub(after, record + 1);
}

int lschkIsMatchWildEx(char* text, char* patterns, DWORD flag) {
    if (patterns == nullptr || *patterns == '\0') return LSCHK_BAD_ARGUMENT();
    size_t listLength = BoundedLength(patterns, kMaxLength);
    if (listLength > kMaxLength) return LSCHK_BAD_ARGUMENT();
    char list[kBufferSize];
    std::memcpy(list, patterns, listLength + 1);

    char* item = list + orvacrt::_mbsspn(list, ";");
    if (*item == '\0') return -1;
    // Every item would check and copy the same text, so that is done once,
    // at the first item, with the same answers lschkIsMatchWild gives: an
    // empty text fails every item, an overlong one is -2 at the first.
    char textCopy[kBufferSize];
    int ready = PrepareText(text, flag, textCopy);
    if (ready != 0) return ready;
    for (;;) {
        size_t itemLength = orvacrt::_mbscspn(item, ";");
        char* end = item + itemLength;
        const bool more = *end != '\0';
        *end = '\0';
        // Items are 1-255 bytes by construction, so the pattern checks of
        // lschkIsMatchWild cannot fail here.
        if (MatchPrepared(textCopy, item, itemLength, flag) == 0) return 0;
        if (!more) return -1;
        item = end + 1;
        item += orvacrt::_mbsspn(item, ";");
        if (*item == '\0') return -1;
    }
}
