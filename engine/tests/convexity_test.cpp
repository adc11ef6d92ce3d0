// Convexity of quadratic forms against eigenvalues, and the factorization under it.
#include "analysis/convexity.hpp"

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "analysis/ldlt.hpp"
#include "check.hpp"

using nlra::is_convex_form;
using nlra::QuadTerm;

namespace {

using Matrix = std::vector<std::vector<double>>;

// Smallest eigenvalue by cyclic Jacobi rotations.
double smallest_eigenvalue(Matrix a) {
    const int n = static_cast<int>(a.size());
    for (int sweep = 0; sweep < 60; ++sweep) {
        double off = 0.0;
        for (int p = 0; p < n; ++p) {
            for (int q = p + 1; q < n; ++q) {
                off += a[p][q] * a[p][q];
                if (a[p][q] == 0.0) continue;
                const double theta = (a[q][q] - a[p][p]) / (2.0 * a[p][q]);
                const double sign = theta < 0.0 ? -1.0 : 1.0;
                const double t = sign / (std::fabs(theta) + std::sqrt(theta * theta + 1.0));
                const double c = 1.0 / std::sqrt(t * t + 1.0);
                const double s = t * c;
                for (int k = 0; k < n; ++k) {
                    const double akp = a[k][p];
                    const double akq = a[k][q];
                    a[k][p] = c * akp - s * akq;
                    a[k][q] = s * akp + c * akq;
                }
                for (int k = 0; k < n; ++k) {
                    const double apk = a[p][k];
                    const double aqk = a[q][k];
                    a[p][k] = c * apk - s * aqk;
                    a[q][k] = s * apk + c * aqk;
                }
            }
        }
        if (off < 1e-26) break;
    }
    double smallest = a[0][0];
    for (int i = 1; i < n; ++i) smallest = std::min(smallest, a[i][i]);
    return smallest;
}

std::vector<QuadTerm> form_of(const Matrix& hessian, int stride = 1) {
    std::vector<QuadTerm> terms;
    const int n = static_cast<int>(hessian.size());
    for (int i = 0; i < n; ++i) {
        for (int j = i; j < n; ++j) {
            if (hessian[i][j] == 0.0) continue;
            terms.push_back({i * stride, j * stride, (i == j ? 0.5 : 1.0) * hessian[i][j]});
        }
    }
    return terms;
}

// A'A of a random k x n matrix with the given share of non-zeros.
Matrix gram(int k, int n, double density, std::mt19937& random) {
    std::uniform_real_distribution<double> value(-1.0, 1.0), share(0.0, 1.0);
    Matrix a(k, std::vector<double>(n, 0.0)), h(n, std::vector<double>(n, 0.0));
    for (auto& row : a) {
        for (double& entry : row) {
            if (share(random) < density) entry = value(random);
        }
    }
    for (const auto& row : a) {
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < n; ++j) h[i][j] += row[i] * row[j];
        }
    }
    return h;
}

// The five-point Laplacian of a grid, positive semidefinite with one zero eigenvalue.
std::vector<QuadTerm> laplacian(int rows, int cols) {
    std::vector<QuadTerm> terms;
    for (int i = 0; i < rows; ++i) {
        for (int j = 0; j < cols; ++j) {
            const int k = i * cols + j;
            const int degree = (i > 0) + (j > 0) + (i + 1 < rows) + (j + 1 < cols);
            terms.push_back({k, k, 0.5 * degree});
            if (j + 1 < cols) terms.push_back({k, k + 1, -1.0});
            if (i + 1 < rows) terms.push_back({k, k + cols, -1.0});
        }
    }
    return terms;
}

}  // namespace

TEST("convexity: small forms by hand") {
    CHECK(is_convex_form({}, 1.0));
    CHECK(is_convex_form({{3, 3, 2.0}}, 1.0));
    CHECK(!is_convex_form({{3, 3, 2.0}}, -1.0));
    CHECK(!is_convex_form({{0, 0, 1.0}, {7, 7, -1e-6}}, 1.0));
    CHECK(!is_convex_form({{0, 1, 1.0}}, 1.0));
    CHECK(!is_convex_form({{0, 1, 1.0}}, -1.0));
    CHECK(!is_convex_form({{0, 0, 1.0}, {0, 1, 1e-3}}, 1.0));
    // (x + y)^2 and around it.
    CHECK(is_convex_form({{0, 0, 1.0}, {0, 1, 2.0}, {1, 1, 1.0}}, 1.0));
    CHECK(is_convex_form({{0, 0, -1.0}, {0, 1, -2.0}, {1, 1, -1.0}}, -1.0));
    CHECK(!is_convex_form({{0, 0, 1.0}, {0, 1, 2.000001}, {1, 1, 1.0}}, 1.0));
    // (x + 1e-9 y)^2: units differ, the form is a square all the same.
    CHECK(is_convex_form({{0, 0, 1.0}, {0, 1, 2e-9}, {1, 1, 1e-18}}, 1.0));
    CHECK(!is_convex_form({{0, 0, 1.0}, {0, 1, 3e-9}, {1, 1, 1e-18}}, 1.0));
    // What cancellation leaves behind is no curvature.
    CHECK(is_convex_form({{0, 0, 1.0}, {1, 1, 0.3 - (0.1 + 0.2)}}, 1.0));
    CHECK(is_convex_form({{0, 0, 1.0}, {0, 1, 1e-17}}, 1.0));
}

