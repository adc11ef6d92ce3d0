"""A transportation problem in arrays: what to ship from which plant to which market.

Variables, rows and the objective are written as arrays, the solution comes back as one.
"""

import numpy as np

import nalora

PLANTS, MARKETS = ["Seattle", "San Diego"], ["New York", "Chicago", "Topeka"]
SUPPLY = np.array([350.0, 600.0])  # cases
DEMAND = np.array([325.0, 300.0, 275.0])  # cases
DISTANCE = np.array([[2.5, 1.7, 1.8], [2.5, 1.8, 1.4]])  # thousand miles
FREIGHT = 90.0  # dollars per case and thousand miles


def main():
    ship = nalora.vars(len(PLANTS), len(MARKETS), name="ship")
    within_supply = ship.sum(axis=1) <= SUPPLY
    meets_demand = ship.sum(axis=0) >= DEMAND
    cost = nalora.Sum(FREIGHT / 1000 * DISTANCE * ship)

    nalora.setOutputEnabled(False)
    p = nalora.problem(ship, within_supply, meets_demand, cost, name="transport")
    p.solve()
    if p.getProbStatus() != nalora.lp_optimal:
        raise SystemExit(f"not solved: {p.getProbStatusString()}")

    print(f"{'cases':12}" + "".join(f"{market:>10}" for market in MARKETS))
    for plant, row in zip(PLANTS, p.getSolution(ship)):
        print(f"{plant:12}" + "".join(f"{cases:10.0f}" for cases in row))
    prices = 1000 * np.array(p.getDual(meets_demand))
    print(f"{'price':12}" + "".join(f"{price:10.1f}" for price in prices))
    print(f"cost {p.getObjVal():.3f} thousand dollars")


if __name__ == "__main__":
    main()
