// Dates as text: file times to calendar fields, and the date and time
// pictures of the one locale this platform has.
//
// The calendar is the proleptic Gregorian one counted in days from
// 1 January 1601 (a Monday). A picture is read element by element: a run of
// one letter is one element, quoted text is copied, any other byte is
// copied as it stands.
#include <cstring>

#include <orvanest/platform/win32_datetime.h>

namespace {

constexpr uint64_t kTicksPerSecond = 10000000;
constexpr int64_t kDaysFrom1601To1970 = 134774;

bool IsLeap(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysInMonth(int year, int month) {
    static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeap(year) ? 29 : kDays[month - 1];
}

// Year, month and day of a count of days since 1 January 1970 (the civil
// calendar by eras of 400 years).
void CivilFromDays(int64_t days, int* year, int* month, int* day) {
    days += 719468;
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const int64_t dayOfEra = days - era * 146097;
    const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t shifted = (5 * dayOfYear + 2) / 153;
    *day = static_cast<int>(dayOfYear - (153 * shifted + 2) / 5 + 1);
    *month = static_cast<int>(shifted < 10 ? shifted + 3 : shifted - 9);
    *year = static_cast<int>(yearOfEra + era * 400 + (*month <= 2 ? 1 : 0));
}

// Output that counts what it would write and stores while there is room.
class Text {
public:
    Text(char* out, int size) : out_(out), size_(size) {}
    void Put(char c) {
        if (out_ != nullptr && length_ < size_) out_[length_] = c;
        ++length_;
    }
    void Number(int value, int minDigits) {
        char digits[12];
        int n = 0;
        do {
            digits[n++] = static_cast<char>('0' + value % 10);
            value /= 10;
        } while (value != 0);
        while (n < minDigits) digits[n++] = '0';
        while (n > 0) Put(digits[--n]);
    }
    // The count with the terminator, or 0 with the last error set.
    int Finish() {
        Put('\0');
        if (size_ != 0 && length_ > size_) {
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return 0;
        }
        return length_;
    }

private:
    char* out_;
    int size_;
    int length_ = 0;
};

// One element of a picture: its letter and how often it repeats.
using ElementWriter = bool (*)(Text& text, char letter, int count, const SYSTEMTIME& t);

bool DateElement(Text& text, char letter, int count, const SYSTEMTIME& t) {
    switch (letter) {
    case 'd':
        if (count > 2) return false;  // names of days
        text.Number(t.wDay, count);
        return true;
    case 'M':
        if (count > 2) return false;  // names of months
        text.Number(t.wMonth, count);
        return true;
    case 'y':
        if (count <= 2) text.Number(t.wYear % 100, count);
        else text.Number(t.wYear, 4);
        return true;
    default: return false;
    }
}

bool TimeElement(Text& text, char letter, int count, const SYSTEMTIME& t) {
    int width = count > 1 ? 2 : 1;
    switch (letter) {
    case 'H': text.Number(t.wHour, width); return true;
    case 'h': text.Number(t.wHour % 12 == 0 ? 12 : t.wHour % 12, width); return true;
    case 'm': text.Number(t.wMinute, width); return true;
    case 's': text.Number(t.wSecond, width); return true;
    default: return false;
    }
}

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

int Format(DWORD flags, const SYSTEMTIME& t, const char* picture, char* out, int size, ElementWriter element) {
    if (flags != 0) {
        SetLastError(ERROR_INVALID_FLAGS);
        return 0;
    }
    if (size < 0 || (size > 0 && out == nullptr)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    Text text(size == 0 ? nullptr : out, size);
    for (const char* p = picture; *p != '\0';) {
        if (*p == '\'') {
            // Quoted text up to the closing quote; '' stands for one quote.
            for (++p; *p != '\0'; ++p) {
                if (*p == '\'') {
                    if (p[1] != '\'') {
                        ++p;
                        break;
                    }
                    ++p;
                }
                text.Put(*p);
            }
            continue;
        }
        if (!IsLetter(*p)) {
            text.Put(*p++);
            continue;
        }
        const char letter = *p;
        int count = 0;
        while (*p == letter) {
            ++p;
            ++count;
        }
        if (!element(text, letter, count, t)) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return 0;
        }
    }
    return text.Finish();
}

// The time given, or, for null, the local time now (kept in *now).
const SYSTEMTIME& GivenOrNow(const SYSTEMTIME* given, SYSTEMTIME* now) {
    if (given != nullptr) return *given;
    GetLocalTime(now);
    return *now;
}

}  // namespace

BOOL FileTimeToSystemTime(const FILETIME* lpFileTime, LPSYSTEMTIME lpSystemTime) {
    uint64_t ticks = (static_cast<uint64_t>(lpFileTime->dwHighDateTime) << 32) | lpFileTime->dwLowDateTime;
    if (ticks > 0x7FFFFFFFFFFFFFFFull) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const uint64_t seconds = ticks / kTicksPerSecond;
    const int64_t days = static_cast<int64_t>(seconds / 86400);
    const uint64_t secondOfDay = seconds % 86400;
    int year, month, day;
    CivilFromDays(days - kDaysFrom1601To1970, &year, &month, &day);
    lpSystemTime->wYear = static_cast<WORD>(year);
    lpSystemTime->wMonth = static_cast<WORD>(month);
    lpSystemTime->wDayOfWeek = static_cast<WORD>((days + 1) % 7);  // 1 January 1601 was a Monday
    lpSystemTime->wDay = static_cast<WORD>(day);
    lpSystemTime->wHour = static_cast<WORD>(secondOfDay / 3600);
    lpSystemTime->wMinute = static_cast<WORD>(secondOfDay / 60 % 60);
    lpSystemTime->wSecond = static_cast<WORD>(secondOfDay % 60);
    lpSystemTime->wMilliseconds = static_cast<WORD>(ticks / 10000 % 1000);
    return TRUE;
}

LCID GetSystemDefaultLCID(void) { return 0x0411; }

int GetDateFormatA(LCID, DWORD dwFlags, const SYSTEMTIME* lpDate, LPCSTR lpFormat, LPSTR lpDateStr, int cchDate) {
    SYSTEMTIME now;
    const SYSTEMTIME& t = GivenOrNow(lpDate, &now);
    if (t.wYear < 1601 || t.wYear > 30827 || t.wMonth < 1 || t.wMonth > 12 || t.wDay < 1 ||
        t.wDay > DaysInMonth(t.wYear, t.wMonth)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    return Format(dwFlags, t, lpFormat != nullptr ? lpFormat : "yyyy/MM/dd", lpDateStr, cchDate, DateElement);
}

int GetTimeFormatA(LCID, DWORD dwFlags, const SYSTEMTIME* lpTime, LPCSTR lpFormat, LPSTR lpTimeStr, int cchTime) {
    SYSTEMTIME now;
    const SYSTEMTIME& t = GivenOrNow(lpTime, &now);
    if (t.wHour > 23 || t.wMinute > 59 || t.wSecond > 59 || t.wMilliseconds > 999) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    return Format(dwFlags, t, lpFormat != nullptr ? lpFormat : "H:mm:ss", lpTimeStr, cchTime, TimeElement);
}
