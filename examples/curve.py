"""A curve fitted to measured data: nonlinear least squares.

The Misra1a data of the NIST Statistical Reference Datasets: the volume of a gas absorbed at some
pressures, explained by b1 * (1 - exp(-b2 * pressure)). The certified parameters are 238.94212918
and 5.5015643181e-04, with a residual sum of squares of 0.12455138894.
"""

import numpy as np

import nalora

PRESSURE = [77.6, 114.9, 141.1, 190.8, 239.9, 289.0, 332.8, 378.4]
PRESSURE += [434.8, 477.3, 536.8, 593.1, 689.1, 760.0]
VOLUME = [10.07, 14.73, 17.94, 23.93, 29.61, 35.18, 40.02, 44.82]
VOLUME += [50.76, 55.05, 61.01, 66.40, 75.47, 81.78]


def plot(curve):
    """A bar for each measurement, a mark where the curve is."""
    for pressure, volume, fitted in zip(PRESSURE, VOLUME, curve):
        bar = list("." * round(volume * 0.7))
        place = round(fitted * 0.7) - 1
        bar[min(place, len(bar) - 1)] = "+"
        print(f"{pressure:6.1f} {''.join(bar)} {volume:.2f}")


def main():
    b1, b2 = nalora.var(name="b1", ub=1000), nalora.var(name="b2", ub=1)
    curve = b1 * (1 - nalora.exp(-b2 * np.array(PRESSURE)))
    residuals = curve - np.array(VOLUME)

    nalora.setOutputEnabled(False)
    p = nalora.problem(b1, b2, nalora.Sum(residuals**2), name="curve")
    p.chgvar(b1, initvalue=250)
    p.chgvar(b2, initvalue=0.0005)
    p.solve()
    if p.getProbStatus() not in (nalora.nlp_locally_optimal, nalora.nlp_globally_optimal):
        raise SystemExit(f"not solved: {p.getProbStatusString()}")
    plot(p.getSolution(curve))
    first, second = p.getSolution(b1, b2)
    print(f"b1 = {first:.8f}, b2 = {second:.11f}, sum of squares {p.getObjVal():.9f}")


if __name__ == "__main__":
    main()
