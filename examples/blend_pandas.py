"""The cheapest blend of feeds, from pandas tables (pandas has to be installed).

A Series of variables calculates as an array of objects. Comparisons go through arrays of the
element type npexpr, which make constraints.
"""

import pandas as pd

import nalora

FEEDS = pd.DataFrame(
    {
        "protein": [0.09, 0.44, 0.12, 0.0],
        "fibre": [0.02, 0.06, 0.11, 0.0],
        "calcium": [0.0003, 0.003, 0.0006, 0.38],
        "price": [0.31, 0.65, 0.28, 0.12],
    },
    index=["maize", "soya", "oats", "limestone"],
)
AT_LEAST = pd.Series({"protein": 0.20, "calcium": 0.008})
AT_MOST = pd.Series({"fibre": 0.055, "calcium": 0.012})


def main():
    share = pd.Series({feed: nalora.var(name=feed, ub=1) for feed in FEEDS.index})
    content = pd.Series({n: nalora.Sum(FEEDS[n] * share) for n in FEEDS.columns})

    def expressions(series):
        return series.to_numpy().astype(nalora.npexpr)

    nalora.setOutputEnabled(False)
    p = nalora.problem(
        list(share),
        nalora.Sum(share) == 1,
        expressions(content[AT_LEAST.index]) >= AT_LEAST.to_numpy(),
        expressions(content[AT_MOST.index]) <= AT_MOST.to_numpy(),
        content["price"],
        name="blend",
    )
    p.solve()
    if p.getProbStatus() != nalora.lp_optimal:
        raise SystemExit(f"not solved: {p.getProbStatusString()}")
    table = FEEDS.assign(share=p.getSolution(list(share)))
    print(table[["price", "share"]].to_string(float_format="{:.3f}".format))
    print(f"costs {p.getObjVal():.4f} a kilogram")


if __name__ == "__main__":
    main()
