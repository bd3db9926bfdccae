// The formula evaluator: worked cases and limits, then seeded random
// formulas, well-formed and broken, against a recursive-descent reference.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include <orvanest/ORVANEST.h>

namespace {

struct Outcome {
    int result;
    double value;
};

Outcome Evaluate(const std::string& formula) {
    std::string copy = formula;
    double value = 12345.0;
    int result = lscalcFormToReal(&value, copy.data());
    EXPECT_EQ(copy, formula) << "the formula was changed";
    if (result != 0) {
        EXPECT_EQ(value, 12345.0) << "a value was stored on failure: " << formula;
    }
    return {result, value};
}

// Cases the random formulas seldom or never make: odd characters, exact
// values, the divisor bound, and the limits (ten levels of parentheses,
// 31-byte numbers, the 500-byte postfix buffer, the deepest value stack),
// each reported at the token that causes it.
TEST(Lscalc, WorkedCasesAndLimits) {
    auto ones = [](int n) {
        std::string s = "1";
        while (--n > 0) s += "+1";
        return s;
    };
    std::string deepest;
    for (int i = 0; i < 10; ++i) deepest += "1+1*(";
    deepest += "1+1*1" + std::string(10, ')');
    const std::string open10(10, '('), close10(10, ')');
    const struct {
        std::string formula;
        int result;
        double value;
    } cases[] = {
        {"", 6, 0},         {"  \t ", 6, 0},       {"1+2*3", 0, 7},     {"(2)(3)", 0, 6},     {"(2)3", 6, 0},
        {"2*-3", 6, 0},     {"-(2+3)*4", 0, -20},  {"1D+3", 0, 1000},   {"1.2.3+1/0", 6, 0},  {"1/0+1.2.3", 7, 0},
        {"abc", 1, 0},      {"0x10", 1, 0},        {"1,5", 1, 0},       {"50%", 1, 0},        {"\x82\x50", 1, 0},
        {"1/1e-301", 7, 0}, {"1/1e-300", 0, 1 / 1e-300}, {"1e999-1", 0, HUGE_VAL}, {"(((1", 3, 0}, {"2)", 3, 0},
        {open10 + "7" + close10, 0, 7},           {"(" + open10 + "7" + close10 + ")", 2, 0},
        {"*" + std::string(11, '('), 6, 0},       {std::string(31, '1'), 0, 1111111111111111111111111111111.0},
        {std::string(32, '1'), 4, 0},             {"1+" + std::string(32, '1') + ")", 4, 0},
        {"1)+" + std::string(32, '1'), 3, 0},     {ones(166), 0, 166},  // 332 + 165 + 1 = 498 bytes
        {ones(167), 5, 0},  {ones(300) + ")", 5, 0}, {ones(300) + "/0", 5, 0}, {deepest, 0, 12},
    };
    for (const auto& c : cases) {
        Outcome o = Evaluate(c.formula);
        EXPECT_EQ(o.result, c.result) << '"' << c.formula << '"';
        if (c.result == 0 && o.result == 0) {
            EXPECT_EQ(o.value, c.value) << '"' << c.formula << '"';
        }
    }
    EXPECT_TRUE(std::signbit(Evaluate("-0").value));
}

// expression = [sign] term {(+|-) term}; term = operand {(*|/) operand |
// operand that is a parenthesis}; operand = number | ( expression ). Values
// are computed as nodes complete, the order of the postfix string; the first
// failure to compute counts only when the whole text parses.
class Reference {
public:
    // Tokens as the evaluator cuts them: an operator or parenthesis, or a
    // number that runs to the next of them or a blank, a sign behind an
    // exponent letter belonging to it.
    explicit Reference(const std::string& text) {
        static const std::regex kToken("[ \t]*([-+*/()]|([eEdD][-+]?|[^-+*/() \t])+)");
        for (std::sregex_iterator i(text.begin(), text.end(), kToken), end; i != end; ++i) tokens_.push_back((*i)[1]);
        valid_ = text.find_first_not_of("0123456789+-*/.EeDd() \t") == std::string::npos;
    }

    Outcome Run() {
        if (!valid_) return {1, 0};
        double value = 0;
        if (int r = Expression(0, &value)) return {r, 0};
        if (bytes_ + 1 > 500) return {5, 0};
        return {failure_, value};
    }

private:
    // The next token, "" at the end; 4 when it is too long.
    int Peek(std::string* token) {
        *token = next_ < tokens_.size() ? tokens_[next_] : "";
        return token->size() > 31 ? 4 : 0;
    }
    void Take() { ++next_; }
    double Apply(char op, double a, double b) {
        ++bytes_;
        if (op == '/' && std::fabs(b) < 1e-300 && failure_ == 0) failure_ = 7;
        return op == '+' ? a + b : op == '-' ? a - b : op == '*' ? a * b : a / b;
    }

