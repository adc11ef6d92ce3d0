"""The least risky portfolio for a wanted return (Markowitz 1952): a convex quadratic problem.

Solves the same problem again for each return wanted, changing one right-hand side.
"""

import numpy as np

import nalora

ASSETS = ["bonds", "shares", "property", "gold"]
MEAN = np.array([0.025, 0.080, 0.055, 0.030])
COVARIANCE = np.array(
    [
        [0.0016, 0.0004, 0.0003, 0.0000],
        [0.0004, 0.0324, 0.0108, -0.0027],
        [0.0003, 0.0108, 0.0144, -0.0009],
        [0.0000, -0.0027, -0.0009, 0.0225],
    ]
)


def main():
    share = np.array([nalora.var(name=asset) for asset in ASSETS], dtype=nalora.npvar)
    variance = nalora.Dot(share, COVARIANCE, share)
    wanted = nalora.constraint(nalora.Dot(MEAN, share) >= 0, name="return")

    nalora.setOutputEnabled(False)
    p = nalora.problem(share, nalora.Sum(share) == 1, wanted, variance, name="portfolio")
    print("return   risk  " + "".join(f"{asset:>10}" for asset in ASSETS))
    for percent in (3, 4, 5, 6, 7, 8):
        p.chgrhs([wanted], [percent / 100])
        p.solve()
        if p.getProbStatus() != nalora.lp_optimal:
            raise SystemExit(f"not solved: {p.getProbStatusString()}")
        values = p.getSolution(share)
        risk = p.getObjVal() ** 0.5
        print(f"{percent:4} %  {risk:6.2%}" + "".join(f"{abs(v):10.1%}" for v in values))


if __name__ == "__main__":
    main()
