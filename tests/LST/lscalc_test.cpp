// The formula evaluator: worked cases and limits, then seeded random
// formulas, well-formed and broken, against a reference evaluator written
// here as a recursive descent over the same grammar.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
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

TEST(Lscalc, WorkedCases) {
    struct Case {
        const char* formula;
        int result;
        double value;
    } cases[] = {
        {"", 6, 0},          {"  \t ", 6, 0},      {"1+2*3", 0, 7},      {"(1+2)*3", 0, 9},   {"2+3*4-5", 0, 9},
        {"1-2-3", 0, -4},    {"8/4/2", 0, 1},      {"2(3)", 0, 6},       {"(2)(3)", 0, 6},    {"2(-3)", 0, -6},
        {"(2)3", 6, 0},      {"2 3", 6, 0},        {"-3*2", 0, -6},      {"-(2+3)*4", 0, -20}, {"+3", 0, 3},
        {"2*-3", 6, 0},      {"--3", 6, 0},        {"+-3", 6, 0},        {"-+3", 6, 0},       {"1+", 6, 0},
        {"2*(-3)", 0, -6},   {"()", 6, 0},         {"(", 6, 0},          {")", 6, 0},         {"(2", 3, 0},
        {"2)", 3, 0},        {"1/0", 7, 0},        {"1/1e-301", 7, 0},   {"1e3", 0, 1000},    {"1d3", 0, 1000},
        {"1D+3", 0, 1000},   {"1e+3+4", 0, 1004},  {".5", 0, 0.5},       {"5.", 0, 5},        {".", 6, 0},
        {"1.2.3", 6, 0},     {"abc", 1, 0},        {"0x10", 1, 0},       {"1-3", 0, -2},      {"e5", 6, 0},
        {"2e", 6, 0},        {"1/0+1.2.3", 7, 0},  {"1.2.3+1/0", 6, 0},  {"(((1", 3, 0},      {"\t2 *\t( 1 + 1 )", 0, 4},
        {"1,5", 1, 0},       {"50%", 1, 0},        {"\x82\x50", 1, 0},   {"2(3)(4)", 0, 24},  {"-2+3", 0, 1},
        {"1/1e-300", 0, 1.0 / 1e-300}, {"1e999-1", 0, HUGE_VAL}, {"0/0.5", 0, 0}, {"-0", 0, -0.0},
    };
    for (const Case& c : cases) {
        Outcome o = Evaluate(c.formula);
        EXPECT_EQ(o.result, c.result) << '"' << c.formula << '"';
        if (c.result == 0 && o.result == 0) {
            EXPECT_EQ(o.value, c.value) << '"' << c.formula << '"';
        }
    }
    EXPECT_TRUE(std::signbit(Evaluate("-0").value));
}

// The limits: ten levels of parentheses, 31-byte numbers, the 500-byte
// postfix buffer, the deepest value stack. A fault is reported at the token
// that causes it, before a later one.
TEST(Lscalc, Limits) {
    auto ones = [](int n) {
        std::string s = "1";
        while (--n > 0) s += "+1";
        return s;
    };
    std::string deepest;
    for (int i = 0; i < 10; ++i) deepest += "1+1*(";
    deepest += "1+1*1" + std::string(10, ')');
    const struct {
        std::string formula;
        int result;
        double value;
    } cases[] = {
        {std::string(10, '(') + "7" + std::string(10, ')'), 0, 7}, {std::string(11, '(') + "7" + std::string(11, ')'), 2, 0},
        {"*" + std::string(11, '('), 6, 0},          {std::string(31, '1'), 0, 1111111111111111111111111111111.0},
        {std::string(32, '1'), 4, 0},                {"1+" + std::string(32, '1') + ")", 4, 0},
        {"1)+" + std::string(32, '1'), 3, 0},        {ones(166), 0, 166},  // 332 + 165 + 1 = 498 bytes
        {ones(167), 5, 0},  {ones(300) + ")", 5, 0}, {ones(300) + "/0", 5, 0}, {deepest, 0, 12},
    };
    for (const auto& c : cases) {
        Outcome o = Evaluate(c.formula);
        EXPECT_EQ(o.result, c.result) << c.formula;
        if (c.result == 0) {
            EXPECT_EQ(o.value, c.value) << c.formula;
        }
    }
}

