// Refused calls: they change nothing, and the text names the argument.
#include <climits>
#include <functional>
#include <limits>

#include "dense_problem.hpp"

namespace {

const double kNan = std::numeric_limits<double>::quiet_NaN();

// Three columns (the last one binary), two rows, a set, an indicator, quadratic terms, a solution.
struct Fixture {
    Fixture() {
        REQUIRE(NLRAinit(nullptr) == 0 && NLRAcreateprob(&prob) == 0);
        const double rhs[] = {4.0, 1.0}, obj[] = {1.0, 2.0, 0.0}, upper[] = {9.0, 1e20, 1.0};
        const int start[] = {0, 2, 3, 3}, rowind[] = {0, 1, 1};
        const double value[] = {1.0, 2.0, 3.0};
        REQUIRE(NLRAloadlp(prob, "small", 3, 2, "LE", rhs, nullptr, obj, start, nullptr, rowind,
                           value, nullptr, upper) == 0);
        const int binary = 2, row = 0, one = 1, cols[] = {0, 1};
        const int64_t zero = 0;
        const double weight[] = {1.0, 2.0}, q = 2.0;
        REQUIRE(NLRAchgcoltype(prob, 1, &binary, "B") == 0);
        REQUIRE(NLRAsetindicators(prob, 1, &row, &binary, &one) == 0);
        REQUIRE(NLRAaddsets64(prob, 1, 2, "1", &zero, cols, weight) == 0);
        REQUIRE(NLRAchgmqobj(prob, 1, &cols[0], &cols[0], &q) == 0);
        prob_before = read_problem(prob);
    }
    ~Fixture() {
        NLRAsetcheckedmode(1);
        NLRAdestroyprob(prob);
    }

    // The call fails, its text holds `text`, and the problem is what it was.
    void refused(int status, const std::string& text, int code = NLRA_ERROR_ARGUMENT) const {
        const std::string said = error_text(prob);
        if (!CHECK(status == code && said.find(text) != std::string::npos &&
                   read_problem(prob) == prob_before)) {
            std::fprintf(stderr, "status %d, \"%s\", expected \"%s\"\n", status, said.c_str(),
                         text.c_str());
        }
    }
    void add_rows(const char* type, std::vector<double> rhs, std::vector<int64_t> start,
                  std::vector<int> colind, std::vector<double> value, const char* text,
                  const double* range = nullptr) const {
        refused(
            NLRAaddrows64(prob, static_cast<int>(rhs.size()), static_cast<int64_t>(colind.size()),
                          type, rhs.data(), range, start.data(), colind.data(), value.data()),
            text);
    }

    NLRAprob prob = nullptr;
    DenseProblem prob_before;
};

}  // namespace

