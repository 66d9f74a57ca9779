"""The page's tables and lists."""
from movies_fit.bench import BUDGETS, FORMATS
from movies_fit.results import CLOSE, median


def percent(part, whole):
    return f"{100 * part / whole:.0f} %" if whole else "-"


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    lines += ["| " + " | ".join(str(item) for item in row) + " |" for row in rows]
    return "\n".join(lines) + "\n"


def coverage(results):
    """What of the whole table this page is about."""
    perClip = len(BUDGETS) * len(FORMATS) * 2
    whole = len(results.clips) * perClip
    lines = []
    if len(results.ours) == whole:
        lines.append(f"The whole table is here: {whole} cells of {len(results.clips)} clips.")
    else:
        lines.append(f"**{len(results.ours)} of the {whole} cells are measured:**\n")
        for budget in results.budgets:
            some = [cell for cell in results.ours if cell.budget == budget]
            kinds = [(form, passes) for form in FORMATS for passes in (1, 2)]
            counts = [
                (form, passes, sum(c.form == form and c.passes == passes for c in some))
                for form, passes in kinds
            ]
            told = ", ".join(
                f"{form} in {passes} pass{'es' * (passes > 1)} {count}"
                for form, passes, count in counts
                if count
            )
            lines.append(f"- {budget // 1000} kB: of {len(results.clips)} clips {told}")
    if len(results.recipes) * 2 < whole:
        lines.append(f"\nThe recipe is measured in {len(results.recipes)} of {whole // 2} cells.")
    missing = [clip for clip in results.clips if not results.ladder.isMeasured(clip)]
    if missing:
        lines.append(f"\nThe ladder is not measured for {', '.join(missing)}.")
    return "\n".join(lines)


def claims(results):
    """Each promise, what was wanted and what was measured."""
    ours = results.ours
    made = [cell for cell in ours if cell.made]
    whole = [cell for cell in made if cell.isWhole]
    refused = [cell for cell in ours if cell.end == "refused"]
    over = sum(cell.isOver for cell in made)
    cut = sum(cell.isCut for cell in made)
    failed = sum(cell.end == "failed" for cell in ours)
    faulty = sum(bool(cell.get("complaints")) for cell in made)
    reached = sum(bool(cell.get("reached")) for cell in refused)
    fills = [cell.fill for cell in whole if results.ladder.canFill(cell)]
    close = sum(gap <= CLOSE for gap, _, _ in results.gaps)
    below, compared = len(results.below), len(results.pairs)
    counts = [cell.encodes for cell in whole]
    timed = [cell for cell in whole if cell.timeRatio]
    once = [cell.timeRatio for cell in timed if cell.passes == 1]
    twice = [cell.timeRatio for cell in timed if cell.passes == 2]
    atOnce = [c.timeRatio for c in timed if c.passes == 1 and c.children == ["encode"]]
    peak = max((cell.get("peakKb", 0) for cell in ours), default=0) / 1000

    rows = [
        ["results over the limit", "0", over, over == 0],
        ["cut by more than a frame", "0", cut, cut == 0],
        [
            "use of the limit, where there is something to use it for",
            "median >= 92 %",
            f"{100 * median(fills):.1f} %",
            median(fills) >= 0.92,
        ],
        [
            "a refusal's size is reached when asked for",
            "all",
            f"{reached} of {len(refused)}",
            reached == len(refused) if refused else None,
        ],
        ["failures without a size", "0", failed, failed == 0],
        ["complaints of the decoder", "0", faulty, faulty == 0],
        [
            "SSIM within 0.01 of the ladder's best",
            ">= 85 %",
            f"{percent(close, len(results.gaps))} of {len(results.gaps)}",
            close >= 0.85 * len(results.gaps),
        ],
        [
            "SSIM below the recipe's, where that kept the limit",
            "0",
            f"{below} of {compared}",
            below == 0,
        ],
        [
            "encodes a request",
            "median <= 2",
            f"median {median(counts):g}, at most {max(counts, default=0)}",
            median(counts) <= 2,
        ],
        [
            "time of a two-pass request / plain two-pass encode",
            "<= 1.6",
            f"median {median(twice):.2f}, "
            f"{percent(sum(ratio <= 1.6 for ratio in twice), len(twice))} within",
            median(twice) <= 1.6,
        ],
        [
            "time of a one-pass request / plain two-pass encode",
            "<= 1.6",
            oneAgainstTwo(timed),
            None,
        ],
        [
            "time of a one-pass request / plain one-pass encode",
            "-",
            f"median {median(once):.2f}",
            None,
        ],
        [
            "the same, where a single child was enough",
            "<= 1.05",
            f"median {median(atOnce):.2f} over {len(atOnce)}",
            median(atOnce) <= 1.05,
        ],
        ["largest memory of adapter and encoder", "< 200 MB", f"{peak:.0f} MB", peak < 200],
    ]
    for row in rows:
        row[3] = "-" if row[3] is None else "yes" if row[3] else "**no**"
    return table(["claim", "wanted", "measured", "holds"], rows)


def oneAgainstTwo(timed):
    """A one-pass request against what two plain passes of the same place cost."""
    twice = {cell.place: cell.get("plain") for cell in timed if cell.passes == 2}
    ratios = [
        cell.get("cpu") / twice[cell.place]
        for cell in timed
        if cell.passes == 1 and cell.place in twice
    ]
    return f"median {median(ratios):.2f}"


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


