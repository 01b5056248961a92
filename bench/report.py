"""Results as text, as the tables of docs/performance.md, and as plots."""

import re

import harness as h
import plot

DOCUMENT = h.REPOSITORY / "docs/performance.md"
PLOTS = h.REPOSITORY / "docs/plots"
PEERS = {"easy_loop": "easy loop", "python": "Python"}


def number(value):
    if value == 0 or abs(value) >= 100:
        return f"{value:,.0f}"
    return f"{value:.3g}"


def with_spread(value):
    if not isinstance(value, dict):
        return number(value)
    return f"{number(value['median'])} ({number(value['low'])} to {number(value['high'])})"


def cells(row):
    values = dict(row["values"])
    own = values.pop("daemon")
    peers = "; ".join(
        f"{PEERS.get(name, name)} {with_spread(value)}{ratio(own, value)}" for name, value in values.items()
    )
    unit = f" {row['unit']}" if row["unit"] else ""
    met = {True: "yes", False: "**no**", None: ""}[row["met"]]
    return row["what"], row["goal"], with_spread(own) + unit, peers, met


def ratio(own, peer):
    return f" [{h.middle(own) / h.middle(peer):.2f} ×]" if h.middle(own) and h.middle(peer) else ""


def line(row):
    what, goal, own, peers, met = cells(row)
    return (
        f"{met.strip('*') or '-':4}{what}: {own}" + (f", goal {goal}" if goal else "") + (f"; {peers}" if peers else "")
    )


def table(rows):
    lines = ["| What | Goal | Daemon | Peers, and the daemon as a multiple of each | Met |", "|---|---|---|---|---|"]
    return "\n".join(lines + ["| " + " | ".join(cells(row)) + " |" for row in rows])


AXES = {
    "policy-size": ("bytes of stored policy", "ms of processor time per cycle", True),
    "hosts": ("hosts in the stored policy", "ms of processor time per cycle", True),
    "log-length": ("bytes of activity log", "ms of processor time per cycle", True),
    "age": ("cycles since the start", "ms of processor time per cycle", False),
    "age-memory": ("cycles since the start", "MiB of private memory", False),
}


def write(results, order):
    text = DOCUMENT.read_text(encoding="utf-8")
    rows = [row for name in order if name in results["groups"] for row in results["groups"][name]["rows"]]
    loads = ", ".join(f"{name} {results['groups'][name]['load']:.1f}" for name in order if name in results["groups"])
    block = f"Run on {results['date']}, {results['machine']}. Load average after each group: {loads}.\n\n{table(rows)}"
    text = re.sub(
        r"(<!-- results -->\n).*(\n<!-- end -->)", lambda match: match[1] + block + match[2], text, flags=re.S
    )
    DOCUMENT.write_text(text, encoding="utf-8")
    PLOTS.mkdir(exist_ok=True)
    for group in results["groups"].values():
        for name, points in group.get("plots", {}).items():
            across, up, logarithmic = AXES[name]
            (PLOTS / f"{name}.svg").write_text(plot.svg({name: points}, across, up, logarithmic), encoding="utf-8")
