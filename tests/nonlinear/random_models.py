"""Random nonlinear models, written once for numbers and for variables, and what is wrong with an
answer to one, found without the library's help.

    python tests/nonlinear/random_models.py 1000
"""

import collections
import sys
import time

import numpy as np

import nalora

SOLVED = (nalora.nlp_locally_optimal, nalora.nlp_globally_optimal)
FREE = 1e20


def slopes(function, x):
    """Derivatives to full precision, by steps into the complex plane."""
    steps = 1e-30 * np.maximum(1e-20, np.abs(x))
    moved = np.array(x, complex) + 1j * np.diag(steps)
    return np.array([function(z, np).imag / h for z, h in zip(moved, steps)])


class Model:
    """Minimize objective(x) with lower <= x <= upper and low <= row(x) <= high for all rows."""

    def __init__(self, objective, bounds, rows=(), start=()):
        self.objective, self.bounds, self.rows, self.start = objective, bounds, rows, start

    def solve(self):
        self.p = p = nalora.problem()
        self.x = x = [nalora.var(lb=low, ub=high) for low, high in self.bounds]
        p.addVariable(x)
        for row, low, high in self.rows:
            body = row(x, nalora)
            equation = low == high
            p.addConstraint(
                body == low if equation else nalora.constraint(body=body, lb=low, ub=high)
            )
        p.setObjective(self.objective(x, nalora))
        for xi, value in zip(x, self.start):
            p.chgvar(xi, initvalue=value)
        return self.again()

    def again(self):
        p = self.p
        p.nlpoptimize()
        values, duals = [], []
        if p.attributes.nslp_status in SOLVED:
            p.getslpsol(values, None, duals)
        return p.attributes.nslp_status, np.array(values), duals

    def judge(self, status, x, duals):
        if status not in SOLVED:
            return f"status {status}"
        violation, wrong = self.misses(x, duals)
        return f"misses {violation:.1e}, {wrong:.1e}" if max(violation, wrong) > 2e-5 else ""

    def misses(self, x, duals):
        """Relative misses of rows, and of the conditions of Karush, Kuhn and Tucker."""
        size = max(1.0, abs(float(self.objective(x, np))))
        gradient = slopes(self.objective, x)
        terms, wrong, violation = np.maximum(1.0, np.abs(gradient)), 0.0, 0.0
        for (row, low, high), dual in zip(self.rows, duals):
            activity, slope = float(row(x, np)), slopes(row, x)
            scale = max(1.0, abs(activity), np.abs(slope * x).max())
            violation = max(violation, (low - activity) / scale, (activity - high) / scale)
            gradient = gradient - dual * slope
            terms = np.maximum(terms, np.abs(dual * slope))
            side = low if dual > 0 else high
            gap = abs(activity - side) if abs(side) < FREE else 1.0
            wrong = max(wrong, abs(dual) * gap / max(1.0, abs(side)) / size)
        for xj, g, term, (low, high) in zip(x, gradient, terms, self.bounds):
            violation = max(violation, low - xj, xj - high)
            wrong = max(
                wrong, min(abs(g) / term, abs(g) * (xj - low if g > 0 else high - xj) / size)
            )
        return violation, wrong


def curve(rng, family):
    """A formula over t and its parameters."""
    u, sign = rng.uniform, rng.choice([-1.0, 1.0])
    return [
        (lambda c, t, m: c[0] * m.exp(-c[1] * t) + c[2], [sign * u(1, 5), u(0.5, 4), u(-2, 2)]),
        (
            lambda c, t, m: c[0] * m.exp(-c[1] * t) + c[2] * m.exp(-c[3] * t),
            [u(1, 5), u(3, 8), u(1, 5), u(0.3, 1)],
        ),
        (
            lambda c, t, m: c[0] * m.exp(-(((t - c[1]) / c[2]) ** 2)) + c[3],
            [sign * u(1, 5), u(0.3, 0.7), u(0.1, 0.4), u(-1, 1)],
        ),
        (lambda c, t, m: c[0] * t / (c[1] + t), [u(1, 5), u(0.1, 2)]),
        (
            lambda c, t, m: (c[0] + c[1] * t) / (1 + c[2] * t + c[3] * t**2),
            [u(-2, 2), u(-2, 2), u(0.2, 2), u(0.2, 2)],
        ),
        (lambda c, t, m: c[0] * t ** c[1] + c[2], [sign * u(1, 5), u(0.3, 3), u(-2, 2)]),
        (lambda c, t, m: c[0] / (1 + m.exp(-c[1] * (t - c[2]))), [u(1, 5), u(5, 15), u(0.3, 0.7)]),
        (
            lambda c, t, m: c[0] * m.sin(c[1] * t + c[2]) + c[3],
            [sign * u(1, 5), u(3, 12), u(-1, 1), u(-1, 1)],
        ),
    ][family]


