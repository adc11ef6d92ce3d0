"""Stigler's diet: the cheapest food that keeps a person alive, at the prices of 1939.

Prints what to buy, what it costs a year, which nutrients decide the bill and what another unit of
them would cost (their duals), and the three foods that came closest to being bought.
"""

import csv
from pathlib import Path

import nalora

DATA = Path(__file__).resolve().parent / "data"
DAYS = 365


def read_table(name):
    with open(DATA / name, newline="", encoding="utf-8") as file:
        return list(csv.DictReader(file))


def readable(nutrient):
    """calories_kcal1000 -> calories (1000 kcal)"""
    name, unit = nutrient.rsplit("_", 1)
    units = {"kcal1000": "1000 kcal", "kiu": "1000 IU"}
    return f"{name.replace('_', ' ')} ({units.get(unit, unit)})"


def main():
    foods = read_table("stigler_foods.csv")
    minimum = {
        row["nutrient"]: float(row["daily_minimum"]) for row in read_table("stigler_nutrients.csv")
    }

    # One variable a food: dollars spent on it per day. The table gives nutrients per dollar.
    spend = [nalora.var(name=food["commodity"]) for food in foods]
    enough = {
        nutrient: nalora.constraint(
            sum(float(food[nutrient]) * dollars for food, dollars in zip(foods, spend)) >= least,
            name=nutrient,
        )
        for nutrient, least in minimum.items()
    }
    nalora.setOutputEnabled(False)
    diet = nalora.problem(spend, list(enough.values()), sum(spend), name="diet")
    diet.solve()
    if diet.getProbStatus() != nalora.lp_optimal:
        raise SystemExit(f"no optimal diet: {diet.getProbStatusString()}")

    amounts = diet.getSolution(spend)
    print("Stigler's diet, 1939: the cheapest year of sufficient food")
    print()
    print(f"{'food':28} {'quantity a year':>18} {'dollars a year':>15}")
    for food, dollars in sorted(zip(foods, amounts), key=lambda pair: -pair[1]):
        if dollars > 1e-9:
            units = dollars * DAYS * 100 / float(food["price_1939_cents"])
            quantity = f"{units:.1f} x {food['unit']}"
            print(f"{food['commodity']:28} {quantity:>18} {dollars * DAYS:15.2f}")
    print(f"{'total':28} {'':18} {diet.getObjVal() * DAYS:15.2f}")

    print()
    print(f"{'binding nutrient':28} {'daily minimum':>18} {'cents per unit':>15}")
    for nutrient, row in enough.items():
        if abs(diet.getSlack(row)) <= 1e-9 * minimum[nutrient]:
            price = diet.getDual(row) * 100
            print(f"{readable(nutrient):28} {minimum[nutrient]:18g} {price:15.4f}")

    print()
    print("The three foods that came closest, and by how much too dear (cents per dollar)")
    reduced = zip(diet.getRCost(spend), amounts, foods)
    left_out = [(cost, food) for cost, amount, food in reduced if amount <= 1e-9]
    for cost, food in sorted(left_out, key=lambda pair: pair[0])[:3]:
        print(f"{food['commodity']:28} {cost * 100:18.2f}")


if __name__ == "__main__":
    main()
