"""nalora: plain operators; the same loops with nalora.Sum and one call a block; arrays."""

import numpy as np

import nalora

STYLES = {
    "w1": ["plain", "quick", "vector"],
    "w2": ["plain", "quick", "vector"],
    "w3": ["plain", "quick", "vector"],
    "w4": ["plain", "quick", "vector"],
    "w5": ["plain", "quick", "vector"],
    "w6": ["plain", "quick"],
    "w7": ["plain"],
    "w8": ["plain", "quick", "vector"],
    "w9": ["plain", "vector"],
}


def version():
    return "nalora " + nalora.__version__


def new():
    nalora.setOutputEnabled(False)
    return nalora.problem()


def solver(p):
    def run():
        p.solve()
        return p.getObjVal()

    return run


def done(p, ck, **extra):
    extra.setdefault("solve", solver(p))
    a = p.attributes
    return ck.done(nvars=a.cols, nrows=a.rows, nnz=a.elems, **extra)


def built(d, ck, build, style):
    """A model whose objective is set within what is timed: the engine has all of it then."""
    with ck("build"):
        p = new()
        build(p, d, style)
    return done(p, ck, load_s=0.0)


def facility_location(p, d, style):
    n, c, f, dem, k = d.n, d.c, d.f, d.d, d.k
    R = range(n)
    var, Sum = nalora.var, nalora.Sum
    if style == "vector":
        x, y = nalora.vars(n, n, name="", ub=1), nalora.vars(n, name="", ub=1)
        p.addVariable(x, y)
        p.addConstraint(x.sum(axis=0) == 1, nalora.Dot(x, d.D) <= d.K * y, x <= y[:, None])
        p.setObjective(nalora.Dot(d.F, y) + nalora.Dot(d.C.ravel(), x.ravel()))
        return
    x = [[var(ub=1) for j in R] for i in R]
    y = [var(ub=1) for i in R]
    p.addVariable(x, y)
    add = p.addConstraint
    if style == "plain":
        for j in R:
            add(sum(x[i][j] for i in R) == 1)
        for i in R:
            add(sum(dem[j] * x[i][j] for j in R) <= k[i] * y[i])
        for i in R:
            for j in R:
                add(x[i][j] <= y[i])
    else:
        add(Sum(x[i][j] for i in R) == 1 for j in R)
        add(Sum(dem[j] * x[i][j] for j in R) <= k[i] * y[i] for i in R)
        add(x[i][j] <= y[i] for i in R for j in R)
    p.setObjective(Sum(f[i] * y[i] for i in R) + Sum(c[i][j] * x[i][j] for i in R for j in R))


def w1(d, style, ck):
    return built(d, ck, facility_location, style)


def dense_rows(p, d, style):
    n, a, b, c = d.n, d.a, d.b, d.c
    R = range(n)
    if style == "vector":
        x = nalora.vars(n, name="")
        p.addVariable(x)
        p.addConstraint(nalora.Dot(d.A, x) <= d.B)
        p.setObjective(nalora.Dot(d.C, x), nalora.maximize)
        return
    x = [nalora.var() for j in R]
    p.addVariable(x)
    if style == "plain":
        for i in R:
            ai = a[i]
            p.addConstraint(sum(ai[j] * x[j] for j in R) <= b[i])
    else:
        p.addConstraint(sum(v * xj for v, xj in zip(a[i], x)) <= b[i] for i in R)
    p.setObjective(sum(c[j] * x[j] for j in R), nalora.maximize)


def w2(d, style, ck):
    return built(d, ck, dense_rows, style)


def quadratic_objective(p, d, style):
    n, q, lin = d.n, d.q, d.l
    R = range(n)
    if style == "vector":
        x = nalora.vars(n, name="", lb=-10, ub=10)
        p.addVariable(x)
        p.setObjective(nalora.Dot(x, d.Q, x) + nalora.Dot(d.L, x))
        return
    total = nalora.Sum if style == "quick" else sum
    x = [nalora.var(lb=-10, ub=10) for i in R]
    p.addVariable(x)
    p.setObjective(
        total(q[i][j] * x[i] * x[j] for i in R for j in R) + total(lin[i] * x[i] for i in R)
    )


def w3(d, style, ck):
    return built(d, ck, quadratic_objective, style)


