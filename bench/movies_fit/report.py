"""The page: what was promised against what came out, in tables and plots."""
import os
import statistics
import subprocess

from movies_fit import cells, ladder

CLOSE = 0.01  # of SSIM: as good as the best rung
CONTAINER = 0.99  # of a file, what is left to the pictures and the sound


class Cell:
    """A cell's names and what was measured there."""

    def __init__(self, name, value):
        words = name.split(" ")
        self.kind = words[0]
        words = words[2:] if self.kind == "ours" else words[1:]
        self.clip, self.budget = words[0], int(words[1])
        self.passes = int(words[-1]) if self.kind == "ours" else 2
        self.form = " ".join(words[2:-1] if self.kind == "ours" else words[2:])
        self.value = value
        self.made = value["end"] == "made"

    def __str__(self):
        return f"{self.clip} {self.budget // 1000} kB {self.form}" + (
            f" pass {self.passes}" if self.kind == "ours" else ""
        )

    def get(self, key, default=None):
        return self.value.get(key, default)

    @property
    def fill(self):
        return self.get("size") / self.get("limit")

    @property
    def isOver(self):
        return self.made and self.fill > 1

    @property
    def isCut(self):
        return self.made and (
            self.get("frames missing", 99) > 1 or self.get("sound missing", 0) > 0.1
        )

    @property
    def isWhole(self):
        return self.made and not self.isOver and not self.isCut


class Ladder:
    """The best that a clip could look, from the measured rungs."""

    def __init__(self, rows):
        self.rungs = {}
        for name, points in rows.items():
            if name.startswith("ladder "):
                _, clip, codec, rung = name.split(" ")
                self.rungs.setdefault((clip, codec), {})[rung] = points

    def options(self, cell):
        """The rungs that the request left open, and the bytes there are for the pictures."""
        codec = cells.FORMATS[cell.form][1]
        rungs = self.rungs.get((cell.clip, codec), {})
        if cell.get("asked rate"):
            rate = str(round(float(cell.get("asked rate"))))
            rungs = {
                rung: points for rung, points in rungs.items() if rung.endswith("@" + rate)
            } or rungs
        return rungs, CONTAINER * cell.get("limit") - cell.get("audio", {}).get("bytes", 0)

    def best(self, cell):
        """(rung, SSIM) of the best rung under the cell's limit, or None."""
        rungs, size = self.options(cell)
        reached = {rung: ladder.at(points, size) for rung, points in rungs.items()}
        reached = {rung: value for rung, value in reached.items() if value is not None}
        return max(reached.items(), key=lambda item: item[1]) if reached else None

    def canFill(self, cell):
        """Whether the finest of all would be over the limit: there is something to spend bytes on."""
        rungs, size = self.options(cell)
        return (
            not rungs
            or max(max(bytes_ for bytes_, _ in points) for points in rungs.values()) > size
        )


def median(values):
    return statistics.median(values) if values else float("nan")


def percent(part, whole):
    return f"{100 * part / whole:.0f} %" if whole else "-"


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    lines += ["| " + " | ".join(str(item) for item in row) + " |" for row in rows]
    return "\n".join(lines) + "\n"


def encodes(cell):
    """How many times the clip was encoded to a file, and all children with a part or a first pass."""
    kinds = [kind for run in cell.get("children", []) for kind in run]
    return kinds.count("encode"), len(kinds)


def outcome(found, ladder_):
    """One table row's numbers over these cells."""
    made = [cell for cell in found if cell.made]
    ends = [cell.value["end"] for cell in found]
    fillable = [cell.fill for cell in made if cell.isWhole and ladder_.canFill(cell)]
    return [
        len(found),
        len(made),
        sum(cell.isOver for cell in made),
        sum(cell.isCut for cell in made),
        sum(cell.isWhole for cell in made),
        ends.count("refused"),
        ends.count("failed"),
        ends.count("not planned"),
        f"{100 * median(fillable):.1f} %" if fillable else "-",
    ]


