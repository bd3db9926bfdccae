// What leaves the two shared objects: the library exports only its own
// interface, the platform only its Win32/MFC/CRT subset and its extensions.
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>
#include <vector>

namespace {

std::vector<std::string> ExportedNames(const char* file) {
    std::string command = std::string("nm -D --defined-only -C '") + file + "'";
    std::vector<std::string> names;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return names;
    char line[4096];
    while (std::fgets(line, sizeof line, pipe) != nullptr) {
        std::string s(line);
        if (!s.empty() && s.back() == '\n') s.pop_back();
        // "<address> <type> <name>"
        size_t first = s.find(' ');
        size_t second = first == std::string::npos ? first : s.find(' ', first + 1);
        if (second == std::string::npos) continue;
        std::string name = s.substr(second + 1);
        // Symbols that a sanitizer build adds for its own bookkeeping.
        if (name.rfind("__odr_asan", 0) == 0 || name.rfind("__asan", 0) == 0) continue;
        names.push_back(name);
    }
    pclose(pipe);
    return names;
}

// Takes the decoration of class data off: what remains starts with the name
// that must be allowed.
std::string Undecorate(std::string name) {
    for (const char* prefix : {"typeinfo name for ", "typeinfo for ", "vtable for "}) {
        if (name.rfind(prefix, 0) == 0) return name.substr(std::string(prefix).size());
    }
    return name;
}

void ExpectOnly(const char* file, const std::regex& allowed) {
    std::vector<std::string> names = ExportedNames(file);
    ASSERT_GT(names.size(), 10u) << "nm gave nothing for " << file;
    for (const std::string& name : names) {
        EXPECT_TRUE(std::regex_search(Undecorate(name), allowed)) << file << " exports " << name;
    }
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
