"""Optimal power flow: which generator of an electrical network shall deliver how much.

The network of nine buses of the Western System Coordinating Council, as in P. M. Anderson and
A. A. Fouad, "Power System Control and Stability" (1977), with costs of generation as they are
common in the literature: the least is 5296.69 dollars an hour. Voltages are in polar form; what a
line carries follows from the voltages and angles at its two ends by the laws of alternating
current. All power is in units of 100 MW.
"""

import nalora

#              bus: P, Q that is used there
LOADS = {5: (0.90, 0.30), 7: (1.00, 0.35), 9: (1.25, 0.50)}
#                bus: least and most P, cost = a P^2 + b P + c with P in MW
GENERATORS = {
    1: (0.10, 2.50, 0.1100, 5.0, 150.0),
    2: (0.10, 3.00, 0.0850, 1.2, 600.0),
    3: (0.10, 2.70, 0.1225, 1.0, 335.0),
}
#         from, to, resistance, reactance, charging susceptance, limit
LINES = [
    (1, 4, 0.0, 0.0576, 0.0, 2.5),
    (4, 5, 0.017, 0.092, 0.158, 2.5),
    (5, 6, 0.039, 0.17, 0.358, 1.5),
    (3, 6, 0.0, 0.0586, 0.0, 3.0),
    (6, 7, 0.0119, 0.1008, 0.209, 1.5),
    (7, 8, 0.0085, 0.072, 0.149, 2.5),
    (8, 2, 0.0, 0.0625, 0.0, 2.5),
    (8, 9, 0.032, 0.161, 0.306, 2.5),
    (9, 4, 0.01, 0.085, 0.176, 2.5),
]
BUSES = range(1, 10)


def flow(line, volts, angle, start, end):
    """P and Q that enter a line at its end `start`."""
    resistance, reactance, charging = line[2:5]
    admittance = 1 / complex(resistance, reactance)
    g, b = admittance.real, admittance.imag
    difference = angle[start] - angle[end]
    product = volts[start] * volts[end]
    sine, cosine = nalora.sin(difference), nalora.cos(difference)
    p = g * volts[start] ** 2 - product * (g * cosine + b * sine)
    q = -(b + charging / 2) * volts[start] ** 2 - product * (g * sine - b * cosine)
    return p, q


def main():
    volts = {bus: nalora.var(name=f"volts{bus}", lb=0.9, ub=1.1) for bus in BUSES}
    angle = {bus: nalora.var(name=f"angle{bus}", lb=-3.2, ub=3.2) for bus in BUSES}
    real = {g: nalora.var(name=f"p{g}", lb=d[0], ub=d[1]) for g, d in GENERATORS.items()}
    reactive = {g: nalora.var(name=f"q{g}", lb=-3, ub=3) for g in GENERATORS}

    nalora.setOutputEnabled(False)
    problem = nalora.problem(volts, angle, real, reactive, name="power flow")
    problem.addConstraint(angle[1] == 0)

    leaving = {bus: [] for bus in BUSES}  # P and Q into the lines at a bus
    for line in LINES:
        for start, end in (line[:2], line[1::-1]):
            p, q = flow(line, volts, angle, start, end)
            leaving[start].append((p, q))
            problem.addConstraint(p**2 + q**2 <= line[5] ** 2)

    balance = {}
    for bus in BUSES:
        used_p, used_q = LOADS.get(bus, (0, 0))
        total_p, total_q = (nalora.Sum(flows) for flows in zip(*leaving[bus]))
        balance[bus] = nalora.constraint(real.get(bus, 0) - total_p == used_p, name=f"power{bus}")
        problem.addConstraint(balance[bus], reactive.get(bus, 0) - total_q == used_q)

    problem.setObjective(
        nalora.Sum(
            a * (100 * real[g]) ** 2 + b * 100 * real[g] + c
            for g, (_, _, a, b, c) in GENERATORS.items()
        )
    )
    for bus in BUSES:
        problem.chgvar(volts[bus], initvalue=1.0)
    problem.solve()
    if problem.getProbStatus() not in (nalora.nlp_locally_optimal, nalora.nlp_globally_optimal):
        raise SystemExit(f"not solved: {problem.getProbStatusString()}")

    for g in GENERATORS:
        print(f"generator {g} delivers {100 * problem.getSolution(real[g]):7.2f} MW")
    print(f"{'bus':>4}{'volts':>8}{'degrees':>9}{'price of a MWh':>16}")
    for bus in BUSES:
        degrees = round(57.29578 * problem.getSolution(angle[bus]), 2) + 0.0  # no -0.00
        price = problem.getDual(balance[bus]) / 100
        print(f"{bus:4}{problem.getSolution(volts[bus]):8.3f}{degrees:9.2f}{price:16.2f}")
    print(f"cost {problem.getObjVal():.2f} dollars an hour")


if __name__ == "__main__":
    main()
