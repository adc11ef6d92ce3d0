#include "files_support.hpp"

using namespace files_test;

namespace {

// Rows and what follows them; line 3 is the first.
std::string with(const std::string& text) { return "min x + y\nst\n" + text + "\nEnd\n"; }

}  // namespace

TEST("lp: a file with everything") {
    const Model model =
        lp("\\ a comment\n\\Problem name: all of it\nMAXIMIZE\nprofit: 2x + 3 y - z\n + 0 w + "
           "[ 4 x ^ 2 - 2 x*y ] / 2 + 10 \\ here too\n + 0 x[1] + 0 b + 0 s + 0 t + 0 p\n"
           "Subject To\n c1: x + y\n + x[1] <= +10\n c2: - x + - y => -4 x2: 3 <= x + z <= 5\n"
           "x + 2 >= 1 free: y + z - 3 >= -inf eq: 2 = w\n q: w + [ x^2 + 2 x * y ] <= 5\n"
           " ind: b = 0 -> x + w + x <= 7\n rev: 9 >= y >= 2\n"
           "Bounds\n x <= 4\n -inf <= y <= 8\n z free\n w = 3\n 1 <= x[1]\n s <= 10\n s >= 2\n"
           "General\n z x\nBinary\n b\nSemi-continuous\n s\nSemi-Integers\n t\n"
           "Partial-Integers\n p : 2.5\nThresholds t:1\nSOS\n one: S1:: x:1 y:2\n S2:: z:-1 w:3\n"
           "end\n");
    CHECK(model.name == "all of it");
    CHECK(model.sense == -1.0);
    CHECK(model.constant == 10.0);
    CHECK((model.qobj == std::vector<QuadTerm>{{0, 0, 2.0}, {0, 1, -1.0}}));
    const char* names[] = {"x", "y", "z", "w", "x[1]", "b", "s", "t", "p"};
    REQUIRE(model.cols() == 9);
    for (int col = 0; col < 9; ++col) CHECK(model.colnames.get(col) == names[col]);
    CHECK(std::string(model.coltype.begin(), model.coltype.end()) == "ICICCBSRP");
    CHECK((model.obj == std::vector<double>{2, 3, -1, 0, 0, 0, 0, 0, 0}));
    const double inf = kInfinity;
    CHECK((model.lower == std::vector<double>{0, -inf, -inf, 3, 1, 0, 0, 0, 0}));
    CHECK((model.upper == std::vector<double>{4, 8, inf, 3, inf, 1, 10, inf, inf}));
    CHECK((model.limit == std::vector<double>{0, 0, 0, 0, 0, 0, 2, 1, 2.5}));

    REQUIRE(model.rows() == 9);
    CHECK(std::string(model.rowtype.begin(), model.rowtype.end()) == "LGRGNELLR");
    CHECK((model.rhs == std::vector<double>{10, -4, 5, -1, 3, 2, 5, 7, 9}));
    CHECK((model.range == std::vector<double>{0, 0, 2, 0, 0, 0, 0, 0, 7}));
    CHECK(model.rownames.get(2) == "x2" && model.rownames.get(3) == "R4");
    CHECK((sorted_row(model, 1) == std::vector<std::pair<int, double>>{{0, -1}, {1, -1}}));
    CHECK((model.qrows.at(6) == std::vector<QuadTerm>{{0, 0, 1.0}, {0, 1, 2.0}}));
    CHECK((model.indicators.at(7) == Indicator{5, -1}));
    CHECK(model.matrix.get(7, 0) == 2.0);
    REQUIRE(model.sets.size() == 2);
    CHECK(model.setnames.get(0) == "one" && model.setnames.get(1) == "S2");
    CHECK((model.sets[1].cols == std::vector<int>{2, 3}));
    CHECK((model.sets[1].weights == std::vector<double>{-1, 3}));
}

TEST("lp: numbers, names and section names next to each other") {
    const Model model =
        lp("minimize\nst\n st: 3 st + 2 max + 2e1 e1 + 1e2x + 1.5 .x >= 1\n"
           "bin: 4 x + 2 end >= 1e30 bounds: x <= 3\nBOUNDS\n x >= -1e40\nEND\nnot read");
    REQUIRE(model.cols() == 6);
    CHECK(model.colnames.get(0) == "st" && model.colnames.get(4) == ".x");
    CHECK(model.matrix.get(0, 2) == 20.0 && model.matrix.get(0, 3) == 100.0);
    CHECK(model.rownames.get(1) == "bin" && model.rownames.get(2) == "bounds");
    CHECK(model.rhs[1] == kInfinity);
    CHECK(model.lower[3] == -kInfinity);
    // Rows of numbers only, where there are no columns.
    const Model empty = lp("max\nsubject to a: 0 >= 3\n b: 1 <= 0 <= 2 c: -5 >= -inf\nend");
    CHECK(empty.cols() == 0);
    CHECK(std::string(empty.rowtype.begin(), empty.rowtype.end()) == "GRN");
    CHECK((empty.rhs == std::vector<double>{3, 2, 5}));
    CHECK(difference(empty, lp(to_text(empty, Format::kLp))).empty());
    // An infinite end of a range leaves the other one alone.
    const Model ranges = lp(with("3 <= x + y <= 1e30\n -inf <= x + y <= 2"));
    CHECK(ranges.row_lower(0) == 3.0 && ranges.row_upper(0) == kInfinity);
    CHECK(ranges.row_lower(1) == -kInfinity && ranges.row_upper(1) == 2.0);
}

