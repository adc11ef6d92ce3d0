#include <cmath>

#include "files_support.hpp"

using namespace files_test;

namespace {

// A file with the given sections behind ROWS and COLUMNS; line 9 is the first of them.
std::string with(const std::string& sections) {
    return "NAME t\nROWS\n N cost\n L a\n G b\n E c\nCOLUMNS\n x cost 1 a 2\n y b 3 c 4\n" +
           sections + "ENDATA\n";
}

}  // namespace

TEST("mps: the data files") {
    Model afiro;
    read_model(afiro, NALORA_TEST_DATA "/afiro.mps", "");
    CHECK(afiro.name == "AFIRO");
    CHECK(afiro.rows() == 27);
    CHECK(afiro.cols() == 32);
    CHECK(afiro.matrix.nonzeros() == 83);
    CHECK(afiro.rhs[afiro.rownames.find("X50")] == 310.0);

    Model p0033;
    read_model(p0033, NALORA_TEST_DATA "/p0033.mps", "");
    CHECK(p0033.rows() == 16);
    CHECK(p0033.cols() == 33);
    CHECK(p0033.matrix.nonzeros() == 98);
    CHECK(p0033.mip_entities() == 33);
    CHECK(p0033.upper[0] == 1.0);
    CHECK(p0033.obj[p0033.colnames.find("C158")] == 171.0);
}

TEST("mps: objective rows, sense, constant and free rows") {
    const Model model =
        mps("* comment\n\nNAME  a name with blanks \r\nOBJSENSE\n  MAX\nOBJNAME\n profit\nROWS\n"
            " N  other\n N  profit\n L  profits\n\n* comment\nCOLUMNS\n x profit 3 other 4\n"
            " x profits 1d1\nRHS\n profit -7 other 2\nENDATA\ntrailing text is ignored");
    CHECK(model.name == "a name with blanks");
    CHECK(model.sense == -1.0);
    CHECK(model.constant == 7.0);
    CHECK(model.rows() == 2);
    CHECK(model.rowtype[0] == 'N');
    CHECK(model.rhs[0] == 2.0);
    CHECK(model.matrix.get(0, 0) == 4.0);
    CHECK(model.matrix.get(1, 0) == 10.0);
    CHECK(mps("NAME\nOBJSENSE MAXIMIZE\nROWS\n L a\nCOLUMNS\n x a 1\nENDATA\n").sense == -1.0);
    // A row may have the name that the writer likes for the objective.
    Model clash;
    const char type = 'L';
    const double rhs = 5.0;
    const int64_t start = 0;
    clash.add_rows(1, 0, &type, &rhs, nullptr, &start, nullptr, nullptr);
    clash.rownames.set(0, "OBJ");
    CHECK(difference(clash, mps(to_text(clash, Format::kMps))).empty());
}

TEST("mps: the sign rule of ranges") {
    const char* text =
        "NAME\nROWS\n N o\n L l\n G g\n E p\n E n\n E z\nCOLUMNS\n x l 1 g 1\n x p 1 n 1\n x z 1\n"
        "RHS\n RHS l 10 g 10\n RHS p 10 n 10\n RHS z 10\nRANGES\n R l -4 g -4\n R p 4 n -4\n"
        " R z 0\nENDATA\n";
    const Model model = mps(text);
    const double low[] = {6, 10, 10, 6, 10};
    const double high[] = {10, 14, 14, 10, 10};
    for (int row = 0; row < 5; ++row) {
        CHECK(model.row_lower(row) == low[row]);
        CHECK(model.row_upper(row) == high[row]);
        CHECK(model.rowtype[row] == (row == 4 ? 'E' : 'R'));
    }
}

