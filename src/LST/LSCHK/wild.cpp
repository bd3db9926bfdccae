// Wildcard matching of the lschk family: a text against a pattern of '*' and
// '?', or against a list of such patterns divided by ';'. Source .\LST\LSCHK.
// Note the sense of the result: 0 is a match, -1 none, -2 a bad argument
// (last error LERR_INVALIDARG and a mark).
//
// A pattern is compiled into tagLST_MatchWild records, one per literal, each
// saying what may stand in front of its literal: nothing (skip 0), exactly n
// bytes (a run of n '?'), or anything (a run that holds a '*'). The records
// point into a private copy of the pattern in which every literal gets a
// terminator behind it; the terminator goes where the wildcard run begins,
// once the run has been read. With flag 1 the text is matched as a private
// copy too, and both copies are upper-cased by _mbsupr first; with any other
// flag the caller's text is only read, so it is matched where it stands.
// Everything lives in 256-byte buffers on the stack: nothing is allocated,
// and text and pattern are bounded to 255 bytes.
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
//
// File names are mostly plain ASCII, and a filter sees many names per
// pattern, so shortcuts come before the records. A pattern of wildcards
// alone is answered from the text's length. When no byte of text
// or pattern is 0x80 or above, every byte is a character of its own and
// upper-casing is toupper byte by byte; what the records decide is then
// ordinary wildcard matching over bytes, which PlainMatch answers in place.
// Before either, QuickLook rejects, from the caller's bytes, the texts whose
// length or ends rule a match out, before anything is copied or compiled.
#include <cstdint>
#include <cstring>

#include "LST/textcore.h"
#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLSCHK

namespace {

using lst::UC;

constexpr size_t kBufferSize = 256;
constexpr size_t kMaxLength = kBufferSize - 1;
// A pattern of 255 bytes has at most 128 literals (or 127 and a closing
// run), and the end mark follows.
constexpr size_t kMaxRecords = 129;

constexpr LONG kSkipAny = -1;
constexpr LONG kEndMark = -2;
constexpr int kUndecided = 1;

// Sets the error, marks it at the line of the caller, and gives -2.
#define LSCHK_BAD_ARGUMENT() (SetLastError(LERR_INVALIDARG), LDE_MARK(), -2)

// '*' and '?' never stand inside a two-byte character (no trail byte is
// below 0x40), so scans over bytes find exactly the runs and literals that
// _mbsspn and _mbscspn with the set "*?" would find, without a call each.
inline bool IsWild(char c) { return c == '*' || c == '?'; }

// Bytes of the wildcard run at p.
inline size_t WildSpan(const char* p) {
    const char* q = p;
    while (IsWild(*q)) ++q;
    return static_cast<size_t>(q - p);
}

// Bytes of the literal at p (up to a wildcard or the terminator).
inline size_t LiteralSpan(const char* p) {
    const char* q = p;
    while (*q != '\0' && !IsWild(*q)) ++q;
    return static_cast<size_t>(q - p);
}

// ';' is never part of a two-byte character either: the list is cut with
// byte scans, which find what _mbsspn and _mbscspn with ";" would.
inline size_t SeparatorSpan(const char* p) {
    const char* q = p;
    while (*q == ';') ++q;
    return static_cast<size_t>(q - p);
}

inline size_t ItemSpan(const char* p) {
    const char* q = p;
    while (*q != '\0' && *q != ';') ++q;
    return static_cast<size_t>(q - p);
}

bool HasHighByte(const char* s, size_t length) {
    uint64_t any = 0;
    size_t i = 0;
    for (; i + 8 <= length; i += 8) {  // eight bytes at a time
        uint64_t word;
        std::memcpy(&word, s + i, 8);
        any |= word;
    }
    for (; i < length; ++i) any |= static_cast<UC>(s[i]);
    return (any & 0x8080808080808080ULL) != 0;
}

// ---- plain bytes ------------------------------------------------------------------

// Matching when no byte of text or pattern is 0x80 or above (see the
// banner): a run that holds a '*' is one '*', a run of n '?' is n bytes,
// every other byte stands for itself (toupper'd under flag 1). The pieces
// between '*' are placed leftmost; when one fails, only the last '*' takes a
// byte more, which loses nothing since only '*' stands between pieces.
int PlainMatch(const char* text, size_t n, const char* pattern, size_t m, bool fold) {
    auto same = [fold](char a, char b) {
        return fold ? orvacrt::toupper(static_cast<UC>(a)) == orvacrt::toupper(static_cast<UC>(b)) : a == b;
    };
    size_t ti = 0;
    size_t pi = 0;
    bool starSeen = false;
    size_t starPi = 0;  // the pattern behind the last '*' run
    size_t starTi = 0;  // where in the text that run's bytes end so far
    for (;;) {
        if (pi < m && IsWild(pattern[pi])) {
            size_t run = 0;
            bool star = false;
            for (; pi + run < m && IsWild(pattern[pi + run]); ++run) star = star || pattern[pi + run] == '*';
            pi += run;
            if (star) {
                if (pi == m) return 0;  // a '*' at the end takes what is left
                starSeen = true;
                starPi = pi;
                starTi = ti;
                // The byte behind a '*' run is a literal one: the run takes
                // every byte up to the first place where that byte fits.
                while (starTi < n && !same(text[starTi], pattern[starPi])) ++starTi;
                if (starTi == n) return -1;
                ti = starTi;
                continue;
            }
            if (n - ti >= run) {
                ti += run;
                continue;
            }
        } else if (pi < m && ti < n && same(text[ti], pattern[pi])) {
            ++ti;
            ++pi;
            continue;
        } else if (pi == m && ti == n) {
            return 0;
        }
        if (!starSeen) return -1;
        do {
            ++starTi;
        } while (starTi < n && !same(text[starTi], pattern[starPi]));
        if (starTi >= n) return -1;
        ti = starTi;
        pi = starPi;
    }
}

// ---- the records ---------------------------------------------------------------------

// The text as the records see it: under flag 1 a private copy, upper-cased,
// made at the first call of Text(); otherwise the caller's text, which
// matching only reads. Plain() is the caller's text as it stands, for the
// shortcuts.
class Subject {
public:
    Subject(char* text, size_t length, DWORD flag) : text_(text), length_(length), flag_(flag) {}

