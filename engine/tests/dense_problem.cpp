#include "dense_problem.hpp"

#include <cstring>

namespace {

std::vector<std::string> read_names(NLRAprob prob, int type, int count) {
    int64_t bytes = -1;
    REQUIRE(NLRAgetnames(prob, type, nullptr, 0, &bytes, 0, count - 1) == 0);
    std::vector<char> packed(static_cast<size_t>(bytes) + 1);
    REQUIRE(NLRAgetnames(prob, type, packed.data(), bytes, &bytes, 0, count - 1) == 0);
    std::vector<std::string> names;
    const char* next = packed.data();
    for (int i = 0; i < count; ++i) {
        names.emplace_back(next);
        next += std::strlen(next) + 1;
    }
    REQUIRE(next == packed.data() + bytes);
    return names;
}

void read_columns(NLRAprob prob, DenseProblem& problem) {
    const int count = int_attribute(prob, NLRA_COLS);
    std::vector<double> obj(count), lower(count), upper(count);
    std::vector<char> type(count);
    REQUIRE(NLRAgetobj(prob, obj.data(), 0, count - 1) == 0);
    REQUIRE(NLRAgetlb(prob, lower.data(), 0, count - 1) == 0);
    REQUIRE(NLRAgetub(prob, upper.data(), 0, count - 1) == 0);
    REQUIRE(NLRAgetcoltype(prob, type.data(), 0, count - 1) == 0);
    const std::vector<std::string> names = read_names(prob, NLRA_NAMES_COLUMN, count);
    for (int j = 0; j < count; ++j) {
        problem.cols.push_back({obj[j], lower[j], upper[j], 0.0, type[j], names[j]});
    }

    std::vector<int64_t> start(count + 1);
    int64_t terms = 0;
    REQUIRE(NLRAgetmqobj64(prob, start.data(), nullptr, nullptr, 0, &terms, 0, count - 1) == 0);
    std::vector<int> second(terms);
    std::vector<double> value(terms);
    REQUIRE(NLRAgetmqobj64(prob, start.data(), second.data(), value.data(), terms, &terms, 0,
                           count - 1) == 0);
    for (int j = 0; j < count; ++j) {
        for (int64_t k = start[j]; k < start[j + 1]; ++k) {
            problem.quadratic[{j, second[k]}] = value[k];
        }
    }
}

void read_rows(NLRAprob prob, DenseProblem& problem) {
    const int count = int_attribute(prob, NLRA_ROWS);
    std::vector<double> rhs(count), range(count);
    std::vector<char> type(count);
    std::vector<int> condition(count), complement(count);
    REQUIRE(NLRAgetrhs(prob, rhs.data(), 0, count - 1) == 0);
    REQUIRE(NLRAgetrhsrange(prob, range.data(), 0, count - 1) == 0);
    REQUIRE(NLRAgetrowtype(prob, type.data(), 0, count - 1) == 0);
    REQUIRE(NLRAgetindicators(prob, condition.data(), complement.data(), 0, count - 1) == 0);
    const std::vector<std::string> names = read_names(prob, NLRA_NAMES_ROW, count);

    std::vector<int64_t> start(count + 1);
    int64_t size = 0;
    REQUIRE(NLRAgetrows64(prob, start.data(), nullptr, nullptr, 0, &size, 0, count - 1) == 0);
    std::vector<int> colind(size);
    std::vector<double> value(size);
    REQUIRE(NLRAgetrows64(prob, start.data(), colind.data(), value.data(), size, &size, 0,
                          count - 1) == 0);
    for (int i = 0; i < count; ++i) {
        DenseProblem::Row row;
        row.type = type[i];
        row.rhs = rhs[i];
        row.range = range[i];
        row.indicator = {condition[i], complement[i]};
        row.name = names[i];
        for (int64_t k = start[i]; k < start[i + 1]; ++k) {
            // Neither zeros nor repeats may come back.
            REQUIRE(value[k] != 0.0 && row.coefs.emplace(colind[k], value[k]).second);
        }
        int64_t terms = 0;
        REQUIRE(NLRAgetqrowqmatrixtriplets(prob, i, &terms, nullptr, nullptr, nullptr) == 0);
        std::vector<int> col1(terms), col2(terms);
        std::vector<double> quadratic(terms);
        REQUIRE(NLRAgetqrowqmatrixtriplets(prob, i, &terms, col1.data(), col2.data(),
                                           quadratic.data()) == 0);
        for (int64_t k = 0; k < terms; ++k) row.quadratic[{col1[k], col2[k]}] = quadratic[k];
        problem.rows.push_back(std::move(row));
    }
}

void read_entities(NLRAprob prob, DenseProblem& problem) {
    int entities = 0, sets = 0;
    REQUIRE(NLRAgetglobal64(prob, &entities, &sets, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, nullptr) == 0);
    REQUIRE(entities == int_attribute(prob, NLRA_MIPENTS));
    REQUIRE(sets == int_attribute(prob, NLRA_SETS));
    std::vector<int64_t> start(sets + 1);
    REQUIRE(NLRAgetglobal64(prob, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                            start.data(), nullptr, nullptr) == 0);
    std::vector<char> type(entities), settype(sets);
    std::vector<int> colind(entities), setcols(start[sets]);
    std::vector<double> limit(entities), weight(start[sets]);
    REQUIRE(NLRAgetglobal64(prob, nullptr, nullptr, type.data(), colind.data(), limit.data(),
                            settype.data(), start.data(), setcols.data(), weight.data()) == 0);
    for (int k = 0; k < entities; ++k) {
        REQUIRE(problem.cols[colind[k]].type == type[k]);
        problem.cols[colind[k]].limit = limit[k];
    }
    const std::vector<std::string> names = read_names(prob, NLRA_NAMES_SET, sets);
    for (int i = 0; i < sets; ++i) {
        DenseProblem::SetData set{settype[i], {}, names[i]};
        for (int64_t k = start[i]; k < start[i + 1]; ++k) {
            set.elements.emplace_back(setcols[k], weight[k]);
        }
        problem.sets.push_back(std::move(set));
    }
}

}  // namespace

DenseProblem read_problem(NLRAprob prob) {
    DenseProblem problem;
    read_columns(prob, problem);
    read_rows(prob, problem);
    read_entities(prob, problem);
    REQUIRE(NLRAgetdblattrib(prob, named_attribute(prob, "objconstant"), &problem.constant) == 0);
    problem.sense = int_attribute(prob, named_attribute(prob, "objsense"));
    return problem;
}