TEST("mps: bound types and column types") {
    const Model model = mps(
        "NAME\nROWS\n N o\nCOLUMNS\n up o 1\n negup o 1\n mi o 1\n fr o 1\n fx o 1\n bv o 1\n"
        " ui o 1\n sc o 1\n sclo o 1\n si o 1\n pi o 1\n th o 1\n M 'MARKER' 'INTORG'\n"
        " int o 1\n intlo o 1\n intsc o 1\n intpl o 1\n M 'MARKER' 'INTEND'\n free o 1\nBOUNDS\n"
        " UP B up 4\n UP B negup -4\n MI B mi\n UP B mi 1e30\n FR B fr\n FX B fx 2.5\n BV B bv\n"
        " UI ui 9\n SC B sc\n SC B sclo 8\n LO B sclo 3\n SI B si inf\n LO B pi 1\n PI B pi 5\n"
        " LO B th 1\n TH B th 2\n SC B th 6\n LO B intlo 2\n SC B intsc 7\n PL B intpl\nENDATA\n");
    struct Expected {
        const char* name;
        char type;
        double lower, upper, limit;
    };
    const Expected all[] = {{"up", 'C', 0, 4, 0},
                            {"negup", 'C', -kInfinity, -4, 0},
                            {"mi", 'C', -kInfinity, kInfinity, 0},
                            {"fr", 'C', -kInfinity, kInfinity, 0},
                            {"fx", 'C', 2.5, 2.5, 0},
                            {"bv", 'B', 0, 1, 0},
                            {"ui", 'I', 0, 9, 0},
                            {"sc", 'S', 0, kInfinity, 0},
                            {"sclo", 'S', 0, 8, 3},
                            {"si", 'R', 0, kInfinity, 0},
                            {"pi", 'P', 1, kInfinity, 5},
                            {"th", 'S', 1, 6, 2},
                            {"int", 'B', 0, 1, 0},
                            {"intlo", 'I', 2, kInfinity, 0},
                            {"intsc", 'R', 0, 7, 0},
                            {"intpl", 'I', 0, kInfinity, 0},
                            {"free", 'C', 0, kInfinity, 0}};
    for (const Expected& expected : all) {
        const int col = model.colnames.find(expected.name);
        REQUIRE(col >= 0);
        const bool same = model.coltype[col] == expected.type &&
                          model.lower[col] == expected.lower &&
                          model.upper[col] == expected.upper && model.limit[col] == expected.limit;
        if (!CHECK(same)) std::fprintf(stderr, "column %s\n", expected.name);
    }
}

TEST("mps: quadratic sections, sets and indicators") {
    const Model model = mps(
        with("BOUNDS\n BV B x\nQMATRIX\n x x 2\n x y -3\n y x -3\nQCMATRIX a\n x x 5\n y x 1.5\n"
             " x y 1.5\nQSECTION b\n y y 8\n y x 3\nSOS\n S1 SOS first 3\n   SOS x 1\n   SOS y 2\n"
             " S2 second\n    y -1\n    x 7\nINDICATORS\n IF b x 0\n"));
    CHECK((model.qobj == std::vector<QuadTerm>{{0, 0, 1.0}, {0, 1, -3.0}}));
    CHECK((model.qrows.at(0) == std::vector<QuadTerm>{{0, 0, 5.0}, {0, 1, 3.0}}));
    CHECK((model.qrows.at(1) == std::vector<QuadTerm>{{0, 1, 3.0}, {1, 1, 4.0}}));
    REQUIRE(model.sets.size() == 2);
    CHECK(model.setnames.get(0) == "first" && model.sets[0].type == '1');
    CHECK((model.sets[1].cols == std::vector<int>{1, 0}));
    CHECK((model.sets[1].weights == std::vector<double>{-1.0, 7.0}));
    CHECK((model.indicators.at(1) == Indicator{0, -1}));
    CHECK((mps(with("QUADOBJ\n y x 4\n y y 6\n")).qobj ==
           std::vector<QuadTerm>{{0, 1, 4.0}, {1, 1, 3.0}}));
    // Names like keywords of the section.
    Model named =
        mps("NAME\nROWS\n N o\nCOLUMNS\n S1 o 1\n S2 o 1\nSOS\n S1 S1\n    S1 1\n"
            "    S2 2\nENDATA\n");
    REQUIRE(named.sets.size() == 1);
    CHECK((named.sets[0].cols == std::vector<int>{0, 1}));
    CHECK(difference(named, mps(to_text(named, Format::kMps))).empty());
}

