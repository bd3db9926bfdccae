// The library's printf, lstrWvprintf and lstrWsprintf. Source .\LST\LSTR;
// nothing here sets an error or a mark.
//
// The format is copied byte by byte; '%' is never a trail byte in code page
// 932, so double-byte characters pass unharmed without a lead-byte test.
// Each conversion is collected as text ("%-08.3x") while its flags, width
// and precision are read. Integers, characters and strings go to the
// platform's wsprintfA with that text exactly as written; the floating
// conversions go to the number text functions with the numbers read, and
// the text is not used. A byte that is no conversion letter drops what was
// collected and is copied as plain text, so "%ld" prints "ld": the library
// has never known size modifiers.
#include <cstdarg>

#include <orvanest/ORVANEST.h>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLSTR

namespace {

// A conversion text of up to 15 bytes is what the format may hold; longer
// runs of digits are read but not kept, so that an odd format cannot run
// past the buffer.
constexpr int kConversionSize = 16;

class Conversion {
public:
    void Begin() {
        length_ = 0;
        Append('%');
    }
    void Append(char c) {
        if (length_ < kConversionSize - 1) text_[length_++] = c;
    }
    const char* End() {
        text_[length_] = '\0';
        return text_;
    }

private:
    char text_[kConversionSize];
    int length_ = 0;
};

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Reads a run of digits as atoi would, holding the number at a ceiling
// instead of overflowing, and appends the run to the conversion text.
DWORD ReadNumber(const char** cursor, Conversion* conversion) {
    DWORD n = 0;
    for (const char* p = *cursor; IsDigit(*p); ++p) {
        conversion->Append(*p);
        if (n < 100000000) n = n * 10 + static_cast<DWORD>(*p - '0');
        *cursor = p + 1;
    }
    return n;
}

DWORD FlagBit(char c) {
    switch (c) {
    case '-': return LSCVT_LEFT;
    case '+': return LSCVT_PLUS;
    case '0': return LSCVT_ZEROPAD;
    case '#': return LSCVT_ALT;
    case ' ': return LSCVT_BLANK;
    default: return 0;
    }
}

}  // namespace

int lstrWvprintf(char* destination, const char* format, va_list arguments) {
    char* out = destination;
    const char* f = format;
    Conversion conversion;
    while (*f != '\0') {
        if (*f != '%') {
            *out++ = *f++;
            continue;
        }
        ++f;
        if (*f == '%') {
            *out++ = '%';
            ++f;
            continue;
        }
        conversion.Begin();
        DWORD flags = 0;
        for (DWORD bit; (bit = FlagBit(*f)) != 0; ++f) {
            conversion.Append(*f);
            flags |= bit;
        }
        DWORD width = ReadNumber(&f, &conversion);
        DWORD precision = 6;
        while (*f == '.') {
            conversion.Append(*f++);
            precision = ReadNumber(&f, &conversion);
        }
        const char letter = *f;
        conversion.Append(letter);
        const char* text = conversion.End();
        int written;
        switch (letter) {
        case 'd':
        case 'i':
        case 'o':
        case 'u':
        case 'x':
        case 'X':
            written = wsprintfA(out, text, va_arg(arguments, int));
            break;
        case 'c':
            written = wsprintfA(out, text, static_cast<int>(static_cast<signed char>(va_arg(arguments, int))));
            break;
        case 's':
            written = wsprintfA(out, text, va_arg(arguments, const char*));
            break;
        case 'f':
            written = lscvtFdigit(va_arg(arguments, double), out, width, precision, flags);
            break;
        case 'e':
        case 'E':
            written = lscvtEdigit(va_arg(arguments, double), out, width, precision,
                                  letter == 'E' ? flags | LSCVT_UPPER : flags);
            break;
        case 'g':
        case 'G':
            written = lscvtGdigit(va_arg(arguments, double), out, width, precision,
                                  letter == 'G' ? flags | LSCVT_UPPER : flags);
            break;
        default:
            // No conversion: the walk goes on at this very byte as plain
            // text (a '%' there opens the next conversion; the end ends).
            continue;
        }
        if (written < 0) return -1;  // no terminator: what was written stays as it is
        out += written;
        ++f;
    }
    *out = '\0';
    return lstrlenA(destination);
}

int lstrWsprintf(char* destination, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int n = lstrWvprintf(destination, format, arguments);
    va_end(arguments);
    return n;
}