    int Expression(int depth, double* out) {
        std::string t;
        if (int r = Peek(&t)) return r;
        if (t == "+" || t == "-") Take();
        if (int r = Term(depth, t == "-", out)) return r;
        for (;;) {
            if (int r = Peek(&t)) return r;
            if (t == ")" || t.empty()) return (depth == 0) == (t == ")") ? 3 : 0;
            if (t != "+" && t != "-") return 6;  // a number behind a value
            Take();
            double right;
            if (int r = Term(depth, false, &right)) return r;
            *out = Apply(t[0], *out, right);
        }
    }

    int Term(int depth, bool negate, double* out) {
        if (int r = Operand(depth, out)) return r;
        if (negate) {
            *out = -*out;
            ++bytes_;
        }
        for (std::string t;;) {
            if (int r = Peek(&t)) return r;
            if (t != "*" && t != "/" && t != "(") return 0;
            if (t != "(") Take();
            double right;
            if (int r = Operand(depth, &right)) return r;
            *out = Apply(t == "/" ? '/' : '*', *out, right);
        }
    }

    int Operand(int depth, double* out) {
        std::string t;
        if (int r = Peek(&t)) return r;
        if (t == "(") {
            if (depth == 10) return 2;
            Take();
            if (int r = Expression(depth + 1, out)) return r;
            Take();  // the ')' that Expression stopped at
            return 0;
        }
        if (t.empty() || std::strchr("+-*/)", t[0]) != nullptr) return 6;
        Take();
        bytes_ += static_cast<int>(t.size()) + 1;
        for (char& c : t) c = (c == 'd' || c == 'D') ? 'e' : c;
        char* end;
        *out = std::strtod(t.c_str(), &end);
        if (*end != '\0' && failure_ == 0) failure_ = 6;
        return 0;
    }

    std::vector<std::string> tokens_;
    size_t next_ = 0;
    bool valid_;
    int bytes_ = 0, failure_ = 0;
};

// Random formulas of the grammar with blanks and tabs between tokens, and
// mutations of them.
class Generator {
public:
    explicit Generator(uint32_t seed) : random_(seed) {}

    std::string Formula() {
        budget_ = 1 + Below(40);
        return Expression(0);
    }

    std::string Mutate(std::string s) {
        static const char kBytes[] = "0123456789+-*/.eEdD() \t";
        for (int edits = 1 + Below(3); edits > 0; --edits) {
            size_t at = Below(static_cast<int>(s.size()) + 1);
            char c = Below(50) == 0 ? "x%,\x82"[Below(4)] : kBytes[Below(sizeof kBytes - 1)];
            const int kind = Below(3);
            if (kind == 0) {
                s.insert(s.begin() + at, c);
            } else if (at < s.size()) {
                kind == 1 ? void(s.erase(at, 1)) : void(s[at] = c);
            }
        }
        return s;
    }

private:
    int Below(int n) { return static_cast<int>(random_() % n); }
    std::string Blank() { return std::string(" \t  ").substr(Below(4), Below(3) == 0); }

    std::string Operand(int depth) {
        if (depth < 10 && budget_ > 0 && Below(3) == 0) return "(" + Blank() + Expression(depth + 1) + ")";
        --budget_;
        static const char* kForms[] = {"%d", "%d.%d", ".%d", "%d.", "%de%d", "%d.%dE-%d", "%dd%d", "%dD+%d", "0"};
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, kForms[Below(9)], Below(1000), Below(100), Below(12));
        return buffer;
    }

    std::string Expression(int depth) {
        std::string s = Below(4) == 0 ? (Below(2) ? "-" : "+") : "";
        s += Blank() + Operand(depth);
        for (int more = Below(4); more > 0 && budget_ > 0; --more) {
            if (depth < 10 && Below(6) == 0) {
                s += Blank() + "(" + Expression(depth + 1) + ")";  // multiplication by juxtaposition
            } else {
                s += Blank() + "+-*/"[Below(4)] + Blank() + Operand(depth);
            }
        }
        return s + Blank();
    }

    std::mt19937 random_;
    int budget_ = 0;
};

TEST(LscalcRandom, WellFormedAndBrokenFormulasMatchTheReference) {
    Generator generator(7);
    std::vector<int> results(8, 0);
    for (int i = 0; i < 60000; ++i) {
        std::string f = generator.Formula();
        if (i % 3 != 0) f = generator.Mutate(f);
        Outcome want = Reference(f).Run(), got = Evaluate(f);
        const bool same = got.result == want.result &&
                          (got.result != 0 || std::memcmp(&got.value, &want.value, sizeof got.value) == 0 ||
                           (std::isnan(got.value) && std::isnan(want.value)));
        ASSERT_TRUE(same) << '"' << f << "\" gave " << got.result << " " << got.value << ", reference "
                          << want.result << " " << want.value;
        ++results[got.result];
    }
    EXPECT_GT(results[0], 10000) << "mostly values";
    for (int r : {1, 3, 6, 7}) EXPECT_GT(results[r], 0) << "no formula gave " << r;
}

}  // namespace