OUTCOME = [
    "cells",
    "made",
    "over the limit",
    "cut",
    "whole and within",
    "refused, with a size",
    "failed",
    "not planned",
    "median use of the limit",
]


def summary(ours, recipes, ladder_):
    rows = []
    for form in cells.FORMATS:
        for passes in (1, 2):
            rows.append(
                [
                    form,
                    passes,
                    *outcome([c for c in ours if c.form == form and c.passes == passes], ladder_),
                ]
            )
    rows.append(["**all**", "", *outcome(ours, ladder_)])
    for form in cells.FORMATS:
        rows.append(
            [f"recipe, {form}", 2, *outcome([c for c in recipes if c.form == form], ladder_)]
        )
    rows.append(["**recipe, all**", "", *outcome(recipes, ladder_)])
    return table(["format", "passes", *OUTCOME], rows)


def quality(ours, recipes, ladder_):
    """The numbers on how good it looks, and the cells that fall short."""
    plain = {(c.clip, c.budget, c.form): c for c in recipes if c.isWhole}
    gaps, below, compared = [], [], 0
    for cell in ours:
        if not cell.isWhole or cell.get("ssim") is None:
            continue
        best = ladder_.best(cell)
        if best:
            gaps.append((best[1] - cell.get("ssim"), cell, best[0]))
        naive = plain.get((cell.clip, cell.budget, cell.form))
        if naive and naive.get("ssim") is not None:
            compared += 1
            if naive.get("ssim") > cell.get("ssim") + 0.001:
                below.append((naive.get("ssim") - cell.get("ssim"), cell))
    return sorted(gaps, key=lambda gap: -gap[0]), sorted(below, key=lambda one: -one[0]), compared


def shape(cell):
    video, audio = cell.get("video"), cell.get("audio") or {}
    sound = f", {audio['rate']} Hz x{audio['channels']}" if audio else ""
    return f"{video['width']}x{video['height']} at {video['fps']:.3g}{sound}"


def claims(ours, ladder_, gaps, below, compared):
    made = [c for c in ours if c.made]
    refused = [c for c in ours if c.value["end"] == "refused"]
    reached = sum(bool(c.get("reached")) for c in refused)
    whole = [c for c in made if c.isWhole]
    counts = [encodes(c)[0] for c in whole]
    twice = [c.get("cpu") / c.get("plain") for c in whole if c.get("plain") and c.passes == 2]
    once = [c.get("cpu") / c.get("plain") for c in whole if c.get("plain") and c.passes == 1]
    fits = [
        c.get("cpu") / c.get("plain")
        for c in whole
        if c.get("plain") and c.passes == 1 and encodes(c)[1] == 1
    ]
    fills = [c.fill for c in whole if ladder_.canFill(c)]
    close = sum(gap <= CLOSE for gap, _, _ in gaps)
    faulty = [c for c in made if c.get("complaints")]

    def row(what, wanted, got, holds):
        return [what, wanted, got, "-" if holds is None else "yes" if holds else "**no**"]

    return table(
        ["claim", "wanted", "measured", "holds"],
        [
            row(
                "results over the limit",
                "0",
                sum(c.isOver for c in made),
                not any(c.isOver for c in made),
            ),
            row(
                "cut by more than a frame",
                "0",
                sum(c.isCut for c in made),
                not any(c.isCut for c in made),
            ),
            row(
                "use of the limit, where there is something to use it for",
                "median >= 92 %",
                f"{100 * median(fills):.1f} %",
                median(fills) >= 0.92 if fills else None,
            ),
            row(
                "a refusal's size is reached when asked for",
                "all",
                f"{reached} of {len(refused)}",
                reached == len(refused) if refused else None,
            ),
            row(
                "failures without a size",
                "0",
                sum(c.value["end"] == "failed" for c in ours),
                not any(c.value["end"] == "failed" for c in ours),
            ),
            row("complaints of the decoder", "0", len(faulty), not faulty),
            row(
                "SSIM within 0.01 of the ladder's best",
                ">= 85 %",
                f"{percent(close, len(gaps))} of {len(gaps)}",
                close >= 0.85 * len(gaps) if gaps else None,
            ),
            row(
                "SSIM below the recipe's, where that kept the limit",
                "0",
                f"{len(below)} of {compared}",
                not below if compared else None,
            ),
            row(
                "encodes a request",
                "median <= 2",
                f"median {median(counts):g}, at most {max(counts, default=0)}",
                median(counts) <= 2,
            ),
            row(
                "time of a two-pass request / plain two-pass encode",
                "<= 1.6",
                f"median {median(twice):.2f}, "
                f"{percent(sum(t <= 1.6 for t in twice), len(twice))} within",
                bool(twice) and median(twice) <= 1.6,
            ),
            row(
                "time of a one-pass request / plain one-pass encode",
                "-",
                f"median {median(once):.2f}",
                None,
            ),
            row(
                "the same, where the first encode fitted",
                "<= 1.05",
                f"median {median(fits):.2f} over {len(fits)}",
                median(fits) <= 1.05 if fits else None,
            ),
            row(
                "largest memory of adapter and encoder",
                "< 200 MB",
                f"{max((c.get('peakKb', 0) for c in ours), default=0) / 1000:.0f} MB",
                max((c.get("peakKb", 0) for c in ours), default=0) < 200_000,
            ),
        ],
    )