    char* Plain() const { return text_; }
    size_t Length() const { return length_; }

    // No byte of 0x80 or above (looked at once, when first asked).
    bool Ascii() {
        if (ascii_ < 0) ascii_ = HasHighByte(text_, length_) ? 0 : 1;
        return ascii_ == 1;
    }

    char* Text() {
        if (flag_ != 1) return text_;
        if (!copied_) {
            std::memcpy(copy_, text_, length_ + 1);
            orvacrt::_mbsupr(copy_);
            copied_ = true;
        }
        return copy_;
    }

private:
    char* text_;
    size_t length_;
    DWORD flag_;
    int ascii_ = -1;
    bool copied_ = false;
    char copy_[kBufferSize];
};

// Rejects, from the caller's bytes, texts whose length or ends rule a match
// out; kUndecided for the rest. Each rule is one the records apply:
// without a '*', text and pattern are of one length ('?' is one byte); a
// literal that begins the pattern stands at the text's start, one that ends
// it ends the text. Under flag 1 a byte is compared only where its upper
// case is certain: below 0x80 with no byte of 0x80 or above in front of it,
// which could make it the trail byte of a character whose upper case
// differs in any byte.
int QuickLook(const char* text, size_t n, const char* pattern, size_t m, DWORD flag) {
    size_t head = 0;
    while (head < m && !IsWild(pattern[head])) ++head;
    if (head == m) return n == m ? kUndecided : -1;  // a literal alone: the records compare it
    size_t tail = 0;
    while (!IsWild(pattern[m - 1 - tail])) ++tail;
    if (head + tail > n) return -1;
    auto unsure = [flag](const char* s, size_t i) {
        return flag == 1 && (static_cast<UC>(s[i]) >= 0x80 || (i > 0 && static_cast<UC>(s[i - 1]) >= 0x80));
    };
    auto differ = [&](size_t ti, size_t pi) {
        if (unsure(text, ti) || unsure(pattern, pi)) return false;
        UC t = static_cast<UC>(text[ti]);
        UC p = static_cast<UC>(pattern[pi]);
        return flag == 1 ? orvacrt::toupper(t) != orvacrt::toupper(p) : t != p;
    };
    // The end first: for names it is the extension, which tells most.
    for (size_t j = 1; j <= tail; ++j) {
        if (differ(n - j, m - j)) return -1;
    }
    for (size_t i = 0; i < head; ++i) {
        if (differ(i, i)) return -1;
    }
    for (size_t i = head; i < m - tail; ++i) {
        if (pattern[i] == '*') return kUndecided;
    }
    return n == m ? kUndecided : -1;  // no '*'
}

// Compiles the pattern copy into records (see the banner), writing a
// terminator behind each literal.
void Compile(char* pattern, tagLST_MatchWild* record) {
    size_t pos = 0;
    // 1. A literal at the start has nothing in front of it.
    size_t literalLength = LiteralSpan(pattern);
    if (literalLength > 0) {
        *record++ = {0, pattern, static_cast<DWORD>(literalLength)};
        pos = literalLength;
    }
    // 2-5. Each wildcard run and the literal behind it (if any).
    while (pattern[pos] != '\0') {
        size_t runLength = WildSpan(pattern + pos);
        // 5. A run that holds a '*' is a '*'; its '?' count for nothing.
        LONG skip = static_cast<LONG>(runLength);
        for (size_t i = pos; i < pos + runLength; ++i) {
            if (pattern[i] == '*') skip = kSkipAny;
        }
        pattern[pos] = '\0';  // 3. ends the literal in front of the run
        size_t literalStart = pos + runLength;
        char* literal = nullptr;
        literalLength = 0;
        if (pattern[literalStart] != '\0') {  // 4. otherwise the pattern ends in this run
            literal = pattern + literalStart;
            literalLength = LiteralSpan(literal);
        }
        *record++ = {skip, literal, static_cast<DWORD>(literalLength)};
        pos = literalStart + literalLength;
    }
    // 6. The end mark.
    *record = {kEndMark, nullptr, 0};
}

// Matches the subject against a pattern of 1-255 bytes (not necessarily
// terminated): the pattern's private copy, upper-cased under flag 1, is
// compiled and the records walked over the text.
int MatchPattern(Subject& subject, const char* pattern, size_t length, DWORD flag) {
    char copy[kBufferSize];
    std::memcpy(copy, pattern, length);
    copy[length] = '\0';
    if (flag == 1) orvacrt::_mbsupr(copy);
    tagLST_MatchWild records[kMaxRecords];
    Compile(copy, records);
    return lschkMatchSub(subject.Text(), records);
}

// One pattern (1-255 bytes, not necessarily terminated) against the subject.
int MatchOne(Subject& subject, const char* pattern, size_t length, DWORD flag) {
    // A pattern of wildcards alone is one record with no literal: any text,
    // or one of exactly its length.
    size_t run = 0;
    bool star = false;
    for (; run < length && IsWild(pattern[run]); ++run) star = star || pattern[run] == '*';
    if (run == length) return star || subject.Length() == length ? 0 : -1;
    int quick = QuickLook(subject.Plain(), subject.Length(), pattern, length, flag);
    if (quick != kUndecided) return quick;
    if (subject.Ascii() && !HasHighByte(pattern, length)) {
        return PlainMatch(subject.Plain(), subject.Length(), pattern, length, flag == 1);
    }
    return MatchPattern(subject, pattern, length, flag);
}

}  // namespace

