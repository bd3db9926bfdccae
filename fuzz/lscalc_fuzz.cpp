// The formula evaluator on arbitrary bytes. Besides memory errors, checks
// what must hold for every input: the result is 0 to 7, the formula is left
// as it was, a value is stored only on 0, and a formula with a byte outside
// the permitted set gives 1.
#include <orvanest/ORVANEST.h>

#include <cstring>
#include <string>

#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    orvafuzz::Input input(data, size);
    orvafuzz::Text formula = input.NextText();
    const std::string before(formula.get());

    const double untouched = -12345.5;
    double value = untouched;
    int result = lscalcFormToReal(&value, formula.get());
    ORVAFUZZ_CHECK(result >= 0 && result <= 7);
    ORVAFUZZ_CHECK(before == formula.get());
    if (result != 0) ORVAFUZZ_CHECK(std::memcmp(&value, &untouched, sizeof value) == 0);
    if (before.find_first_not_of("0123456789+-*/.EeDd() \t") != std::string::npos) ORVAFUZZ_CHECK(result == 1);
    return 0;
}