// ---- the reference --------------------------------------------------------------------
// A recursive descent over the same grammar: expression = [sign] term {(+|-)
// term}; term = operand {(*|/) operand | operand that is a parenthesis};
// operand = number | ( expression ). Evaluation walks the tree in post-order,
// the order of the postfix string, whose bytes the parse counts.
struct Node {
    char op = 0;  // 0 number, 'n' negate, or + - * /
    std::string number;
    std::unique_ptr<Node> left, right;
};
using Tree = std::unique_ptr<Node>;

class Reference {
public:
    explicit Reference(const std::string& text) : text_(text) {}

    Outcome Run() {
        if (text_.find_first_not_of("0123456789+-*/.EeDd() \t") != std::string::npos) return {1, 0};
        Tree root;
        if (int r = Expression(0, &root)) return {r, 0};
        if (bytes_ + 1 > 500) return {5, 0};
        double value = 0;
        int r = Compute(*root, &value);
        return {r, value};
    }

private:
    // Tokens as the evaluator cuts them; 4 for one that is too long.
    int Peek(std::string* token) {
        size_t p = pos_;
        while (p < text_.size() && (text_[p] == ' ' || text_[p] == '\t')) ++p;
        size_t q = p;
        if (p < text_.size() && std::strchr("+-*/()", text_[p]) != nullptr) {
            q = p + 1;
        } else if (p < text_.size()) {
            for (++q; q < text_.size() && std::strchr("*/() \t", text_[q]) == nullptr &&
                      !((text_[q] == '+' || text_[q] == '-') && std::strchr("eEdD", text_[q - 1]) == nullptr);
                 ++q) {
            }
        }
        *token = text_.substr(p, q - p);
        end_ = q;
        return q - p > 31 ? 4 : 0;
    }
    void Take() { pos_ = end_; }
    Tree Join(char op, Tree left, Tree right = nullptr) {
        auto n = std::make_unique<Node>();
        n->op = op;
        n->left = std::move(left);
        n->right = std::move(right);
        ++bytes_;
        return n;
    }

    // An expression from the opening of a group; it stops at ')' or the end
    // and leaves that to the caller.
    int Expression(int depth, Tree* out) {
        std::string t;
        if (int r = Peek(&t)) return r;
        const bool negate = t == "-";
        if (t == "+" || t == "-") Take();
        Tree tree;
        if (int r = Term(depth, negate, &tree)) return r;
        for (;;) {
            if (int r = Peek(&t)) return r;
            if (t == "+" || t == "-") {
                Take();
                Tree right;
                if (int r = Term(depth, false, &right)) return r;
                tree = Join(t[0], std::move(tree), std::move(right));
            } else if (t == ")" || t.empty()) {
                if ((depth == 0) == (t == ")")) return 3;
                *out = std::move(tree);
                return 0;
            } else {
                return 6;  // a number behind a value
            }
        }
    }

    int Term(int depth, bool negateFirst, Tree* out) {
        Tree tree;
        if (int r = Operand(depth, &tree)) return r;
        if (negateFirst) tree = Join('n', std::move(tree));
        for (std::string t;;) {
            if (int r = Peek(&t)) return r;
            if (t != "*" && t != "/" && t != "(") {
                *out = std::move(tree);
                return 0;
            }
            if (t != "(") Take();
            Tree right;
            if (int r = Operand(depth, &right)) return r;
            tree = Join(t == "/" ? '/' : '*', std::move(tree), std::move(right));
        }
    }

    int Operand(int depth, Tree* out) {
        std::string t;
        if (int r = Peek(&t)) return r;
        if (!t.empty() && std::strchr("+-*/()", t[0]) == nullptr) {
            Take();
            *out = std::make_unique<Node>();
            (*out)->number = t;
            bytes_ += static_cast<int>(t.size()) + 1;
            return 0;
        }
        if (t != "(") return 6;
        if (depth == 10) return 2;
        Take();
        if (int r = Expression(depth + 1, out)) return r;
        Take();  // the ')' that Expression stopped at
        return 0;
    }

    static int Compute(const Node& n, double* value) {
        if (n.op == 0) {
            std::string s = n.number;
            for (char& c : s) c = (c == 'd' || c == 'D') ? 'e' : c;
            char* end;
            *value = std::strtod(s.c_str(), &end);
            return end == s.c_str() + s.size() ? 0 : 6;
        }
        double a = 0, b = 0;
        if (int r = Compute(*n.left, &a)) return r;
        if (n.op == 'n') {
            *value = -a;
            return 0;
        }
        if (int r = Compute(*n.right, &b)) return r;
        if (n.op == '/' && std::fabs(b) < 1e-300) return 7;
        *value = n.op == '+' ? a + b : n.op == '-' ? a - b : n.op == '*' ? a * b : a / b;
        return 0;
    }