TEST("mps: blanks in names are read by the columns of the fixed format") {
    const char* text =
        "NAME          T\n"
        "ROWS\n"
        " N  COST\n"
        " L  NEW YORK\n"
        "COLUMNS\n"
        "    THE X     COST               2.5   NEW YORK             4.0\n"
        "RHS\n"
        "              NEW YORK            12\n"
        "BOUNDS\n"
        " UP           THE X                3\n"
        "ENDATA\n";
    const Model model = mps(text);
    CHECK(model.rownames.get(0) == "NEW YORK");
    CHECK(model.colnames.get(0) == "THE X");
    CHECK(model.matrix.get(0, 0) == 4.0);
    CHECK(model.rhs[0] == 12.0);
    CHECK(model.upper[0] == 3.0);
    // An error behind the names is reported by the reading that understood them.
    const std::string broken = std::string(text).replace(std::string(text).find("12\n"), 2, "1x");
    expect_error(broken, Format::kMps, 8, "'1x' is not a number");
    expect_error("NAME\nROWS\n N  A B C D E F G\nENDATA\n", Format::kMps, 3, "type and a name");
}

TEST("mps: fixed format rounds long numbers to their field") {
    Model model;
    const double obj[] = {-1.0 / 3.0, 1.2345678901234567e-105};
    const int64_t start[] = {0, 0, 0};
    model.add_cols(2, 0, obj, start, nullptr, nullptr, nullptr, nullptr);
    const std::string text = to_text(model, Format::kFixedMps);
    const Model read = from_text(text, Format::kFixedMps);
    CHECK_NEAR(read.obj[0], obj[0], 1e-9);
    CHECK_NEAR(read.obj[1] / obj[1], 1.0, 1e-5);
}

