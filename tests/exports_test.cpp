// What leaves the two shared objects: the library exports only its own
// interface, the platform only its Win32/MFC/CRT subset and its extensions.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <regex>
#include <string>

namespace {

// Every defined dynamic symbol, demangled, with the decoration of class data
// taken off; a sanitizer build's own bookkeeping symbols are left out.
void ExpectOnly(const char* file, const std::regex& allowed) {
    const std::string command = std::string("nm -D --defined-only -C '") + file +
                                "' | cut -d' ' -f3- | grep -v '^__asan\\|^__odr_asan'" +
                                " | sed -e 's/^typeinfo name for //' -e 's/^typeinfo for //' -e 's/^vtable for //'";
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    int count = 0;
    for (char line[4096]; std::fgets(line, sizeof line, pipe) != nullptr; ++count) {
        const std::string name(line, std::strcspn(line, "\n"));
        EXPECT_TRUE(std::regex_search(name, allowed)) << file << " exports " << name;
    }
    pclose(pipe);
    EXPECT_GT(count, 10) << "nm gave nothing for " << file;
}

TEST(ExportsTest, LibraryExportsOnlyItsInterface) {
    std::regex allowed(
        "^(l_orvanest|ldbg|lsys|lavl|ldlist|lslist|lmem|lamlc|laemm|lbittbl|laear|lal|lexcept|lcppexcp|lstr|lschk|"
        "lscvt|lscalc|lcalc|lunitcir|lcfile|lfile|lseqfmt|lmembufs|lstack|lmemfile|lmemwork|lmmf)[A-Z][A-Za-z0-9]*\\("
        "|^(L_C[A-Za-z]+|LDE_CSourceInfo)(::|$)"
        "|^(L_C[A-Za-z]+|CException)\\*$");  // the type of a raised or caught pointer
    ExpectOnly(ORVANEST_LIBRARY_FILE, allowed);
}

TEST(ExportsTest, PlatformExportsOnlyItsSubsetAndExtensions) {
    std::regex allowed(
        "^[A-Z][A-Za-z0-9]*[a-z0-9A-Z]\\("    // Win32 functions and Afx*/Orva* extensions
        "|^[a-z]+[A-Za-z]*A\\("          // Win32 ANSI functions named in lower case (wsprintfA)
        "|^C[A-Z][A-Za-z]*(::|$)"              // MFC classes
        "|^orvacrt::"                          // the C runtime subset
        "|^operator[^(]*\\([^)]*CString");     // CString's free operators
    ExpectOnly(ORVANEST_PLATFORM_FILE, allowed);
}

}  // namespace
