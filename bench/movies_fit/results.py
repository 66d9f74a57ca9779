"""What was measured in each cell, and what the ladder says could have been."""
import statistics

from movies_fit import ladder
from movies_fit.bench import FORMATS

CLOSE = 0.01  # of SSIM: as good as the best rung
ALIKE = 0.001  # of SSIM: nobody can tell
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
        self.end = value["end"]
        self.made = self.end == "made"

    def __str__(self):
        passes = f" pass {self.passes}" if self.kind == "ours" else ""
        return f"{self.clip} {self.budget // 1000} kB {self.form}{passes}"

    def get(self, key, default=None):
        return self.value.get(key, default)

    @property
    def codec(self):
        return FORMATS[self.form][1]

    @property
    def place(self):
        """What a cell of ours and one of the recipe's have in common."""
        return self.clip, self.budget, self.form

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

    @property
    def ssim(self):
        """Of a whole result; None of any other."""
        return self.get("ssim") if self.isWhole else None

    @property
    def children(self):
        """The kind of each child, over all runs of the request."""
        return [kind for run in self.get("children", []) for kind in run]

    @property
    def encodes(self):
        """How many times the clip was encoded to a file."""
        return self.children.count("encode")

    @property
    def timeRatio(self):
        """Its processor time over that of a plain encode; None where that was not measured."""
        return self.get("cpu") / self.get("plain") if self.isWhole and self.get("plain") else None

    @property
    def shape(self):
        video, audio = self.get("video"), self.get("audio") or {}
        sound = f", {audio['rate']} Hz x{audio['channels']}" if audio else ""
        return f"{video['width']}x{video['height']} at {video['fps']:.3g}{sound}"


class Ladder:
    """The best that a clip could look, from the measured rungs."""

    def __init__(self, rows):
        self.rungs = {}
        for name, points in rows.items():
            if name.startswith("ladder "):
                _, clip, codec, rung = name.split(" ")
                self.rungs.setdefault((clip, codec), {})[rung] = points

    def isMeasured(self, clip):
        return (clip, "mpeg4") in self.rungs and (clip, "h263") in self.rungs

    def open(self, cell):
        """The rungs that the request left open, and the bytes there are for the pictures."""
        rungs = self.rungs.get((cell.clip, cell.codec), {})
        if cell.get("asked rate"):
            rate = str(round(float(cell.get("asked rate"))))
            asked = {rung: points for rung, points in rungs.items() if rung.endswith("@" + rate)}
            rungs = asked or rungs
        return rungs, CONTAINER * cell.get("limit") - cell.get("audio", {}).get("bytes", 0)

    def best(self, cell):
        """(rung, SSIM) of the best rung under the cell's limit, or None."""
        rungs, size = self.open(cell)
        reached = {rung: ladder.at(points, size) for rung, points in rungs.items()}
        reached = {rung: value for rung, value in reached.items() if value is not None}
        return max(reached.items(), key=lambda item: item[1]) if reached else None

    def canFill(self, cell):
        """Whether the finest of all would be over the limit: more bytes have something to show."""
        rungs, size = self.open(cell)
        return not rungs or max(bytes_ for points in rungs.values() for bytes_, _ in points) > size


class Results:
    """All that was measured with one adapter, and how it compares."""

    def __init__(self, rows, adapter, worker):
        cellsOf = lambda kind: [Cell(n, v) for n, v in rows.items() if n.startswith(kind + " ")]
        self.ours = cellsOf(f"ours {adapter}")
        self.recipes = cellsOf("recipe")
        # By clip and budget: H.264 of the other service, and what MPEG-4 has beside it.
        self.fitted = {
            tuple(name.split(" ")[2:]): Cell(f"recipe {name.split(' ', 2)[2]} mp4", value)
            for name, value in rows.items()
            if name.startswith(f"fit {worker} ")
        }
        self.mpeg4 = {
            (cell.clip, str(cell.budget)): cell
            for cell in self.ours
            if cell.form == "mp4" and cell.passes == 2
        }
        self.ladder = Ladder(rows)
        self.clips = list(dict.fromkeys(cell.clip for cell in self.ours))
        self.budgets = sorted({cell.budget for cell in self.ours})
        self.gaps = sorted(self._gaps(), key=lambda gap: -gap[0])
        plain = {cell.place: cell for cell in self.recipes if cell.ssim is not None}
        self.pairs = [
            (cell, plain[cell.place])
            for cell in self.ours
            if cell.ssim is not None and cell.place in plain
        ]
        self.below = [pair for pair in self.pairs if pair[1].ssim > pair[0].ssim + ALIKE]
        self.below.sort(key=lambda pair: pair[0].ssim - pair[1].ssim)

    def _gaps(self):
        """(SSIM below the best rung, cell, that rung) of each whole result."""
        for cell in self.ours:
            best = self.ladder.best(cell) if cell.ssim is not None else None
            if best:
                yield best[1] - cell.ssim, cell, best[0]


def median(values):
    return statistics.median(values) if values else float("nan")
