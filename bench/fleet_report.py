"""What bench/fleet found, as the tables and plots of docs/fleet.md."""

import pathlib
import re
import statistics

import plot
from fleet_model import Scene, recovered, simulate

DOCUMENT = pathlib.Path(__file__).parents[1] / "docs/fleet.md"
PLOTS = DOCUMENT.with_name("plots")
MILLION = 1_000_000
WATCHED = 2400

ORDINARY = {"outage": 180, "jitter": True, "handshakes": 10_000}
HALF = {"refuse": 0.5, "refuse_until": 780}
MEANS = {
    "outage of 3 minutes, all holds the same": {**ORDINARY, "jitter": False},
    "outage, jitter": ORDINARY,
    "outage, jitter, half of the polls refused for 10 minutes": {**ORDINARY, **HALF},
    "outage, jitter, half refused, each 503 sent after 0 to 60 s": {**ORDINARY, **HALF, "refuse_over": 60},
    "outage, jitter, polls beyond 5,000 per second refused": {**ORDINARY, "limit": 5000},
    "outage, jitter, those beyond refused, each 503 sent after 0 to 60 s": {
        **ORDINARY,
        "limit": 5000,
        "refuse_over": 60,
    },
    "outage, jitter, 2,000 handshakes per second": {**ORDINARY, "handshakes": 2000},
    "outage, jitter, 50,000 handshakes per second": {**ORDINARY, "handshakes": 50_000},
    "no outage: all connections cut, jitter": {"cut": True, "jitter": True, "handshakes": 10_000},
    "no outage: instances restarted in turn within 10 minutes, jitter": {
        "drain": 600,
        "jitter": True,
        "handshakes": 10_000,
    },
}
DRAWN = list(MEANS)[:4]


def table(heads, rows):
    return "\n".join("| " + " | ".join(cells) + " |" for cells in [heads, ["---"] * len(heads), *rows])


def at_share(delays, share):
    return delays[min(len(delays) - 1, int(share * len(delays)))]


def changes(results):
    rows = []
    count = results["devices"]
    for kind, change in results["change"].items():
        delays = change["delays"]
        rows.append([
            kind.upper(),
            *(f"{value:,.0f} ms" for value in (statistics.median(delays), at_share(delays, 0.99), delays[-1])),
            f"{1000 * change['devices_cpu'] / count:.1f} ms",
            f"{1000 * change['plane_cpu'] / count:.2f} ms",
            f"{change['bytes'] / count / 1000:.1f} kB",
            f"{change['memory']:.2f} MiB, {change['memory_after']:.2f} MiB",
        ])
    heads = ["", "Median", "99 %", "Last", "Processor time of a device", "of the control plane, per device",
             "Bytes per device", "Memory of a device, before and after"]
    return table(heads, rows)


def costs(results):
    count, change, holds = results["devices"], results["change"]["https"], results["holds"]
    rows = [
        ["a device connects, gets its policy and is held", count, change["start_plane_cpu"], change["start_bytes"]],
        ["a new policy: two answers, held again", count, change["plane_cpu"], change["bytes"]],
        ["a hold ends with 304, held again", holds["polls"], holds["plane_cpu"], holds["bytes"]],
    ]
    return table(
        ["What, over HTTPS", "Processor time of the control plane", "Bytes, both directions"],
        [[what, f"{1000 * cpu / times:.2f} ms", f"{sent / times / 1000:.1f} kB"] for what, times, cpu, sent in rows],
    )


def in_bins(course, length):
    return [sum(course.polls[start : start + length]) for start in range(0, len(course.polls), length)]


