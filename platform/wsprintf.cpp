// wsprintfA and wvsprintfA: a small printf for integers, characters and
// strings, with the 1024-byte limit of one formatted text.
//
// One pass over the format. Each conversion is parsed into a Spec, its
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

struct Spec {
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

const char* ParseSpec(const char* f, Spec* spec) {
    for (;; ++f) {
        switch (*f) {
        case '-': spec->left = true; continue;
        case '0': spec->zero = true; continue;
        case '#': spec->alt = true; continue;
        case '+': spec->plus = true; continue;
        case ' ': spec->blank = true; continue;
        default: break;
        }
        break;
    }
    spec->width = ReadNumber(f);
    if (*f == '.') {
        ++f;
        spec->precision = ReadNumber(f);
    }
    if (*f == 'h' || *f == 'l') spec->size = *f++;
    return f;
}

// Pads a finished body to the width: spaces in front, or behind with '-'.
void EmitPadded(Sink& sink, const Spec& spec, const char* body, size_t n) {
    int pad = spec.width > static_cast<int>(n) ? spec.width - static_cast<int>(n) : 0;
    if (!spec.left) sink.Repeat(' ', pad);
    sink.Put(body, n);
    if (spec.left) sink.Repeat(' ', pad);
}

// Lays out one integer: sign or prefix, zeros up to the precision (or up to
// the width with the '0' flag), digits, padding.
void EmitInteger(Sink& sink, const Spec& spec, unsigned long long magnitude, bool negative, unsigned base,
                 bool upper, bool isSigned) {
    const char* digitSet = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    char digits[24];
    int n = 0;
    if (!(magnitude == 0 && spec.precision == 0)) {
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
    int precision = spec.precision < 0 ? 1 : spec.precision;
    // '#' with octal asks for a leading zero, which a longer precision may
    // already give.
    if (spec.alt && base == 8 && (n == 0 || digits[n - 1] != '0') && precision <= n) precision = n + 1;

    char prefix[2];
    int prefixLen = 0;
    if (isSigned) {
        if (negative) prefix[prefixLen++] = '-';
        else if (spec.plus) prefix[prefixLen++] = '+';
        else if (spec.blank) prefix[prefixLen++] = ' ';
    } else if (spec.alt && base == 16 && nonZero) {
        prefix[prefixLen++] = '0';
        prefix[prefixLen++] = upper ? 'X' : 'x';
    }

    int zeros = precision > n ? precision - n : 0;
    int used = prefixLen + zeros + n;
    int pad = spec.width > used ? spec.width - used : 0;
    if (spec.zero && !spec.left && spec.precision < 0) {
        zeros += pad;
        pad = 0;
    }
    if (!spec.left) sink.Repeat(' ', pad);
    sink.Put(prefix, prefixLen);
    sink.Repeat('0', zeros);
    while (n > 0) sink.Put(digits[--n]);
    if (spec.left) sink.Repeat(' ', pad);
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
bool Convert(Sink& sink, const Spec& spec, char type, va_list* ap) {
    bool wide = spec.size == 'l';
    switch (type) {
    case 'd':
    case 'i': {
        long long v = SignedArg(ap, spec.size);
        unsigned long long m = v < 0 ? 0ull - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
        EmitInteger(sink, spec, m, v < 0, 10, false, true);
        return true;
    }
    case 'u':
        EmitInteger(sink, spec, UnsignedArg(ap, spec.size), false, 10, false, false);
        return true;
    case 'x':
    case 'X':
        EmitInteger(sink, spec, UnsignedArg(ap, spec.size), false, 16, type == 'X', false);
        return true;
    case 'o':
        EmitInteger(sink, spec, UnsignedArg(ap, spec.size), false, 8, false, false);
        return true;
    case 'p': {
        Spec full = spec;
        if (full.precision < 0) full.precision = static_cast<int>(2 * sizeof(void*));
        EmitInteger(sink, full, reinterpret_cast<uintptr_t>(va_arg(*ap, void*)), false, 16, true, false);
        return true;
    }
    case 'c': {
        if (wide) return false;
        char c = static_cast<char>(va_arg(*ap, int));
        EmitPadded(sink, spec, &c, 1);
        return true;
    }
    case 's': {
        if (wide) return false;
        const char* s = va_arg(*ap, const char*);
        if (s == nullptr) s = "(null)";
        size_t n = spec.precision < 0 ? std::strlen(s) : strnlen(s, static_cast<size_t>(spec.precision));
        EmitPadded(sink, spec, s, n);
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
        Spec spec;
        f = ParseSpec(f + 1, &spec);
        char type = *f;
        if (type == '\0') break;
        ++f;
        if (!Convert(sink, spec, type, &ap)) sink.Put(type);
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