def byBudget(ours, recipes, ladder_):
    rows = []
    for budget in sorted({c.budget for c in ours}):
        some = [c for c in ours if c.budget == budget]
        good = [c.get("ssim") for c in some if c.isWhole and c.get("ssim") is not None]
        plain = [c for c in recipes if c.budget == budget]
        rows.append(
            [
                f"{budget // 1000} kB",
                len(some),
                sum(c.isWhole for c in some),
                sum(c.value["end"] == "refused" for c in some),
                sum(c.value["end"] in ("failed", "not planned") for c in some),
                f"{median(good):.3f}",
                f"{sum(c.isWhole for c in plain)} of {len(plain)}",
            ]
        )
    return table(
        [
            "budget",
            "cells",
            "whole and within",
            "refused",
            "failed or not planned",
            "median SSIM",
            "the recipe: whole and within",
        ],
        rows,
    )


def byClip(ours, recipes, ladder_, gaps):
    rows = []
    for clip in dict.fromkeys(c.clip for c in ours):
        some = [c for c in ours if c.clip == clip]
        made = [c for c in some if c.made]
        near = [gap for gap, cell, _ in gaps if cell.clip == clip]
        plain = [c for c in recipes if c.clip == clip]
        rows.append(
            [
                clip,
                len(some),
                sum(c.isWhole for c in made),
                sum(c.isOver for c in made),
                sum(c.isCut for c in made),
                sum(c.value["end"] == "refused" for c in some),
                percent(sum(gap <= CLOSE for gap in near), len(near)),
                f"{max((encodes(c)[0] for c in made), default=0)}",
                f"{sum(c.isWhole for c in plain)} of {len(plain)}",
            ]
        )
    return table(
        [
            "clip",
            "cells",
            "whole and within",
            "over",
            "cut",
            "refused",
            "within 0.01 of the best",
            "most encodes",
            "the recipe: whole and within",
        ],
        rows,
    )


def problems(ours, gaps, below):
    """Every cell in which a promise is not kept, one line each."""
    lines = []
    for cell in ours:
        if cell.isOver:
            lines.append(f"over: {cell}: {cell.get('size')} of {cell.get('limit')} bytes")
        if cell.isCut:
            lines.append(
                f"cut: {cell}: {cell.get('frames missing')} frames, {cell.get('sound missing')} s of sound missing"
            )
        if cell.get("complaints"):
            lines.append(f"decoder: {cell}: {cell.get('complaints').splitlines()[0][:120]}")
        if cell.value["end"] == "failed":
            lines.append(
                f"failed: {cell}: {(cell.get('text').splitlines() or ['no word'])[-1][:160]}"
            )
        if cell.value["end"] == "refused" and not cell.get("reached"):
            then = cell.get("then", {})
            lines.append(
                f"not reached: {cell}: {cell.get('smallest')} bytes were said, then "
                f"{then.get('size') or (then.get('text', '').splitlines() or ['no word'])[-1][:160]}"
            )
    lines += [f"below the recipe: {cell}: by {by:.3f}, {shape(cell)}" for by, cell in below]
    lines += [
        f"below the ladder: {cell}: by {gap:.3f}, {shape(cell)}, best {rung}"
        for gap, cell, rung in gaps
        if gap > CLOSE
    ]
    return lines