TEST("convexity: random forms against eigenvalues") {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> exponent(-4.0, 4.0);
    int convex = 0;
    int nonconvex = 0;
    for (int trial = 0; trial < 3000; ++trial) {
        const int n = 2 + trial % 11;
        const int rank = 1 + static_cast<int>(random() % n);
        Matrix h = gram(rank, n, trial % 3 == 0 ? 1.0 : 0.4, random);
        const double shifts[] = {0.0, 1e-6, -1e-6, 0.1, -0.1, 1e-12};
        for (int i = 0; i < n; ++i) h[i][i] *= 1.0 + shifts[random() % 6];
        // The verdict is one on the matrix with a unit diagonal, so compare there.
        Matrix scaled = h;
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < n; ++j) {
                const double root = std::sqrt(h[i][i] * h[j][j]);
                scaled[i][j] = root > 0.0 ? h[i][j] / root : 0.0;
            }
        }
        const double lowest = smallest_eigenvalue(scaled);
        if (lowest < -1e-11 && lowest > -1e-7) continue;  // within the tolerance's reach
        for (int i = 0; i < n; ++i) {
            const double unit = std::pow(10.0, exponent(random));
            for (int j = 0; j < n; ++j) {
                h[i][j] *= unit;
                h[j][i] *= unit;
            }
        }
        const bool expected = lowest >= -1e-11;
        ++(expected ? convex : nonconvex);
        CHECK(is_convex_form(form_of(h, 1 + trial % 5), 1.0) == expected);
    }
    CHECK(convex > 500);
    CHECK(nonconvex > 500);
}

TEST("convexity: large sparse and dense forms") {
    for (const auto& [rows, cols] : {std::pair{1, 100000}, std::pair{250, 250}}) {
        std::vector<QuadTerm> terms = laplacian(rows, cols);
        CHECK(is_convex_form(terms, 1.0));
        terms[terms.size() / 2].value *= terms[terms.size() / 2].value > 0.0 ? 0.99 : 1.01;
        CHECK(!is_convex_form(terms, 1.0));
    }
    // An arrow: one column is linked to all others. Convex while the sum of squares of the links
    // stays below the product of the diagonals.
    const int n = 100000;
    for (const double tip : {1.0 + 1e-6, 1.0 - 1e-6}) {
        std::vector<QuadTerm> terms{{0, 0, 0.5 * tip}};
        for (int j = 1; j < n; ++j) {
            terms.push_back({0, j, std::sqrt(1.0 / (n - 1))});
            terms.push_back({j, j, 0.5});
        }
        CHECK(is_convex_form(terms, 1.0) == (tip > 1.0));
    }
    std::mt19937 random(3);
    Matrix dense = gram(200, 500, 1.0, random);
    CHECK(is_convex_form(form_of(dense), 1.0));
    for (int i = 0; i < 500; ++i) dense[i][i] *= 1.0 - 1e-6;
    CHECK(!is_convex_form(form_of(dense), 1.0));
}

TEST("convexity: sparse LDL^T solves quasidefinite systems") {
    std::mt19937 random(11);
    std::normal_distribution<double> value;
    for (int trial = 0; trial < 60; ++trial) {
        const int n = 5 + static_cast<int>(random() % 200);
        const int m = 1 + static_cast<int>(random() % n);
        std::vector<nlra::SymmetricEntry> entries;
        std::vector<signed char> signs(n + m, 1);
        for (int j = 0; j < n; ++j) entries.push_back({j, j, 1.0 + std::fabs(value(random))});
        for (int i = n; i < n + m; ++i) {
            signs[i] = -1;
            entries.push_back({i, i, -0.5});
            for (int k = 0; k < 3; ++k) {
                // Repeats and either triangle.
                const int j = static_cast<int>(random() % n);
                entries.push_back(k == 0 ? nlra::SymmetricEntry{i, j, value(random)}
                                         : nlra::SymmetricEntry{j, i, value(random)});
            }
        }
        nlra::SparseLdlt factorization;
        factorization.analyze(n + m, entries);
        factorization.factor(entries, signs, 1e-12);
        std::vector<double> b(n + m), x;
        for (double& entry : b) entry = value(random);
        x = b;
        factorization.solve(x);
        for (const auto& entry : entries) {
            b[entry.row] -= entry.value * x[entry.col];
            if (entry.row != entry.col) b[entry.col] -= entry.value * x[entry.row];
        }
        double residual = 0.0;
        for (const double entry : b) residual = std::max(residual, std::fabs(entry));
        CHECK_NEAR(residual, 0.0, 1e-10);
    }
}