TEST("api: blocks of rows, columns and sets that are refused") {
    const Fixture f;
    const double one[] = {1.0, 1.0, 1.0}, nan[] = {1.0, kNan};
    f.add_rows("LL", {1, 1}, {0, 2}, {0, 1, 17, 1}, {1, 1, 1, 1},
               "NLRAaddrows64: colind[2] = 17 is not a column (0 to 2)");
    f.add_rows("LL", {1, 1}, {0, 2}, {0, 1, 1, -1}, {1, 1, 1, 1}, "colind[3] = -1");
    f.add_rows("LL", {1, 1}, {0, 1}, {0, 2, 0, 2}, {1, 1, 1, 1}, "colind[3] = 2 is there twice");
    f.add_rows("LL", {1, 1}, {0, 1}, {0, 1}, {1, kNan}, "value[1] = nan");
    f.add_rows("LL", {1, 1}, {0, 1}, {0, 1}, {-1e20, 1}, "value[0] = -1e+20");
    f.add_rows("LL", {1, 1}, {1, 0}, {0, 1}, {1, 1}, "start[1] = 0 is not in 1 to 2");
    f.add_rows("LL", {1, 1}, {-1, 0}, {0, 1}, {1, 1}, "start[0] = -1");
    f.add_rows("LL", {1, 1}, {0, 3}, {0, 1}, {1, 1}, "start[1] = 3 is not in 0 to 2");
    f.add_rows("LX", {1, 1}, {0, 1}, {0, 1}, {1, 1}, "rowtype[1] (code 88)");
    f.add_rows("LG", {1, kNan}, {0, 1}, {0, 1}, {1, 1}, "rhs[1] = nan");
    f.add_rows("LE", {1, 1e20}, {0, 1}, {0, 1}, {1, 1}, "rhs[1] = 1e+20");
    f.add_rows("LR", {1, 1}, {0, 1}, {0, 1}, {1, 1}, "range[1]", nan);
    f.refused(NLRAaddrows64(f.prob, -1, 0, "L", one, nullptr, nullptr, nullptr, nullptr),
              "nrows = -1 is negative");
    f.refused(NLRAaddrows64(f.prob, INT_MAX, 0, "L", one, nullptr, nullptr, nullptr, nullptr),
              "nrows = 2147483647 is too large");
    f.refused(NLRAaddrows64(f.prob, 1, 2, "L", one, nullptr, nullptr, nullptr, nullptr),
              "start is null");
    f.refused(NLRAaddrows64(f.prob, 0, 2, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              "ncoefs = 2");
    f.refused(NLRAaddrows64(f.prob, 1, -2, "L", one, nullptr, nullptr, nullptr, nullptr), "ncoefs");

    const int64_t zero = 0, starts[] = {0, 1};
    const int rows[] = {0, 2}, cols[] = {0, 1}, same[] = {1, 1};
    f.refused(NLRAaddcols64(f.prob, 1, 2, one, &zero, rows, one, nullptr, nullptr),
              "rowind[1] = 2 is not a row (0 to 1)");
    f.refused(NLRAaddcols64(f.prob, 2, 0, nan, nullptr, nullptr, nullptr, nullptr, nullptr),
              "obj[1] = nan");
    f.refused(NLRAaddcols64(f.prob, 2, 0, one, nullptr, nullptr, nullptr, nan, nullptr),
              "lower[1] = nan cannot be a lower bound");
    const double infinite[] = {0.0, -1e20};
    f.refused(NLRAaddcols64(f.prob, 2, 0, one, nullptr, nullptr, nullptr, nullptr, infinite),
              "upper[1] = -1e+20 cannot be an upper bound");
    f.refused(NLRAaddsets64(f.prob, 1, 2, "3", &zero, cols, one), "settype[0]");
    f.refused(NLRAaddsets64(f.prob, 1, 2, "1", &zero, cols, one), "set 0 has the weight 1 twice");
    f.refused(NLRAaddsets64(f.prob, 2, 2, "11", starts, cols, nan), "weight[1] = nan");
    f.refused(NLRAaddsets64(f.prob, 1, 2, "1", &zero, same, one), "colind[1] = 1 is there twice");
    f.refused(NLRAaddqmatrix64(f.prob, 2, 0, nullptr, nullptr, nullptr), "row = 2");
    const int first[] = {0, 1}, second[] = {1, 0};
    f.refused(NLRAaddqmatrix64(f.prob, 0, 2, first, second, one),
              "the pair of columns 0 and 1 is there twice");

    // Whole models: the old one stays.
    const int start[] = {0, 2, 1}, huge[] = {0, INT_MIN, 0}, counts[] = {1, -1};
    f.refused(NLRAloadlp(f.prob, "", 2, 0, nullptr, nullptr, nullptr, one, start, nullptr, rows,
                         one, nullptr, nullptr),
              "start gives column 1 a negative number of entries");
    f.refused(NLRAloadlp(f.prob, "", 2, 0, nullptr, nullptr, nullptr, one, huge, nullptr, rows, one,
                         nullptr, nullptr),
              "start gives column 0");
    f.refused(NLRAloadlp(f.prob, "", 2, 0, nullptr, nullptr, nullptr, one, start, counts, rows, one,
                         nullptr, nullptr),
              "count gives column 1");
    f.refused(NLRAloadlp(f.prob, "", 1, 1, "L", one, nullptr, one, start, nullptr, cols, one,
                         nullptr, nullptr),
              "rowind[1] = 1 is not a row (0 to 0)");
}

TEST("api: single changes that are refused") {
    const Fixture f;
    const int cols[] = {0, 3}, good[] = {0, 1}, repeated[] = {1, 0, 1}, rows[] = {1, 0};
    const double one[] = {1.0, 1.0}, nan[] = {1.0, kNan}, infinite[] = {1.0, 1e20};
    f.refused(NLRAchgbounds(f.prob, 2, cols, "LL", one), "colind[1] = 3 is not a column");
    f.refused(NLRAchgbounds(f.prob, 2, good, "LX", one), "bndtype[1]");
    f.refused(NLRAchgbounds(f.prob, 2, good, "LB", nan), "bound[1] = nan");
    f.refused(NLRAchgbounds(f.prob, 2, good, "UL", infinite), "bound[1] = 1e+20");
    f.refused(NLRAchgbounds(f.prob, -1, good, "L", one), "n = -1");
    f.refused(NLRAchgbounds(f.prob, 2, nullptr, "LL", one), "colind is null");
    f.refused(NLRAchgobj(f.prob, 2, good, nan), "value[1]");
    const int beyond[] = {-1, -2};
    f.refused(NLRAchgobj(f.prob, 2, beyond, one), "colind = -2");
    f.refused(NLRAchgrhs(f.prob, 2, good, infinite), "rhs[1] = 1e+20");  // fine for L, not for E
    f.refused(NLRAchgcoef(f.prob, 2, 0, 1.0), "row = 2");
    f.refused(NLRAchgcoef(f.prob, 0, 3, 1.0), "col = 3");
    f.refused(NLRAchgcoef(f.prob, 0, 0, kNan), "value = nan");
    f.refused(NLRAchgobjsense(f.prob, 0), "sense = 0");
    f.refused(NLRAchgcoltype(f.prob, 2, good, "IX"), "coltype[1] (code 88)");
    f.refused(NLRAchgglblimit(f.prob, 1, good, one), "column 0 is of type C");
    f.refused(NLRAchgmqobj(f.prob, 2, good, good, nan), "value[1]");
    f.refused(NLRAdelcols(f.prob, 2, cols), "colind[1] = 3");
    f.refused(NLRAdelcols(f.prob, 3, repeated), "column 1 is there twice");
    const int binary = 2, complement = 2, minus = -1;
    f.refused(NLRAdelcols(f.prob, 1, &binary), "column 2 decides whether row 0 holds",
              NLRA_ERROR_STATE);
    f.refused(NLRAdelsets(f.prob, 1, rows), "setind[0] = 1 is not a set (0 to 0)");
    f.refused(NLRAsetindicators(f.prob, 1, rows, &binary, &complement), "complement[0] = 2");
    f.refused(NLRAsetindicators(f.prob, 1, rows, good, &minus), "column 0 is not binary");
    f.refused(NLRAaddnames(f.prob, NLRA_NAMES_ROW, "a", 1, 2), "last = 2 is not a row (0 to 1)");
    f.refused(NLRAaddnames(f.prob, NLRA_NAMES_ROW, "a", 1, -1), "last = -1");
    f.refused(NLRAaddnames(f.prob, 4, "a", 0, 0), "type = 4");
    const int64_t numbers[] = {7, 0};
    f.refused(NLRAnumbernames(f.prob, NLRA_NAMES_ROW, numbers, 0, 1, nullptr, nullptr),
              "numbers[1] = 0 is not");
    f.refused(NLRAnumbernames(f.prob, NLRA_NAMES_ROW, nullptr, 0, 1, nullptr, nullptr),
              "numbers is null");
    f.refused(NLRAnumbernames(f.prob, NLRA_NAMES_SET, numbers, 0, 1, nullptr, nullptr),
              "last = 1 is not a set");
    f.refused(NLRAaddmipsol(f.prob, 2, one, nullptr, nullptr), "values for all 3 columns");
    f.refused(NLRAaddmipsol(f.prob, 2, nan, good, nullptr), "value[1] = nan");
    const int twice[] = {1, 1};
    f.refused(NLRAaddmipsol(f.prob, 2, one, twice, nullptr), "colind[1] = 1 is there twice");
    f.refused(NLRAinterrupt(f.prob, 77), "reason = 77");
    f.refused(NLRAlpoptimize(f.prob, "dx"), "flags: 'x'");
    double x = 0.0;
    f.refused(NLRAgetlpsol(f.prob, &x, nullptr, nullptr, nullptr), "no solution", NLRA_ERROR_STATE);
    char small[4] = "?";
    int64_t needed = 0;
    f.refused(NLRAgetnames(f.prob, NLRA_NAMES_COLUMN, small, 4, &needed, 0, 2), "maxbytes = 4");
    CHECK(needed == 9 && small[0] == '?');
    f.refused(NLRAreadprob(f.prob, "there/is/no/such.mps", ""), "such.mps", NLRA_ERROR_FILE);
}

TEST("api: without checks only the passes over contents are left out") {
    const Fixture f;
    REQUIRE(NLRAsetcheckedmode(0) == 0);
    f.add_rows("L", {1}, {0}, {0, 17}, {1, 1}, "colind[1] = 17");
    f.add_rows("LL", {1, 1}, {1, 0}, {0, 1}, {1, 1}, "start[1]");
    const double twice[] = {1.0, 2.0}, rhs = 1.0;
    const int same[] = {1, 1};
    const int64_t zero = 0;
    CHECK(NLRAaddrows64(f.prob, 1, 2, "L", &rhs, nullptr, &zero, same, twice) == 0);
    CHECK(NLRAchgmqobj(f.prob, 2, same, same, twice) == 0);  // the last one counts
    double value = 0.0;
    int64_t n = 0;
    CHECK(NLRAgetmqobj64(f.prob, nullptr, nullptr, &value, 1, &n, 1, 1) == 0 && n == 1);
    CHECK_NEAR(value, 2.0, 0.0);
}

TEST("api: only changes that change something end the results of a solve") {
    NLRAprob prob = nullptr;
    REQUIRE(NLRAinit(nullptr) == 0 && NLRAcreateprob(&prob) == 0);
    const double one = 1.0, two = 2.0, rhs = 4.0;
    const int64_t start = 0;
    const int zero = 0, free_col = -1;
    REQUIRE(NLRAsetintcontrol(prob, NLRA_LOGLEVEL, 0) == 0);
    REQUIRE(NLRAaddcols64(prob, 1, 0, &one, nullptr, nullptr, nullptr, nullptr, nullptr) == 0);
    REQUIRE(NLRAaddrows64(prob, 1, 1, "G", &rhs, nullptr, &start, &zero, &two) == 0);
    REQUIRE(NLRAlpoptimize(prob, nullptr) == 0);
    REQUIRE(int_attribute(prob, NLRA_LPSTATUS) == NLRA_LP_OPTIMAL);
    // What is there already, names and empty batches leave them alone.
    CHECK(NLRAchgobj(prob, 1, &zero, &one) == 0 && NLRAchgrhs(prob, 1, &zero, &rhs) == 0 &&
          NLRAchgcoef(prob, 0, 0, 2.0) == 0 && NLRAdelrows(prob, 0, nullptr) == 0 &&
          NLRAaddnames(prob, NLRA_NAMES_ROW, "row", 0, 0) == 0);
    double x = 0.0;
    CHECK(NLRAgetlpsol(prob, &x, nullptr, nullptr, nullptr) == 0);
    CHECK_NEAR(x, 2.0, 1e-9);
    double dual = -1.0;
    CHECK(NLRAgetlpsolval(prob, 0, -7, &x, nullptr, nullptr, nullptr) == 0 && x == 2.0);
    CHECK(NLRAgetlpsolval(prob, 2, 0, &x, nullptr, &dual, nullptr) == NLRA_ERROR_ARGUMENT);
    CHECK(NLRAgetlpsolval(prob, 0, 1, &x, nullptr, &dual, nullptr) == NLRA_ERROR_ARGUMENT);
    CHECK(NLRAgetmipsolval(prob, 0, 0, &x, nullptr) == NLRA_ERROR_STATE && dual == -1.0);
    const std::vector<std::function<int()>> changes = {
        [&] { return NLRAchgobj(prob, 1, &free_col, &two); },
        [&] { return NLRAchgrhs(prob, 1, &zero, &two); },
        [&] { return NLRAchgcoef(prob, 0, 0, 1.0); },
        [&] { return NLRAchgbounds(prob, 1, &zero, "U", &rhs); },
        [&] { return NLRAchgmqobj(prob, 1, &zero, &zero, &one); },
        [&] { return NLRAaddqmatrix64(prob, 0, 0, nullptr, nullptr, nullptr); },
        [&] { return NLRAdelrows(prob, 1, &zero); },
    };
    for (size_t i = 0; i < changes.size(); ++i) {
        REQUIRE(NLRAlpoptimize(prob, nullptr) == 0);
        CHECK(changes[i]() == 0);
        const bool none = i == 5;  // clears quadratic terms that are not there
        CHECK(int_attribute(prob, NLRA_LPSTATUS) == (none ? NLRA_LP_OPTIMAL : NLRA_LP_UNSTARTED));
        CHECK(NLRAgetlpsol(prob, &x, nullptr, nullptr, nullptr) == (none ? 0 : NLRA_ERROR_STATE));
    }
    NLRAdestroyprob(prob);
}