def write(rows, adapter, docs, work):
    os.makedirs(work, exist_ok=True)
    os.makedirs(docs, exist_ok=True)
    ours = [
        Cell(name, value) for name, value in rows.items() if name.startswith(f"ours {adapter} ")
    ]
    recipes = [Cell(name, value) for name, value in rows.items() if name.startswith("recipe ")]
    ladder_ = Ladder(rows)
    if not ours:
        print("nothing measured with this adapter yet")
        return
    gaps, below, compared = quality(ours, recipes, ladder_)
    found = problems(ours, gaps, below)
    with open(os.path.join(os.path.dirname(__file__), "page.md"), encoding="utf-8") as file:
        page = file.read()
    notPlanned = sorted(
        {f"{c.clip} at {c.budget // 1000} kB" for c in ours if c.value["end"] == "not planned"}
    )
    fields = {
        "COVERAGE": coverage(ours, recipes, ladder_),
        "CLAIMS": claims(ours, ladder_, gaps, below, compared),
        "SUMMARY": summary(ours, recipes, ladder_),
        "BUDGETS": byBudget(ours, recipes, ladder_),
        "CLIPS": byClip(ours, recipes, ladder_, gaps),
        "PROBLEMS": "\n".join("- " + line for line in found) or "None.",
        "NOT_PLANNED": ", ".join(notPlanned) or "none",
    }
    for name, text in fields.items():
        page = page.replace("{" + name + "}", text)
    with open(os.path.join(docs, "movies-fit.md"), "w", encoding="utf-8") as file:
        file.write(page)
    with open(os.path.join(work, "problems.txt"), "w", encoding="utf-8") as file:
        file.write("\n".join(found) + "\n")
    plot(ours, recipes, ladder_, docs, work)