def outcome(found, results):
    """One row's numbers over these cells, under the heads above."""
    ends = [cell.end for cell in found]
    fills = [cell.fill for cell in found if cell.isWhole and results.ladder.canFill(cell)]
    return [
        len(found),
        ends.count("made"),
        sum(cell.isOver for cell in found),
        sum(cell.isCut for cell in found),
        sum(cell.isWhole for cell in found),
        ends.count("refused"),
        ends.count("failed"),
        ends.count("not planned"),
        f"{100 * median(fills):.1f} %" if fills else "-",
    ]


def byFormat(results):
    rows = []
    for form in FORMATS:
        for passes in (1, 2):
            some = [c for c in results.ours if c.form == form and c.passes == passes]
            rows.append([form, passes, *outcome(some, results)])
    rows.append(["**all**", "", *outcome(results.ours, results)])
    for form in FORMATS:
        some = [c for c in results.recipes if c.form == form]
        rows.append([f"recipe, {form}", 2, *outcome(some, results)])
    rows.append(["**recipe, all**", "", *outcome(results.recipes, results)])
    return table(["format", "passes", *OUTCOME], rows)


def plainlyWhole(results, matches):
    plain = [cell for cell in results.recipes if matches(cell)]
    return f"{sum(cell.isWhole for cell in plain)} of {len(plain)}"


def byBudget(results):
    rows = []
    for budget in results.budgets:
        some = [cell for cell in results.ours if cell.budget == budget]
        rows.append(
            [
                f"{budget // 1000} kB",
                len(some),
                sum(cell.isWhole for cell in some),
                sum(cell.end == "refused" for cell in some),
                sum(cell.end in ("failed", "not planned") for cell in some),
                f"{median([cell.ssim for cell in some if cell.ssim is not None]):.3f}",
                plainlyWhole(results, lambda cell, b=budget: cell.budget == b),
            ]
        )
    head = ["budget", "cells", "whole and within", "refused", "failed or not planned"]
    return table([*head, "median SSIM", "the recipe: whole and within"], rows)


def byClip(results):
    rows = []
    for clip in results.clips:
        some = [cell for cell in results.ours if cell.clip == clip]
        near = [gap for gap, cell, _ in results.gaps if cell.clip == clip]
        fills = [cell.fill for cell in some if cell.isWhole and results.ladder.canFill(cell)]
        rows.append(
            [
                clip,
                len(some),
                sum(cell.isWhole for cell in some),
                sum(cell.end == "refused" for cell in some),
                percent(sum(gap <= CLOSE for gap in near), len(near)),
                f"{100 * median(fills):.0f} %" if fills else "-",
                max((cell.encodes for cell in some if cell.made), default=0),
                plainlyWhole(results, lambda cell, c=clip: cell.clip == c),
            ]
        )
    head = ["clip", "cells", "whole and within", "refused", "within 0.01 of the best"]
    head += ["median use of the limit", "most encodes", "the recipe: whole and within"]
    return table(head, rows)


def lastLine(text):
    return (text.splitlines() or ["no word"])[-1][:160]


def problems(results):
    """Every cell in which a promise is not kept, one line each."""
    lines = []
    for cell in results.ours:
        if cell.isOver:
            lines.append(f"over: {cell}: {cell.get('size')} of {cell.get('limit')} bytes")
        if cell.isCut:
            lines.append(
                f"cut: {cell}: {cell.get('frames missing')} frames, "
                f"{cell.get('sound missing')} s of sound missing"
            )
        if cell.get("complaints"):
            lines.append(f"decoder: {cell}: {cell.get('complaints').splitlines()[0][:120]}")
        if cell.end == "failed":
            lines.append(f"failed: {cell}: {lastLine(cell.get('text'))}")
        if cell.end == "refused" and not cell.get("reached"):
            then = cell.get("then", {})
            got = then.get("size") or lastLine(then.get("text", ""))
            lines.append(f"not reached: {cell}: {cell.get('smallest')} bytes were said, then {got}")
    lines += [
        f"below the recipe: {cell}: by {plain.ssim - cell.ssim:.3f}, {cell.shape}"
        for cell, plain in results.below
    ]
    lines += [
        f"below the ladder: {cell}: by {gap:.3f}, {cell.shape}, best {rung}"
        for gap, cell, rung in results.gaps
        if gap > CLOSE
    ]
    return lines


def notPlanned(results):
    places = {(c.clip, c.budget) for c in results.ours if c.end == "not planned"}
    return ", ".join(f"{clip} at {budget // 1000} kB" for clip, budget in sorted(places)) or "none"


def fitted(results):
    """SSIM of H.264 by the other service, and how much that is above MPEG-4's in two passes."""
    if not results.fitted:
        return "Not measured."
    clips = list(dict.fromkeys(clip for clip, _ in results.fitted))
    budgets = sorted({int(budget) for _, budget in results.fitted})
    gains = []

    def text(clip, budget):
        cell = results.fitted.get((clip, str(budget)))
        beside = results.mpeg4.get((clip, str(budget)))
        if cell is None:
            return ""
        if cell.ssim is None:
            return cell.end if not cell.made else "not whole"
        if beside is None or beside.ssim is None:
            return f"{cell.ssim:.3f}"
        gains.append(cell.ssim - beside.ssim)
        return f"{cell.ssim:.3f} ({gains[-1]:+.3f})"

    rows = [[clip, *(text(clip, budget) for budget in budgets)] for clip in clips]
    above = sum(gain > 0 for gain in gains)
    told = f"Above MPEG-4's in {above} of {len(gains)} cells, median gain {median(gains):+.3f}.\n\n"
    head = ["fit, h264", *(f"{budget // 1000} kB" for budget in budgets)]
    return told + table(head, rows)