TEST("mps: errors tell file and line") {
    const auto expect = [](const std::string& sections, int line, const char* part) {
        expect_error(with(sections), Format::kMps, line, part);
    };
    expect("RHS\n RHS a 1\n RHS a 1\n", 12, "second right-hand side");
    expect("RHS\n RHS a 1\n R2 b 1\n", 12, "a second set 'R2'");
    expect("RHS\n RHS a 1.2.3\n", 11, "'1.2.3' is not a number");
    expect("RHS\n RHS a nan\n", 11, "NaN");
    expect("RHS\n RHS a 1e999\n", 11, "out of range");
    expect("RHS\n RHS zz 1\n", 11, "unknown row 'zz'");
    expect("RANGES\n R cost 1\n", 11, "type N");
    expect("RANGES\n R a 1 a 2\n", 11, "second range");
    expect("BOUNDS\n XX B x 1\n", 11, "unknown bound type 'XX'");
    expect("BOUNDS\n UP B z 1\n", 11, "unknown column 'z'");
    expect("BOUNDS\n UP B x 1\n UP B x 2\n", 12, "contradicts");
    expect("BOUNDS\n UP B x\n", 11, "unknown column 'B'");
    expect("BOUNDS\n LO x\n", 11, "a number for the bound");
    expect("BOUNDS\n BV B x\n UP B x 2\n", 12, "contradicts");
    expect("BOUNDS\n SC B x 1\n BV B x\n", 12, "another type");
    expect("QUADOBJ\n x y 1\n y x 1\n", 12, "second entry");
    expect("QMATRIX\n x y 1\n", 11, "no equal counterpart");
    expect("QMATRIX\n x y 1\n y x 2\n", 11, "no equal counterpart");
    expect("QUADOBJ\n x x 1\nQMATRIX\n x x 1\n", 12, "before");
    expect("QCMATRIX cost\n x x 1\n", 10, "not the objective");
    expect("SOS\n x 1\n", 11, "S1 or S2");
    expect("SOS\n S1 s\n    x 1\n    x 2\n", 13, "twice");
    expect("SOS\n S1 s\n    x 1\n    y 1\n", 13, "weight 1 occurs twice");
    expect("SOS\n S1 s\n S2 s\n", 12, "set 's' occurs twice");
    expect("INDICATORS\n IF a x 1\n", 11, "not binary");
    expect("BOUNDS\n BV B x\nINDICATORS\n IF a x 2\n", 13, "0 or 1");
    expect("BOUNDS\nBOUNDS\n", 11, "a second BOUNDS section");
    expect("HELLO\n", 10, "unknown section 'HELLO'");
    expect("ROWS\n", 10, "a second ROWS section");

    const auto fail = [](const std::string& text, int line, const char* part) {
        expect_error(text, Format::kMps, line, part);
    };
    fail("", 1, "ends before ENDATA");
    fail("NAME\nROWS\n N o\n", 4, "ends before ENDATA");
    fail("NAME\nENDATA\n", 2, "no ROWS");
    fail("NAME\nROWS\nENDATA\n", 3, "no COLUMNS");
    fail("NAME\nCOLUMNS\n", 2, "after ROWS");
    fail(" data\n", 1, "outside");
    fail("NAME\nROWS\n Q a\n", 3, "unknown row type 'Q'");
    fail("NAME\nROWS\n N o\n L a\n L a\n", 5, "row 'a' occurs twice");
    fail("NAME\nROWS\n N o\nCOLUMNS\n x o 1\n y o 1\n x o 1\n", 7, "'x' occurs again");
    fail("NAME\nROWS\n N o\nCOLUMNS\n x o 1 o 1\n", 5, "second entry");
    fail("NAME\nROWS\n N o\nCOLUMNS\n x o\n", 5, "expected a column");
    fail("NAME\nROWS\n N o\nCOLUMNS\n x o inf\n", 5, "infinite");
    fail("NAME\nOBJSENSE\n UP\n", 3, "unknown objective sense 'UP'");
    fail("NAME\nOBJNAME p\nROWS\n N o\nCOLUMNS\n", 5, "no row 'p'");
    fail(std::string("NAME\nRO\0WS\n", 11), 2, "NUL");
}

TEST("mps: names that cannot be written") {
    Model model;
    const int64_t start[] = {0, 0, 0};
    model.add_cols(2, 0, nullptr, start, nullptr, nullptr, nullptr, nullptr);
    const auto error_for = [&](Format format) {
        try {
            to_text(model, format);
        } catch (const Error& error) {
            CHECK(error.code == NLRA_ERROR_FILE);
            return error.text;
        }
        return std::string();
    };
    for (const Format format : {Format::kMps, Format::kFixedMps, Format::kLp}) {
        model.colnames.set(1, "new york");
        CHECK(has(error_for(format), "column 2") && has(error_for(format), "'new york'"));
        model.colnames.set(1, "C1");
        CHECK(has(error_for(format), "the same name"));
        model.colnames.set(1, "x2");
        model.name = "two\nlines";
        CHECK(has(error_for(format), "problem name"));
        model.name.clear();
        CHECK(error_for(format).empty());
    }
    model.colnames.set(1, "longer_than_8");
    CHECK(error_for(Format::kMps).empty());
    CHECK(has(error_for(Format::kFixedMps), "column 2"));
    for (const char* name : {"2x", ".5", "a+b", "x:", "free", "Inf", "END", "[x", "a]", "a\\b"}) {
        model.colnames.set(1, name);
        CHECK(has(error_for(Format::kLp), "column 2"));
        CHECK(error_for(Format::kMps).empty());
    }
    model.colnames.set(1, "x2");
    model.obj[0] = std::nan("");
    for (const Format format : {Format::kMps, Format::kLp}) CHECK(!error_for(format).empty());
}
