// wsprintfA and wvsprintfA: a small printf for integers, characters and
// strings, with the 1024-byte limit of one formatted text.
//
// One pass over the format. Each conversion is parsed into a record, its
// argument is fetched by the size prefix, and the body (digits or string) is
// laid out with sign, prefix, zeros and padding as the flags say, in the same
// order C's printf uses. Output goes through a Sink that stops storing at the
// limit; parsing stops there too, since nothing more can be seen.
#include <cstring>

#include <orvanest/platform/win32_format.h>

namespace {

// Stores up to the limit less the terminator; everything after is dropped.
class Sink {
public:
    explicit Sink(char* out) : out_(out) {}
    bool Full() const { return len_ == kMax; }
    void Put(char c) {
        if (len_ < kMax) out_[len_++] = c;
    }
    void Put(const char* s, size_t n) {
        size_t room = kMax - len_;
        if (n > room) n = room;
        std::memcpy(out_ + len_, s, n);
        len_ += n;
    }
    void Repeat(char c, int n) {
        for (; n > 0 && len_ < kMax; --n) out_[len_++] = c;
    }
    int Finish() {
        out_[len_] = '\0';
        return static_cast<int>(len_);
    }

private:
    static constexpr size_t kMax = WSPRINTF_LIMIT - 1;
    char* out_;
    size_t len_ = 0;
};

struct Conversion {
    bool left = false;   // '-'
    bool zero = false;   // '0'
    bool alt = false;    // '#'
    bool plus = false;   // '+'
    bool blank = false;  // ' '
    int width = 0;
    int precision = -1;  // -1: none given
    char size = 0;       // 0, 'h' or 'l'
};

// Reads a run of decimal digits; widths beyond the limit mean nothing more
// than the limit, so the value is held there instead of overflowing.
int ReadNumber(const char*& f) {
    int n = 0;
    for (; *f >= '0' && *f <= '9'; ++f) {
        if (n < WSPRINTF_LIMIT) n = n * 10 + (*f - '0');
    }
    return n;
}

const char* ParseConversion(const char* f, Conversion* conv) {
    for (;; ++f) {
        switch (*f) {
        case '-': conv->left = true; continue;
        case '0': conv->zero = true; continue;
        case '#': conv->alt = true; continue;
        case '+': conv->plus = true; continue;
        case ' ': conv->blank = true; continue;
        default: break;
        }
        break;
    }
    conv->width = ReadNumber(f);
    if (*f == '.') {
        ++f;
        conv->precision = ReadNumber(f);
    }
    if (*f == 'h' || *f == 'l') conv->size = *f++;
    return f;
}

// Pads a finished body to the width: spaces in front, or behind with '-'.
void EmitPadded(Sink& sink, const Conversion& conv, const char* body, size_t n) {
    int pad = conv.width > static_cast<int>(n) ? conv.width - static_cast<int>(n) : 0;
    if (!conv.left) sink.Repeat(' ', pad);
    sink.Put(body, n);
    if (conv.left) sink.Repeat(' ', pad);
}

// Lays out one integer: sign or prefix, zeros up to the precision (or up to
// the width with the '0' flag), digits, padding.
void EmitInteger(Sink& sink, const Conversion& conv, unsigned long long magnitude, bool negative, unsigned base,
                 bool upper, bool isSigned) {
    const char* digitSet = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    char digits[24];
    int n = 0;
    if (!(magnitude == 0 && conv.precision == 0)) {
        // Each base gets its own loop, so that the division is by a constant
        // (a multiplication) or a shift; decimals of 32-bit arguments, the
        // usual case, take 32-bit arithmetic.
        switch (base) {
        case 16:
            do {
                digits[n++] = digitSet[magnitude & 15];
                magnitude >>= 4;
            } while (magnitude != 0);
            break;
        case 8:
            do {
                digits[n++] = digitSet[magnitude & 7];
                magnitude >>= 3;
            } while (magnitude != 0);
            break;
        default:
            if (magnitude <= 0xFFFFFFFFu) {
                uint32_t v = static_cast<uint32_t>(magnitude);
                do {
                    digits[n++] = static_cast<char>('0' + v % 10);
                    v /= 10;
                } while (v != 0);
            } else {
                do {
                    digits[n++] = static_cast<char>('0' + magnitude % 10);
                    magnitude /= 10;
                } while (magnitude != 0);
            }
            break;
        }
    }
    bool nonZero = n > 1 || (n == 1 && digits[0] != '0');
    int precision = conv.precision < 0 ? 1 : conv.precision;
    // '#' with octal asks for a leading zero, which a longer precision may
    // already give.
    if (conv.alt && base == 8 && (n == 0 || digits[n - 1] != '0') && precision <= n) precision = n + 1;

    char prefix[2];
    int prefixLen = 0;
    if (isSigned) {
        if (negative) prefix[prefixLen++] = '-';
        else if (conv.plus) prefix[prefixLen++] = '+';
        else if (conv.blank) prefix[prefixLen++] = ' ';
    } else if (conv.alt && base == 16 && nonZero) {
        prefix[prefixLen++] = '0';
        prefix[prefixLen++] = upper ? 'X' : 'x';
    }

    int zeros = precision > n ? precision - n : 0;
    int used = prefixLen + zeros + n;
    int pad = conv.width > used ? conv.width - used : 0;
    if (conv.zero && !conv.left && conv.precision < 0) {
        zeros += pad;
        pad = 0;
    }
    if (!conv.left) sink.Repeat(' ', pad);
    sink.Put(prefix, prefixLen);
    sink.Repeat('0', zeros);
    while (n > 0) sink.Put(digits[--n]);
    if (conv.left) sink.Repeat(' ', pad);
}

// Fetches the argument of an integer conversion by its size prefix: 'h'
// narrows to 16 bits, 'l' and none take 32 bits.
long long SignedArg(va_list* ap, char size) {
    int v = va_arg(*ap, int);
    return size == 'h' ? static_cast<short>(v) : v;
}

unsigned long long UnsignedArg(va_list* ap, char size) {
    unsigned v = va_arg(*ap, unsigned);
    return size == 'h' ? static_cast<unsigned short>(v) : v;
}

// Carries out one conversion; false when its type is unknown.
bool Convert(Sink& sink, const Conversion& conv, char type, va_list* ap) {
    bool wide = conv.size == 'l';
    switch (type) {
    case 'd':
    case 'i': {
        long long v = SignedArg(ap, conv.size);
        unsigned long long m = v < 0 ? 0ull - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
        EmitInteger(sink, conv, m, v < 0, 10, false, true);
        return true;
    }
    case 'u':
        EmitInteger(sink, conv, UnsignedArg(ap, conv.size), false, 10, false, false);
        return true;
    case 'x':
    case 'X':
        EmitInteger(sink, conv, UnsignedArg(ap, conv.size), false, 16, type == 'X', false);
        return true;
    case 'o':
        EmitInteger(sink, conv, UnsignedArg(ap, conv.size), false, 8, false, false);
        return true;
    case 'p': {
        Conversion full = conv;
        if (full.precision < 0) full.precision = static_cast<int>(2 * sizeof(void*));
        EmitInteger(sink, full, reinterpret_cast<uintptr_t>(va_arg(*ap, void*)), false, 16, true, false);
        return true;
    }
    case 'c': {
        if (wide) return false;
        char c = static_cast<char>(va_arg(*ap, int));
        EmitPadded(sink, conv, &c, 1);
        return true;
    }
    case 's': {
        if (wide) return false;
        const char* s = va_arg(*ap, const char*);
        if (s == nullptr) s = "(null)";
        size_t n = conv.precision < 0 ? std::strlen(s) : strnlen(s, static_cast<size_t>(conv.precision));
        EmitPadded(sink, conv, s, n);
        return true;
    }
    default:
        return false;
    }
}

}  // namespace

int wvsprintfA(LPSTR lpOut, LPCSTR lpFmt, va_list arglist) {
    va_list ap;
    va_copy(ap, arglist);
    Sink sink(lpOut);
    const char* f = lpFmt;
    while (*f != '\0' && !sink.Full()) {
        if (*f != '%') {
            sink.Put(*f++);
            continue;
        }
        Conversion conv;
        f = ParseConversion(f + 1, &conv);
        char type = *f;
        if (type == '\0') break;
        ++f;
        if (!Convert(sink, conv, type, &ap)) sink.Put(type);
    }
    va_end(ap);
    return sink.Finish();
}

int wsprintfA(LPSTR lpOut, LPCSTR lpFmt, ...) {
    va_list ap;
    va_start(ap, lpFmt);
    int n = wvsprintfA(lpOut, lpFmt, ap);
    va_end(ap);
    return n;
}
