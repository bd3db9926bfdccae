// The formula evaluator: a line of arithmetic text to a double, in three
// passes over one call. Source .\LST\LSCALC; it sets no error and no mark,
// allocates nothing and calls nothing else of the library.
//
// 1. The character test: anything outside digits, the four operators, '.',
//    the exponent letters e E d D, parentheses, blank and tab gives 1.
// 2. The translation cuts tokens and turns them into a postfix byte string
//    (500 bytes at most) by an operator stack whose priorities are
//    16 x depth + 1 for '+' '-' and 16 x depth + 2 for '*' '/', so anything
//    inside a parenthesis goes before anything outside it. A sign may stand
//    only at the start of a group, and attaches to the group's first operand.
// 3. The evaluation walks the postfix string with a stack of doubles.
//
// The working state lives on the caller's stack, one instance per call, so
// two threads may evaluate at once. Its limits need no test on a push: at
// most two operators wait at each of the 11 depths, and no formula keeps
// more than 23 values at once.
#include <cmath>
#include <cstring>

#include <orvanest/ORVANEST.h>

#include "internal/sources.h"

#define LDE_THIS_SOURCE lde::g_srcLSCALC

namespace {

// Result codes, in the order the passes meet them.
enum Result {
    kDone = 0,
    kBadCharacter = 1,
    kTooDeep = 2,
    kUnbalanced = 3,
    kTokenTooLong = 4,
    kOutputFull = 5,
    kSyntax = 6,
    kDivideByZero = 7,
};

// Items of the postfix string. A number is its token's text and a zero; its
// first byte is above kEnd ('.', a digit or an exponent letter).
enum Item : unsigned char { kAdd = 1, kSubtract = 2, kMultiply = 3, kDivide = 4, kNegate = 6, kEnd = 10 };

constexpr int kOutputSize = 500;
constexpr int kMaxDepth = 10;
constexpr int kTokenSize = 32;  // 31 characters and a zero
constexpr double kSmallestDivisor = 1e-300;

const char kPermitted[] = "0123456789+-*/.EeDd() \t";

bool IsBlank(char c) { return c == ' ' || c == '\t'; }
bool IsExponentLetter(char c) { return c == 'e' || c == 'E' || c == 'd' || c == 'D'; }
bool IsSingle(char c) {
    return c == '+' || c == '-' || c == '*' || c == '/' || c == '(' || c == ')' || c == '\0';
}

// A token: one byte of the single set, or the text of a number.
struct Token {
    const char* start;
    int length;
    bool IsNumber() const { return !IsSingle(*start); }
};

// Cuts the token at *cursor and moves the cursor behind it; kTokenTooLong
// for a number longer than 31 characters.
int CutToken(const char** cursor, Token* token) {
    const char* p = *cursor;
    while (IsBlank(*p)) ++p;
    token->start = p;
    if (IsSingle(*p)) {
        token->length = 1;
        *cursor = *p != '\0' ? p + 1 : p;
        return kDone;
    }
    // The first byte is taken as it stands. A sign directly behind an
    // exponent letter belongs to the number: "1e-3" is one token.
    const char* q = p + 1;
    for (;; ++q) {
        char c = *q;
        if (c == '\0' || c == '*' || c == '/' || c == '(' || c == ')' || IsBlank(c)) break;
        if ((c == '+' || c == '-') && !IsExponentLetter(q[-1])) break;
    }
    token->length = static_cast<int>(q - p);
    *cursor = q;
    return token->length >= kTokenSize ? kTokenTooLong : kDone;
}

// The translation's state: the postfix output, the operator stack and the
// signs waiting at each depth.
class Translator {
public:
    explicit Translator(unsigned char* output) : cursor_(output) {}

    int Run(const char* formula);

private:
    enum State { kOpening, kOperator, kValue };

    struct Operator {
        unsigned char code;
        int priority;
    };

    // Writes n bytes, or, when they do not fit, nothing and the sticky error.
    void Write(const void* bytes, int n) {
        if (n > room_) {
            outputError_ = kOutputFull;
            return;
        }
        std::memcpy(cursor_, bytes, n);
        cursor_ += n;
        room_ -= n;
    }
    void WriteItem(unsigned char item) { Write(&item, 1); }

