"""Which projects to start with a limited budget: a mixed integer problem with side conditions."""

import nalora

#           name               cost  profit
PROJECTS = [
    ("harbour crane", 120, 210),
    ("cold store", 80, 130),
    ("rail siding", 95, 160),
    ("solar roof", 60, 75),
    ("new offices", 150, 190),
    ("second shift", 40, 70),
]
BUDGET = 300


def main():
    start = {name: nalora.var(name=name, vartype=nalora.binary) for name, _, _ in PROJECTS}
    cost = sum(cost * start[name] for name, cost, _ in PROJECTS)
    profit = sum(profit * start[name] for name, _, profit in PROJECTS)
    # A loan in steps of 50 may stretch the budget; each step costs 20 of profit.
    loan = nalora.var(name="loan", vartype=nalora.integer, ub=2)

    nalora.setOutputEnabled(False)
    p = nalora.problem(list(start.values()), loan, name="projects")
    p.addConstraint(
        cost <= BUDGET + 50 * loan,
        start["second shift"] <= start["harbour crane"],  # no crane, no second shift
        start["cold store"] + start["rail siding"] <= 1,  # they need the same ground
    )
    p.setObjective(profit - 20 * loan, sense=nalora.maximize)
    p.solve()
    if p.getProbStatus() != nalora.mip_optimal:
        raise SystemExit(f"not solved: {p.getProbStatusString()}")

    for name, price, gain in PROJECTS:
        if p.getSolution(start[name]) > 0.5:
            print(f"start {name:14} cost {price:4} profit {gain:4}")
    print(f"loan {50 * p.getSolution(loan):.0f}, total profit {p.getObjVal():.0f}")


if __name__ == "__main__":
    main()
