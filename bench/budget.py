#!/usr/bin/env python3
"""Compares the exact figures with their budgets.

    budget.py BUILD     the directory of a Release build with -DTAVIDL_BUILD_BENCH=ON
"""

import os
import sys
import tomllib

from measure import (COMPARISONS, OBJECTS, PEERS, RESULTS, SHORT, arm_text, cost_is_outdated,
                     counts, mean, stripped_sizes)

BUDGETS = "bench/budgets.toml"
LONG_NAME = "TavEmp.ExecuteWithParamList"
ROOM = 0.993  # a figure below this share of its budget leaves room to lower it


def figures(build):
    """By the budget's name: the figure, and the call in which it was measured."""
    instructions, allocations = counts(build)
    calls = [cell[1:] for cell in allocations if cell[0] == "ours"]
    found = {}

    for comparison in COMPARISONS:
        shares = comparison.shares(instructions)
        costliest = max(shares, key=shares.get)
        found[f"instructions, {comparison}: mean"] = mean(shares.values()), costliest
        found[f"instructions, {comparison}: costliest call"] = shares[costliest], costliest

    def most(number, chosen):
        call = max(chosen, key=number)
        return number(call), call

    short = [call for call in calls if call[1] != "json" and call[2] == SHORT]
    found["allocations, any call: beyond generated code's"] = most(
        lambda call: allocations["ours", *call] - allocations["generated", *call], calls)
    found["allocations, short call"] = most(
        lambda call: allocations["ours", *call], [call for call in short if call[0] != LONG_NAME])
    found["allocations, short call of a long name"] = most(
        lambda call: allocations["ours", *call], [call for call in short if call[0] == LONG_NAME])

    text = {name: stripped_sizes(os.path.join(build, OBJECTS[name]))[0]
            for name in ("ours", "generated")}
    found["text, x86-64: share of generated code's"] = text["ours"] / text["generated"], None
    found["text, 32-bit ARM: bytes"] = arm_text("TavIDL"), None
    found["text of Host, 32-bit ARM: bytes"] = arm_text("TavIDLHost"), None
    return found


def shown(figure):
    return f"{figure:.3f}" if isinstance(figure, float) else str(figure)


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: budget.py BUILD")
    with open(BUDGETS, "rb") as file:
        budgets = tomllib.load(file)
    found = figures(sys.argv[1])
    if found.keys() != budgets.keys():
        sys.exit("bench: no figure for a budget, or no budget for a figure: "
                 + "; ".join(sorted(found.keys() ^ budgets.keys())))

    over = []
    for name, (figure, call) in found.items():
        if figure is None:
            print(f"  {name:<72}not measured: script/test armhf builds it")
            continue
        budget = budgets[name]["at_most"]
        note = ""
        if round(figure, 3) > budget:
            note = "OVER"
            worst = f"; worst: {call[0]}, {call[1]}, strings of {call[2]} bytes" if call else ""
            over.append(f"{name}: {shown(figure)}, budget {shown(budget)}{worst}\n"
                        f"    why: {budgets[name]['why']}")
        elif figure < ROOM * budget:
            note = f"there is room: lower it in {BUDGETS}"
        print(f"  {name:<72}{shown(figure):>8}   budget {shown(budget):<8}{note}".rstrip())
    if cost_is_outdated():
        sys.exit(f"bench: README.md quotes other figures than {RESULTS} and {PEERS}; script/bench"
                 " writes all three")
    if over:
        sys.exit("bench: over budget:" + "\n  ".join(["", *over]) +
                 f"\nMake it cheaper again, or raise the budget in {BUDGETS} and explain why.")


if __name__ == "__main__":
    main()
