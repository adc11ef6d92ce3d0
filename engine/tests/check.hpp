// A minimal test harness, for the tests of the engine and for the parts of the extension that know
// no Python. One test file of an executable defines CHECK_MAIN before including this header.
//
//   TEST("store: a row can be deleted") { CHECK(rows() == 2); CHECK_NEAR(x, 1.5, 1e-9); }
//
// A failed check is reported and the test goes on; REQUIRE ends the test. An exception fails it.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <exception>
#include <vector>

namespace check {

struct Test {
    const char* name;
    void (*body)();
};

struct Abort {};

inline std::vector<Test>& tests() {
    static std::vector<Test> all;
    return all;
}

inline int& failures() {
    static int count = 0;
    return count;
}

struct Register {
    Register(const char* name, void (*body)()) { tests().push_back({name, body}); }
};

inline bool report(bool ok, const char* file, int line, const char* text) {
    if (!ok) {
        ++failures();
        std::fprintf(stderr, "%s:%d: failed: %s\n", file, line, text);
    }
    return ok;
}

inline bool report_near(double a, double b, double tolerance, const char* file, int line,
                        const char* text) {
    // Written so that NaN fails; equal infinities pass.
    const bool ok = a == b || std::fabs(a - b) <= tolerance;
    if (!ok) {
        ++failures();
        std::fprintf(stderr, "%s:%d: failed: %s (%.17g against %.17g)\n", file, line, text, a, b);
    }
    return ok;
}

// Runs one test; true when no check in it failed.
inline bool run(const Test& test) {
    const int before = failures();
    try {
        test.body();
    } catch (const Abort&) {
    } catch (const std::exception& error) {
        ++failures();
        std::fprintf(stderr, "unexpected exception: %s\n", error.what());
    } catch (...) {
        ++failures();
        std::fprintf(stderr, "unexpected exception\n");
    }
    if (failures() == before) return true;
    std::fprintf(stderr, "FAILED %s\n", test.name);
    return false;
}

// Runs all tests, or those whose names start with one of the arguments. No match is a failure.
inline int run_all(int argc, char** argv) {
    int passed = 0;
    int failed = 0;
    for (const Test& test : tests()) {
        bool wanted = argc < 2;
        for (int i = 1; i < argc; ++i) {
            wanted = wanted || std::strncmp(test.name, argv[i], std::strlen(argv[i])) == 0;
        }
        if (wanted) ++(run(test) ? passed : failed);
    }
    std::printf("%d passed, %d failed\n", passed, failed);
    return failed == 0 && passed > 0 ? 0 : 1;
}

}  // namespace check

#define CHECK_CONCAT2(a, b) a##b
#define CHECK_CONCAT(a, b) CHECK_CONCAT2(a, b)
#define TEST(name) CHECK_TEST(name, CHECK_CONCAT(check_test_, __COUNTER__))
#define CHECK_TEST(name, function)                                                  \
    static void function();                                                         \
    static const check::Register CHECK_CONCAT(register_, function)(name, function); \
    static void function()

#define CHECK(condition) check::report(static_cast<bool>(condition), __FILE__, __LINE__, #condition)
#define CHECK_NEAR(a, b, tolerance) \
    check::report_near((a), (b), (tolerance), __FILE__, __LINE__, #a " is near " #b)
#define REQUIRE(condition)                           \
    do {                                             \
        if (!CHECK(condition)) throw check::Abort{}; \
    } while (false)
#define CHECK_THROWS(expression, exception)                                           \
    do {                                                                              \
        bool thrown = false;                                                          \
        try {                                                                         \
            static_cast<void>(expression);                                            \
        } catch (const exception&) {                                                  \
            thrown = true;                                                            \
        }                                                                             \
        check::report(thrown, __FILE__, __LINE__, #expression " throws " #exception); \
    } while (false)

#ifdef CHECK_MAIN
int main(int argc, char** argv) { return check::run_all(argc, argv); }
#endif
