"""The page's plots."""
import os
import subprocess

from movies_fit.results import median

OURS, PLAIN, H263 = "#2060b0", "#d08030", "#b03060"
WIDE = 'set terminal pngcairo size 900,420 font "DejaVu Sans,10"'
SMALL = 'set terminal pngcairo size 560,480 font "DejaVu Sans,10"'


class Plot:
    """One picture. A series without points is left out: gnuplot would end with an error."""

    def __init__(self, work, name, settings):
        self.work, self.name, self.settings = work, name, settings
        self.series = []

    def add(self, points, style):
        """Points are (x, y)."""
        if not points:
            return
        path = os.path.join(self.work, f"{self.name}-{len(self.series)}.dat")
        with open(path, "w", encoding="ascii") as file:
            file.writelines(" ".join(map(str, point)) + "\n" for point in points)
        self.series.append(f'"{path}" {style}')

    def draw(self, docs, *curves):
        """`curves` are functions of x, drawn above the points."""
        if not self.series:
            return
        script = [
            *self.settings,
            f'set output "{docs}/{self.name}.png"',
            "plot " + ", ".join([*self.series, *curves]),
        ]
        subprocess.run(["gnuplot"], input="\n".join(script), text=True, check=True)


def spread(cell):
    """Sets the points of one budget side by side, the same in each run."""
    return (sum(map(ord, str(cell))) * 37 % 101) / 101 - 0.5


def sizes(results, work, docs):
    names = ", ".join(f'"{b // 1000} kB" {i}' for i, b in enumerate(results.budgets))
    plot = Plot(
        work,
        "movies-fit-size",
        [
            WIDE,
            "set grid y; set key outside top center horizontal; set logscale y",
            'set ylabel "size / limit"; set yrange [0.03:20]',
            f'set xlabel "budget"; set xtics ({names})',
            f"set xrange [-0.5:{len(results.budgets) - 0.5}]",
        ],
    )
    looks = [
        (results.recipes, f'with points pt 6 ps 0.7 lc rgb "{PLAIN}" title "plain recipe"'),
        (results.ours, f'with points pt 7 ps 0.45 lc rgb "{OURS}" title "adapter"'),
    ]
    for found, style in looks:
        cloud = [
            (results.budgets.index(cell.budget) + 0.7 * spread(cell), round(cell.fill, 4))
            for cell in found
            if cell.made and cell.budget in results.budgets
        ]
        plot.add(cloud, style)
    plot.draw(docs, '1 lc rgb "black" title "limit"')


def likeness(results, work, docs):
    names = ", ".join(f'"{b // 1000} kB" {b}' for b in results.budgets)
    plot = Plot(
        work,
        "movies-fit-ssim",
        [
            WIDE,
            "set grid; set key outside top center horizontal; set logscale x",
            f'set xlabel "budget"; set xtics ({names})',
            f"set xrange [{results.budgets[0] * 0.9}:{results.budgets[-1] * 1.1}]",
            'set ylabel "median SSIM"; set yrange [*:1]',
        ],
    )
    for codec, colour in (("mpeg4", OURS), ("h263", H263)):
        ours, best = [], []
        for budget in results.budgets:
            # The same cells in both lines.
            some = [
                (cell.ssim, top[1])
                for cell in results.ours
                if cell.budget == budget and cell.codec == codec and cell.ssim is not None
                if (top := results.ladder.best(cell))
            ]
            if some:
                ours.append((budget, median([mine for mine, _ in some])))
                best.append((budget, median([top for _, top in some])))
        plot.add(best, f'with lines dt 2 lw 2 lc rgb "{colour}" title "{codec}, best rung"')
        plot.add(ours, f'with linespoints pt 7 lc rgb "{colour}" title "{codec}, adapter"')
    plot.draw(docs)


def againstRecipe(results, work, docs):
    plot = Plot(
        work,
        "movies-fit-recipe",
        [
            SMALL,
            "set grid; unset key; set size ratio -1",
            "set xrange [0.2:1]; set yrange [0.2:1]",
            'set xlabel "SSIM of the plain recipe, where it kept the limit"',
            'set ylabel "SSIM of the adapter"',
        ],
    )
    plot.add(
        [(plain.ssim, cell.ssim) for cell, plain in results.pairs],
        f'with points pt 7 ps 0.5 lc rgb "{OURS}"',
    )
    plot.draw(docs, 'x lc rgb "black"')


def encodes(results, work, docs):
    plot = Plot(
        work,
        "movies-fit-encodes",
        [
            SMALL,
            "set grid y; set key top right; set style fill solid; set boxwidth 0.38",
            'set xlabel "encodes to a file"; set xtics 1; set xrange [-0.5:*]',
            'set ylabel "requests"; set yrange [0:*]',
        ],
    )
    for passes, colour in ((1, OURS), (2, PLAIN)):
        counts = [cell.encodes for cell in results.ours if cell.made and cell.passes == passes]
        bars = [(n + 0.4 * passes - 0.6, counts.count(n)) for n in sorted(set(counts))]
        name = "one pass" if passes == 1 else "two passes"
        plot.add(bars, f'with boxes lc rgb "{colour}" title "{name}"')
    plot.draw(docs)


def draw(results, docs, work):
    for one in (sizes, likeness, againstRecipe, encodes):
        one(results, work, docs)