    std::string text_;
    size_t pos_ = 0, end_ = 0;
    int bytes_ = 0;
};

// Random formulas of the grammar, with blanks and tabs between tokens.
class Generator {
public:
    explicit Generator(uint32_t seed) : random_(seed) {}

    std::string Formula() {
        budget_ = 1 + static_cast<int>(random_() % 40);
        return Expression(0);
    }

    std::string Mutate(std::string s) {
        static const char kBytes[] = "0123456789+-*/.eEdD() \t";
        int edits = 1 + static_cast<int>(random_() % 3);
        for (int i = 0; i < edits; ++i) {
            size_t at = s.empty() ? 0 : random_() % (s.size() + 1);
            char c = random_() % 50 == 0 ? "x%,\x82"[random_() % 4] : kBytes[random_() % (sizeof kBytes - 1)];
            switch (random_() % 3) {
            case 0: s.insert(s.begin() + at, c); break;
            case 1:
                if (at < s.size()) s.erase(at, 1);
                break;
            default:
                if (at < s.size()) s[at] = c;
            }
        }
        return s;
    }

private:
    std::string Blank() {
        static const char* kBlanks[] = {" ", "\t", "  ", "", "", "", "", ""};
        return kBlanks[random_() % 8];
    }

    std::string Number() {
        static const char* kForms[] = {"%d", "%d.%d", ".%d", "%d.", "%de%d", "%d.%dE-%d", "%dd%d", "%dD+%d", "0"};
        char buffer[64];
        int a = static_cast<int>(random_() % 1000), b = static_cast<int>(random_() % 100),
            c = static_cast<int>(random_() % 12);
        std::snprintf(buffer, sizeof buffer, kForms[random_() % 9], a, b, c);
        return buffer;
    }

    std::string Operand(int depth) {
        if (depth < 10 && budget_ > 0 && random_() % 3 == 0) return "(" + Blank() + Expression(depth + 1) + ")";
        --budget_;
        return Number();
    }

    std::string Expression(int depth) {
        std::string s;
        if (random_() % 4 == 0) s += random_() % 2 ? "-" : "+";
        s += Blank() + Operand(depth);
        int more = static_cast<int>(random_() % 4);
        for (int i = 0; i < more && budget_ > 0; ++i) {
            if (depth < 10 && random_() % 6 == 0) {
                s += Blank() + "(" + Expression(depth + 1) + ")";  // multiplication by juxtaposition
                continue;
            }
            s += Blank() + "+-*/"[random_() % 4] + Blank() + Operand(depth);
        }
        return s + Blank();
    }

    std::mt19937 random_;
    int budget_ = 0;
};

bool SameOutcome(const Outcome& a, const Outcome& b) {
    if (a.result != b.result) return false;
    if (a.result != 0) return true;
    return std::memcmp(&a.value, &b.value, sizeof a.value) == 0 || (std::isnan(a.value) && std::isnan(b.value));
}

// Runs count formulas from make against the reference; tallies the results.
template <typename Make>
std::vector<int> CompareWithReference(int count, Make make) {
    std::vector<int> results(8, 0);
    for (int i = 0; i < count; ++i) {
        std::string f = make();
        Outcome expected = Reference(f).Run();
        Outcome got = Evaluate(f);
        EXPECT_TRUE(SameOutcome(got, expected))
            << '"' << f << "\" gave " << got.result << " " << got.value << ", reference " << expected.result << " "
            << expected.value;
        if (!SameOutcome(got, expected)) break;
        ++results[got.result];
    }
    return results;
}

TEST(LscalcRandom, WellFormedFormulasMatchTheReference) {
    Generator generator(7);
    std::vector<int> results = CompareWithReference(20000, [&] { return generator.Formula(); });
    EXPECT_GT(results[0], 10000);  // mostly values, with some divisions by 0 and overflows
}

TEST(LscalcRandom, BrokenFormulasMatchTheReference) {
    Generator generator(11);
    std::vector<int> results = CompareWithReference(40000, [&] { return generator.Mutate(generator.Formula()); });
    for (int r : {0, 1, 3, 6, 7}) EXPECT_GT(results[r], 0) << "no formula gave " << r;
}

}  // namespace