def coverage(ours, recipes, ladder_):
    """What of the whole table this page is about."""
    clips = list(dict.fromkeys(c.clip for c in ours))
    whole = len(clips) * len(cells.BUDGETS) * len(cells.FORMATS) * 2
    lines = []
    if len(ours) == whole:
        lines.append(f"The whole table is here: {whole} cells of {len(clips)} clips.")
    else:
        lines.append(f"**Only {len(ours)} of the {whole} cells of these clips are measured:**")
        for clip in clips:
            some = [c for c in ours if c.clip == clip]
            budgets = ", ".join(str(b // 1000) for b in sorted({c.budget for c in some}))
            forms = ", ".join(dict.fromkeys(c.form for c in some))
            lines.append(f"- {clip}: {len(some)} cells; budgets of {budgets} kB; {forms}")
    if len(recipes) * 2 < whole:
        lines.append(f"\nThe recipe is measured in {len(recipes)} of {whole // 2} cells.")
    rungs = {
        clip: sum(len(r) for (c, _), r in ladder_.rungs.items() if c == clip) for clip in clips
    }
    missing = [clip for clip in clips if not rungs[clip]]
    if missing:
        lines.append(f"\nThe ladder is not measured for {', '.join(missing)}.")
    return "\n".join(lines)


def data(path, lines):
    with open(path, "w", encoding="ascii") as file:
        file.writelines(" ".join(map(str, line)) + "\n" for line in lines)
    return path


def plot(ours, recipes, ladder_, docs, work):
    budgets = sorted({c.budget for c in ours})

    def cloud(found):
        return [
            (budgets.index(c.budget) + (hash_(c) - 0.5) * 0.7, round(c.fill, 4))
            for c in found
            if c.made and c.budget in budgets
        ]

    def hash_(cell):  # spreads the points of one budget, the same in each run
        return (sum(map(ord, str(cell))) * 37 % 101) / 101

    def medians(pick):
        return [
            (
                budget,
                *[
                    f"{median(values):.4f}" if (values := pick(budget, codec)) else "NaN"
                    for codec in ("mpeg4", "h263")
                ],
            )
            for budget in budgets
        ]

    def of(found, budget, codec):
        return [
            c
            for c in found
            if c.budget == budget
            and cells.FORMATS[c.form][1] == codec
            and c.isWhole
            and c.get("ssim") is not None
        ]

    # The recipe's medians are over fewer cells: those in which it kept the limit at all.
    data(f"{work}/ours.dat", cloud(ours))
    data(f"{work}/recipe.dat", cloud(recipes))
    data(f"{work}/ssim-ours.dat", medians(lambda b, k: [c.get("ssim") for c in of(ours, b, k)]))
    data(
        f"{work}/ssim-best.dat",
        medians(lambda b, k: [best[1] for c in of(ours, b, k) if (best := ladder_.best(c))]),
    )
    plain = {(c.clip, c.budget, c.form): c for c in recipes if c.isWhole}
    both = [c for c in ours if c.isWhole and (c.clip, c.budget, c.form) in plain]
    data(
        f"{work}/both-ours.dat",
        [(plain[c.clip, c.budget, c.form].get("ssim"), c.get("ssim")) for c in both],
    )
    counts = [encodes(c)[0] for c in ours if c.made]
    data(
        f"{work}/encodes.dat", [(n, counts.count(n)) for n in range(0, max(counts, default=0) + 1)]
    )
    tics = ", ".join(f'"{b // 1000} kB" {i}' for i, b in enumerate(budgets))
    script = f"""
set terminal pngcairo size 900,420 font "DejaVu Sans,10"
set grid; set key outside top center horizontal
set output "{docs}/movies-fit-size.png"
set logscale y; set ylabel "size / limit"; set xtics ({tics}); set xrange [-0.5:{len(budgets) - 0.5}]; set yrange [0.05:20]
plot "{work}/recipe.dat" with points pt 6 ps 0.6 lc rgb "#d08030" title "plain recipe", \\
     "{work}/ours.dat" with points pt 7 ps 0.45 lc rgb "#2060b0" title "adapter", 1 lc rgb "black" title "limit"
set output "{docs}/movies-fit-ssim.png"
unset logscale y; set logscale x; set xtics (50000,100000,200000,300000,600000,1000000) format "%.0s %cB"
set xrange [45000:1100000]; set yrange [*:1]; set xlabel "budget"; set ylabel "median SSIM of the whole results"
plot "{work}/ssim-best.dat" using 1:2 with lines dt 2 lc rgb "#2060b0" title "mpeg4, best rung", \\
     "{work}/ssim-ours.dat" using 1:2 with linespoints pt 7 lc rgb "#2060b0" title "mpeg4", \\
     "{work}/ssim-best.dat" using 1:3 with lines dt 2 lc rgb "#b03060" title "h263, best rung", \\
     "{work}/ssim-ours.dat" using 1:3 with linespoints pt 7 lc rgb "#b03060" title "h263"
set output "{docs}/movies-fit-recipe.png"
unset logscale x; set xtics auto; set format x "%g"; set xrange [0:1]; set yrange [0:1]
set xlabel "SSIM of the plain recipe, where it kept the limit"; set ylabel "SSIM of the adapter"
set terminal pngcairo size 520,520 font "DejaVu Sans,10"
plot "{work}/both-ours.dat" with points pt 7 ps 0.5 lc rgb "#2060b0" notitle, x lc rgb "black" notitle
set output "{docs}/movies-fit-encodes.png"
set terminal pngcairo size 520,360 font "DejaVu Sans,10"
set xrange [-0.5:*]; set yrange [0:*]; set xtics 1; set xlabel "encodes of the clip"; set ylabel "requests"; set style fill solid
plot "{work}/encodes.dat" with boxes lc rgb "#2060b0" notitle
"""
    subprocess.run(["gnuplot"], input=script, text=True, check=True)