TEST("lp: ranges that subtraction would change are kept") {
    Model model;
    const double rhs[] = {1.0, 0.1, 1e20, 3.0};
    const double range[] = {1e-20, 0.3, 5.0, 1e20};
    const int64_t starts[] = {0, 0, 0, 0};
    model.add_rows(4, 0, "RRRR", rhs, range, starts, nullptr, nullptr);
    CHECK(difference(model, lp(to_text(model, Format::kLp))).empty());
    CHECK(difference(model, mps(to_text(model, Format::kMps))).empty());
}

TEST("lp: binary columns whose bounds were widened are written as integer") {
    Model model;
    const int64_t start = 0;
    model.add_cols(1, 0, nullptr, &start, nullptr, nullptr, nullptr, nullptr);
    model.set_type(0, 'B');
    model.set_bounds(0, 0.0, 3.0);
    for (const Format format : {Format::kLp, Format::kMps}) {
        const Model read = from_text(to_text(model, format), format);
        CHECK(read.coltype[0] == 'I' && read.upper[0] == 3.0);
    }
}

TEST("lp: errors tell file and line") {
    const auto fail = [](const std::string& text, int line, const char* part) {
        expect_error(text, Format::kLp, line, part);
    };
    fail("", 1, "expected Minimize");
    fail("x + y\n", 1, "expected Minimize");
    fail("min x +\n\nst\n x >= 1\nend", 3, "expected a term");
    fail("min x\n", 2, "expected Subject To");
    fail("min inf\nst\nend", 2, "infinite");
    fail("min [ x^2 ]\nst\nend", 1, "/ 2");
    fail("min [ x^3 ] / 2\nst\nend", 1, "2 behind ^");
    fail("min [ x ] / 2\nst\nend", 1, "^ 2 or *");
    fail("min 2 [ x^2 ] / 2\nst\nend", 1, "a sign before [");
    fail("min x\nst\n x >= 1\n", 4, "before End");
    const auto expect = [&](const std::string& text, int line, const char* part) {
        fail(with(text), line, part);
    };
    expect("a: x >= 1\na: y >= 1", 4, "row 'a' occurs twice");
    expect("x + y", 4, "expected <=");
    expect("x >= y", 3, "expected a number, found 'y'");
    expect("\n x >= 1.2.3", 4, "'1.2.3' is not a number");
    expect("x >= 1e999", 3, "out of range");
    expect("2 3 x >= 1", 3, "a sign between two numbers");
    expect("x + inf >= 1", 3, "infinite");
    expect("x + 1e25 y >= 1", 3, "infinite coefficient");
    expect("x <= -inf", 3, "no values");
    expect("5 <= x <= 4", 3, "no values");
    expect("1 <= x >= 4", 3, "same way");
    expect("2 x = 1 -> y <= 1", 3, "one binary column");
    expect("x = 1 -> y <= 1", 3, "not binary");
    expect("x @ >= 1", 3, "expected <=");
    expect("Bounds\n z <= 4", 4, "unknown column 'z'");
    expect("Bounds\n x <= 4\n x <= 5", 5, "contradicts");
    expect("Bounds\n x <= 4\n x free", 5, "contradicts");
    expect("Bounds\n x <= y", 4, "expected a number");
    expect("Bounds\n x <= 4\nBinary\n x", 6, "binary");
    expect("Binary\n x\nBounds\n x <= 4", 6, "contradicts");
    expect("Semis\n x\nBinary\n x", 6, "another type");
    expect("Generals\n x 5", 4, "expected a section");
    expect("General Constraints\n x = max(y)", 3, "cannot be read");
    expect("Partial-Integers\n x", 5, "a colon");
    expect("Thresholds\n x:1", 4, "not semi-continuous");
    expect("Thresholds\n x:-1", 4, "at least 0");
    expect("Thresholds\n x:1 x:2", 4, "second threshold");
    expect("SOS\n s: S3:: x:1", 4, "S1 or S2");
    expect("SOS\n s: S1:: x:1 x:2", 4, "twice");
    expect("SOS\n s: S1:: x:1\n s: S1:: y:1", 5, "set 's' occurs twice");
}