def fit(seed):
    """What is wrong with a curve fitted to noisy data, begun near the parameters that made them;
    data and parameters in any units."""
    rng = np.random.default_rng(seed)
    formula, truth = curve(rng, seed % 8)
    truth = np.array(truth)
    units, size = 10 ** rng.uniform(-5, 5, len(truth)), 10 ** rng.uniform(-6, 6)
    t = np.linspace(0.05, 1, rng.integers(10, 40))
    y = size * formula(truth, t, np)
    y += 10 ** rng.uniform(-7, -1) * np.ptp(y) * rng.standard_normal(len(t))

    def residuals(c, m, t=t, y=y):
        return size * formula([ci / u for ci, u in zip(c, units)], t, m) - y

    def objective(c, m):
        return sum(residuals(c, m, ti, yi) ** 2 for ti, yi in zip(t.tolist(), y.tolist()))

    start = (truth * units * (1 + 0.2 * rng.uniform(-1, 1, len(truth)))).tolist()
    status, c, _ = Model(objective, [(-FREE, FREE)] * len(truth), start=start).solve()
    if status not in SOLVED:
        return f"status {status}"
    # The share of the squares that a step of Gauss and Newton promises to do away with.
    r, jacobian = residuals(c, np), slopes(residuals, c).T
    jacobian = jacobian / np.linalg.norm(jacobian, axis=0)
    gain = np.sum((jacobian @ np.linalg.lstsq(jacobian, r, rcond=None)[0]) ** 2)
    share = gain / max(r @ r, 1e-14 * (y @ y))
    return f"gain {share:.1e}" if share > 1e-6 else ""


def feasible_model(seed):
    """Nonconvex rows that a point, kept aside, meets."""
    rng = np.random.default_rng(10_000 + seed)
    n = int(rng.integers(2, 11))
    kind = ("quadratic", "nonlinear", "quadratic", "nonlinear", "distances")[seed % 5]
    spread = 10 ** rng.uniform(-0.5, 1.5)
    point = rng.uniform(-spread, spread, n)
    bounds = []
    for v in point:
        low = [v - rng.uniform(0, 2 * spread), -FREE, min(0.0, v), v - rng.uniform(0, spread)]
        high = [v + rng.uniform(0, 2 * spread), FREE, FREE, v + 10 * spread]
        side = rng.integers(4)
        bounds.append((float(low[side]), float(high[side])))

    def pick(most):
        return [int(j) for j in rng.choice(n, min(n, int(rng.integers(1, most + 1))), False)]

    def term():
        i, j = pick(1)[0], pick(1)[0]
        a, b = float(rng.normal()), float(rng.uniform(0.2, 1.5) / spread)
        terms = [
            lambda x, m: a * x[i] * x[j],
            lambda x, m: 3 * a * m.sin(b * x[i] + x[j]),
            lambda x, m: a * m.exp(b * x[i]),
            lambda x, m: a * x[i] * m.exp(-((b * x[j]) ** 2)),
            lambda x, m: a * m.log(1 + x[i] ** 2 + b * x[j] ** 2),
            lambda x, m: a * x[i] * x[j] / (1 + b * x[i] ** 2),
            lambda x, m: a * m.sqrt(0.1 + (x[i] - b * x[j]) ** 2),
            lambda x, m: a * b * x[i] ** 3,
            lambda x, m: a * m.cos(b * x[i] * x[j]),
        ]
        return terms[rng.integers(len(terms)) if kind == "nonlinear" else 0]

    def function(terms):
        if kind == "distances" and n > 3:
            a, b = (2 * int(k) for k in rng.choice(n // 2, 2, False))
            return lambda x, m: (x[a] - x[b]) ** 2 + (x[a + 1] - x[b + 1]) ** 2
        parts = [term() for _ in range(terms)]
        linear = {j: float(rng.normal()) for j in pick(3)} if rng.integers(2) else {}
        scale = 10.0 ** int(rng.integers(-2, 5)) if rng.integers(3) == 0 else 1.0
        return lambda x, m: (
            scale * (sum(part(x, m) for part in parts) + sum(a * x[j] for j, a in linear.items()))
        )

    rows, equations, tight = [], 0, rng.integers(6)
    for _ in range(int(rng.integers(1, n + 2))):
        row = function(int(rng.integers(1, 2 + n)))
        value = float(row(point, np))
        slack = abs(value) * rng.choice([0.0, 0.01, 0.3])
        side = rng.integers(6)
        if side < tight and equations < n - 1:
            equations += 1
            rows.append((row, value, value))
        else:
            low = value - slack if side in (3, 4) else -FREE
            rows.append((row, low, FREE if side == 4 else value + (slack or 0.1)))
    target, bend = rng.uniform(-spread, spread, n), float(rng.normal())
    objectives = [
        lambda x, m: sum((x[j] - target[j]) ** 2 for j in range(n)),
        lambda x, m: sum((x[j] - target[j]) ** 2 for j in range(n)) + bend * x[0] * m.sin(x[n - 1]),
        lambda x, m: sum(m.sqrt(1 + (x[j] - target[j]) ** 2) for j in range(n)),
    ]
    return Model(objectives[rng.integers(3)], bounds, rows)


def feasible(seed):
    model = feasible_model(seed)
    return model.judge(*model.solve())


def main():
    nalora.setOutputEnabled(False)
    for judge in (fit, feasible):
        found, begin = collections.Counter(), time.process_time()
        for seed in range(int(sys.argv[1])):
            wrong = judge(seed)
            if wrong:
                found[wrong if wrong.startswith("status") else "false claim"] += 1
                print(f"{judge.__name__}({seed}): {wrong}")
        print(f"{judge.__name__}: {dict(found)} wrong, {time.process_time() - begin:.1f} s")


if __name__ == "__main__":
    main()
