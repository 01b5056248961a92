"""Curves as an SVG picture."""

import math

WIDTH, HEIGHT = 560, 320
LEFT, RIGHT, TOP, BOTTOM = 70, 20, 20, 50


def label(value):
    for size, sign in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if value >= size:
            return f"{value / size:g}{sign}"
    return f"{value:g}"


def decades(low, high):
    return [10.0**power for power in range(math.floor(math.log10(low)), math.ceil(math.log10(high)) + 1)]


def steps(high):
    """From 0 in four to eight round steps."""
    raw = high / 5
    size = 10 ** math.floor(math.log10(raw))
    step = next(factor * size for factor in (1, 2, 2.5, 5, 10) if factor * size >= raw)
    return [round(step * i, 12) for i in range(math.ceil(high / step) + 1)]


class Axis:
    def __init__(self, values, logarithmic, start, end):
        self.logarithmic = logarithmic
        self.ticks = decades(min(values), max(values)) if logarithmic else steps(max(values))
        self.start, self.end = start, end
        if len(self.ticks) == 1:
            self.ticks.append(self.ticks[0] * 10)

    def place(self, value):
        scale = math.log10 if self.logarithmic else float
        low, high = scale(self.ticks[0]), scale(self.ticks[-1])
        return self.start + (self.end - self.start) * (scale(value) - low) / (high - low)


COLORS = ("#1f5fa8", "#c2571a", "#3a7d34", "#7b3fa0")


def svg(curves, across, up, logarithmic=False):
    """`curves` are rows of points by their names, which are shown if there are several."""
    every = [point for points in curves.values() for point in points]
    x_axis = Axis([x for x, _ in every], logarithmic, LEFT, WIDTH - RIGHT)
    y_axis = Axis([y for _, y in every], logarithmic, HEIGHT - BOTTOM, TOP)
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{HEIGHT}" viewBox="0 0 {WIDTH} {HEIGHT}" '
        'font-family="sans-serif" font-size="12">',
        f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
    ]
    for tick in x_axis.ticks:
        x = x_axis.place(tick)
        parts.append(f'<line x1="{x:.1f}" y1="{TOP}" x2="{x:.1f}" y2="{HEIGHT - BOTTOM}" stroke="#ddd"/>')
        parts.append(f'<text x="{x:.1f}" y="{HEIGHT - BOTTOM + 16}" text-anchor="middle">{label(tick)}</text>')
    for tick in y_axis.ticks:
        y = y_axis.place(tick)
        parts.append(f'<line x1="{LEFT}" y1="{y:.1f}" x2="{WIDTH - RIGHT}" y2="{y:.1f}" stroke="#ddd"/>')
        parts.append(f'<text x="{LEFT - 6}" y="{y + 4:.1f}" text-anchor="end">{label(tick)}</text>')
    for number, (name, points) in enumerate(curves.items()):
        color = COLORS[number]
        places = [(x_axis.place(x), y_axis.place(y)) for x, y in points]
        curve = " ".join(f"{x:.1f},{y:.1f}" for x, y in places)
        parts.append(f'<polyline points="{curve}" fill="none" stroke="{color}" stroke-width="1.5"/>')
        if len(curves) > 1:
            y = TOP + 14 + 16 * number
            parts.append(f'<text x="{WIDTH - RIGHT - 6}" y="{y}" text-anchor="end" fill="{color}">{name}</text>')
        else:
            parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" fill="{color}"/>' for x, y in places]
    middle = (TOP + HEIGHT - BOTTOM) / 2
    parts.append(f'<text x="{(LEFT + WIDTH - RIGHT) / 2}" y="{HEIGHT - 12}" text-anchor="middle">{across}</text>')
    parts.append(f'<text x="16" y="{middle}" text-anchor="middle" transform="rotate(-90 16 {middle})">{up}</text>')
    return "\n".join([*parts, "</svg>", ""])