int lschkIsMatchWild(char* text, char* pattern, DWORD flag) {
    if (text == nullptr) return LSCHK_BAD_ARGUMENT();
    if (*text == '\0') return -1;
    size_t textLength = std::strlen(text);
    if (textLength > kMaxLength) return LSCHK_BAD_ARGUMENT();
    if (pattern == nullptr || *pattern == '\0') return LSCHK_BAD_ARGUMENT();
    size_t patternLength = std::strlen(pattern);
    if (patternLength > kMaxLength) return LSCHK_BAD_ARGUMENT();
    Subject subject(text, textLength, flag);
    return MatchOne(subject, pattern, patternLength, flag);
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
    if (std::strlen(patterns) > kMaxLength) return LSCHK_BAD_ARGUMENT();
    // The items are read where they stand in the caller's list; one that
    // gets as far as the records is copied (and terminated) then, which is
    // what a private copy of the list with a terminator behind each item
    // would give it.
    const char* item = patterns + SeparatorSpan(patterns);
    if (*item == '\0') return -1;
    // Every item would check the same text and copy it alike, so the checks
    // of lschkIsMatchWild run once, here, with its answers: an empty text
    // fails every item, a null or overlong one is -2 at the first. The copy
    // is shared by the items.
    if (text == nullptr) return LSCHK_BAD_ARGUMENT();
    if (*text == '\0') return -1;
    size_t textLength = std::strlen(text);
    if (textLength > kMaxLength) return LSCHK_BAD_ARGUMENT();
    Subject subject(text, textLength, flag);
    for (;;) {
        // Items are 1-255 bytes by construction, so the pattern checks of
        // lschkIsMatchWild cannot fail here.
        size_t itemLength = ItemSpan(item);
        if (MatchOne(subject, item, itemLength, flag) == 0) return 0;
        item += itemLength;
        item += SeparatorSpan(item);
        if (*item == '\0') return -1;
    }
}