    // Writes and removes, from the top down, every operator whose priority
    // is not below the threshold.
    void Flush(int threshold) {
        while (stackCount_ > 0 && stack_[stackCount_ - 1].priority >= threshold) {
            WriteItem(stack_[--stackCount_].code);
        }
    }
    void Push(unsigned char code, int priority) {
        Flush(priority);
        stack_[stackCount_++] = {code, priority};
    }
    void DischargeSign(int depth) {
        if (pendingSign_[depth] == kNegate) {
            WriteItem(kNegate);
            pendingSign_[depth] = 0;
        }
    }

    // One token in the current state: kDone to go on, or a result.
    int Step(const Token& token);

    unsigned char* cursor_;
    int room_ = kOutputSize;
    int outputError_ = kDone;
    Operator stack_[24] = {};
    int stackCount_ = 0;
    int pendingSign_[kMaxDepth + 1] = {};
    int depth_ = 0;
    State state_ = kOpening;
    bool finished_ = false;
};

int Translator::Step(const Token& token) {
    const int level = 16 * depth_;
    if (token.IsNumber()) {
        if (state_ == kValue) return kSyntax;
        char text[kTokenSize];
        std::memcpy(text, token.start, token.length);
        text[token.length] = '\0';
        Write(text, token.length + 1);
        DischargeSign(depth_);
        state_ = kValue;
        return kDone;
    }
    switch (*token.start) {
    case '+':
    case '-':
        if (state_ == kOperator) return kSyntax;
        if (state_ == kOpening) {
            // A plus sign leaves no trace; a minus waits for the operand.
            if (*token.start == '-') pendingSign_[depth_] = kNegate;
        } else {
            Push(*token.start == '+' ? kAdd : kSubtract, level + 1);
        }
        state_ = kOperator;
        return kDone;
    case '*':
    case '/':
        if (state_ != kValue) return kSyntax;
        Push(*token.start == '*' ? kMultiply : kDivide, level + 2);
        state_ = kOperator;
        return kDone;
    case '(':
        // Behind a value, a parenthesis multiplies.
        if (state_ == kValue) Push(kMultiply, level + 2);
        if (depth_ == kMaxDepth) return kTooDeep;
        ++depth_;
        state_ = kOpening;
        return kDone;
    case ')':
        if (state_ != kValue) return kSyntax;
        Flush(level);
        if (depth_ == 0) return kUnbalanced;
        --depth_;
        DischargeSign(depth_);
        return kDone;
    default:  // the end of the text
        if (state_ != kValue) return kSyntax;
        Flush(level);
        if (depth_ != 0) return kUnbalanced;
        WriteItem(kEnd);
        finished_ = true;
        return outputError_;
    }
}

int Translator::Run(const char* formula) {
    const char* cursor = formula;
    while (!finished_) {
        Token token;
        int result = CutToken(&cursor, &token);
        if (result == kDone) result = Step(token);
        if (result == kDone) result = outputError_;
        if (result != kDone) return result;
    }
    return kDone;
}

// Walks the postfix string; kDone with the value, or the first failure in
// postfix order.
int Evaluate(const unsigned char* item, double* value) {
    double stack[24];
    int count = 0;
    for (;;) {
        unsigned char code = *item;
        if (code > kEnd) {
            const char* text = reinterpret_cast<const char*>(item);
            size_t length = std::strlen(text);
            char* end;
            double number = orvacrt::strtod(text, &end);
            if (end != text + length) return kSyntax;
            stack[count++] = number;
            item += length + 1;
            continue;
        }
        ++item;
        if (code == kEnd) {
            if (count != 1) return kSyntax;
            *value = stack[0];
            return kDone;
        }
        if (code == kNegate) {
            if (count < 1) return kSyntax;
            stack[count - 1] = -stack[count - 1];
            continue;
        }
        if (count < 2) return kSyntax;
        double right = stack[--count];
        double& left = stack[count - 1];
        switch (code) {
        case kAdd: left = left + right; break;
        case kSubtract: left = left - right; break;
        case kMultiply: left = left * right; break;
        default:
            // A NaN is divided by: only a magnitude known to be this small
            // stops the division.
            if (std::fabs(right) < kSmallestDivisor) return kDivideByZero;
            left = left / right;
            break;
        }
    }
}

}  // namespace

int lscalcFormToReal(double* value, char* formula) {
    if (orvacrt::_mbsspnp(formula, kPermitted) != nullptr) return kBadCharacter;
    unsigned char postfix[kOutputSize];
    Translator translator(postfix);
    int result = translator.Run(formula);
    if (result != kDone) return result;
    return Evaluate(postfix, value);
}