def base4(d):
    p = new()
    x = [nalora.var(ub=1) for i in range(d.nv)]
    p.addVariable(x)
    rows = [x[i] + 2 * x[i + 1] - x[i + 2] <= 1 for i in range(d.n)]
    p.addConstraint(rows)
    p.setObjective(-1 * x[0] - x[1])
    return p, x, rows


def three_term_rows(p, d, style):
    n = d.n
    if style == "vector":
        x = nalora.vars(d.nv, name="", ub=1)
        p.addVariable(x)
        p.addConstraint(x[:-2] + 2 * x[1:-1] - x[2:] <= 1)
        p.setObjective(-1 * x[0] - x[1])
        return
    x = [nalora.var(ub=1) for i in range(d.nv)]
    p.addVariable(x)
    if style == "plain":
        for i in range(n):
            p.addConstraint(x[i] + 2 * x[i + 1] - x[i + 2] <= 1)
    else:
        p.addConstraint(x[i] + 2 * x[i + 1] - x[i + 2] <= 1 for i in range(n))
    p.setObjective(-1 * x[0] - x[1])


def w4(d, style, ck):
    return built(d, ck, three_term_rows, style)


def w5(d, style, ck):
    t, nv = d.t, d.nv
    p = new()
    with ck("vars"):
        x = nalora.vars(nv, name="", ub=1)
        p.addVariable(x)
        if style != "vector":
            x = x.tolist()
    with ck("build"):
        if style == "plain":
            e = 0
            for k in range(d.n):
                e += t[k] * x[k % nv]
        elif style == "quick":
            e = nalora.Sum(t[k] * x[k % nv] for k in range(d.n))
        else:
            e = nalora.Dot(d.T, np.tile(x, d.n // nv))
    with ck("load"):
        p.setObjective(e)
    return done(p, ck)


def w6(d, style, ck):
    n = d.n
    with ck("base"):
        p, x, rows = base4(d)
    with ck("bounds"):
        if style == "plain":
            for i in range(n):
                p.chgbounds([x[i]], ["U"], [d.ub[i]])
        else:
            p.chgbounds(x[:n], ["U"] * n, d.ub)
    with ck("coefs"):
        for i in range(n):
            p.chgcoef(rows[i], x[i + 1], d.co[i])
    with ck("rows"):
        for a, b, c in d.r:
            p.addConstraint(x[a] + x[b] + x[c] <= 2)
    return done(p, ck, flush_s=0.0)


def w7(d, style, ck):
    n = d.n
    with ck("build"):
        p = new()
        x = [nalora.var(ub=10) for i in range(n)]
        p.addVariable(x)
        rows = [sum(v * x[j] for j, v in zip(d.rows[i], d.vals[i])) <= d.b[i] for i in range(n)]
        p.addConstraint(rows)
        p.setObjective(sum(c * v for c, v in zip(d.c, x)), nalora.maximize)
    with ck("first"):
        p.solve()
    s = 0.0
    with ck("resolve"):
        for i, v in zip(d.ri, d.rb):
            p.chgrhs([rows[i]], [v])
            p.solve()
            s += p.getObjVal()
    return done(p, ck, solve=lambda: s)


def w8(d, style, ck):
    exp, sin = nalora.exp, nalora.sin
    p = new()
    x = nalora.vars(d.nv, name="", lb=-1, ub=1)
    p.addVariable(x)
    with ck("build"):
        if style == "vector":
            e = nalora.Sum(exp(x[:-1]) * sin(x[1:]) + x[:-1] ** 3)
        else:
            v = x.tolist()
            terms = (exp(v[i]) * sin(v[i + 1]) + v[i] ** 3 for i in range(d.n))
            e = nalora.Sum(terms) if style == "quick" else sum(terms)
    with ck("load"):
        p.setObjective(e)

    def solve():
        for xi in x.tolist():
            p.chgvar(xi, initvalue=0.5)
        p.nlpoptimize()
        return p.getObjVal()

    return done(p, ck, solve=solve)


def w9(d, style, ck):
    with ck("build"):
        p = new()
        x = np.array([nalora.var(lb=v) for v in d.lb], dtype=nalora.npvar)
        p.addVariable(x)
        p.addConstraint(x[0] + x[1] >= 0)
        p.setObjective(nalora.Sum(x))
    p.solve()
    with ck("read"):
        v = p.getSolution(x) if style == "vector" else p.getSolution()
    return done(p, ck, solve=lambda: float(sum(v)))