def comparison(results, length):
    rows = []
    curves = {}
    for name, found in results["courses"].items():
        measured = found["polls"]
        simulated = in_bins(simulate(Scene(devices=results["devices"], **found["told"])), length)
        apart = sum(abs(one - other) for one, other in zip(measured, simulated, strict=True)) / sum(measured)
        rows.append([name, f"{sum(measured):,}", f"{sum(simulated):,.0f}", f"{max(measured):,}",
                     f"{max(simulated):,.0f}", f"{100 * apart:.0f} %"])
        curves[name] = {
            which: [(length * (number + 0.5), value) for number, value in enumerate(values)]
            for which, values in (("measured", measured), ("simulated", simulated))
        }
    heads = ["", "Polls, measured", "simulated", f"Most in {length} s, measured", "simulated", "Difference"]
    return table(heads, rows), curves


def million():
    rows = []
    curves = {}
    for name, told in MEANS.items():
        scene = Scene(devices=MILLION, seconds=WATCHED, **told)
        course = simulate(scene)
        end = recovered(scene, course)
        rows.append([
            name,
            f"{max(course.polls):,.0f}",
            f"{max(course.polls[WATCHED // 2 :]):,.0f}",
            f"{sum(course.handshakes) / MILLION:.1f} M",
            f"{sum(course.refused) / MILLION:.1f} M",
            f"{sum(course.given_up) / MILLION:.1f} M",
            "not in 40 min" if end is None else f"{end - told.get('outage', 0):,} s",
        ])
        if name in DRAWN:
            curves[name] = [(second / 60, course.polls[second]) for second in range(0, WATCHED, 4)]
    heads = ["", "Most polls per second", "after 20 min", "Handshakes", "Refused", "Gave up connecting",
             "99 % held again after"]
    return table(heads, rows), curves


def sizes(results):
    change, holds = results["change"]["https"], results["holds"]
    rows = []
    for devices in (10_000, 100_000, MILLION):
        polls = devices / 270
        rows.append([
            f"{devices:,}",
            f"{devices:,}",
            f"{polls:,.0f}",
            f"{polls * holds['bytes'] / holds['polls'] / 1e6:,.2f} MB/s",
            f"{2 * devices / 60:,.0f}",
            f"{devices * change['bytes'] / results['devices'] / 1e6:,.0f} MB",
        ])
    heads = ["Devices", "Connections", "Polls per second", "their bytes", "A change, released over 60 s: requests per second",
             "bytes of all of them"]
    return table(heads, rows)


def replaced(text, marker, block):
    pattern = rf"(<!-- {marker} -->\n).*?(<!-- end -->)"
    if not re.search(pattern, text, flags=re.S):
        raise RuntimeError(f"{DOCUMENT} has no place for {marker}")
    return re.sub(pattern, lambda match: f"{match[1]}{block}\n{match[2]}", text, flags=re.S)


def write(results, length):
    compared, measured_curves = comparison(results, length)
    means, million_curves = million()
    run = f"{results['devices']:,} daemons on {results['date']}, {results['machine']}. {results.get('remark', '')}".rstrip()
    text = DOCUMENT.read_text(encoding="utf-8")
    for marker, block in (("fleet-run", run), ("fleet-change", changes(results)), ("fleet-costs", costs(results)),
                          ("fleet-sizes", sizes(results)), ("fleet-comparison", compared), ("fleet-million", means)):
        text = replaced(text, marker, block)
    DOCUMENT.write_text(text, encoding="utf-8")
    count = results["devices"]
    plots = {
        "fleet-change": ({kind.upper(): [(delay, 100 * (number + 1) / count)
                                         for number, delay in enumerate(change["delays"])]
                          for kind, change in results["change"].items()},
                         "ms since the policy was published", "% of the daemons that have it"),
        "fleet-million": (million_curves, "minutes since the outage began", "polls per second"),
    }
    for number, curves in enumerate(measured_curves.values(), 1):
        plots[f"fleet-course-{number}"] = (curves, "s since the connections were lost", f"polls in {length} s")
    for name, (curves, across, up) in plots.items():
        (PLOTS / f"{name}.svg").write_text(plot.svg(curves, across, up), encoding="utf-8")
