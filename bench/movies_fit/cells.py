"""One cell of the table: a clip, a budget, a format, one pass or two, asked as the daemon asks."""
import os
import re

from movies_fit.bench import FORMATS, remove
from movies_fit.recipe import plainCost
from movies_fit.tools import Run

TIMED = (100_000, 300_000, 1_000_000)  # the budgets at which the time is compared
REFUSAL = re.compile(
    r"the whole clip cannot be had in (\d+) bytes: about (\d+) bytes is the smallest"
)


def withLimit(words, limit):
    """The same request under another limit."""
    if "-fs" not in words:
        return words
    place = words.index("-fs") + 1
    return [*words[:place], str(limit), *words[place + 1 :]]


def runLines(bench, lines):
    """The request's passes one after another, until one fails."""
    runs = []
    for words in lines:
        runs.append(Run([bench.adapter, *words], watch=True))
        if runs[-1].code != 0:
            break
    return runs


def measureOurs(bench, clip, budget, form, passes):
    """Asks the adapter; a refusal's smallest size is asked for as well."""
    out = bench.path(FORMATS[form][0])
    lines, refusal = bench.commandLines(clip, budget, form, passes, out)
    if lines is None:
        return {"end": "not planned", "text": refusal}
    limit = int(lines[-1][lines[-1].index("-fs") + 1])
    runs = runLines(bench, lines)
    result = {
        "cpu": sum(run.cpu for run in runs),
        "wall": sum(run.wall for run in runs),
        "limit": limit,
        "peakKb": max(run.peakKb for run in runs),
        "children": [kindsOf(run) for run in runs],
        "text": runs[-1].err.strip(),
        "asked rate": dict(zip(lines[-1], lines[-1][1:])).get("-r"),
    }
    if runs[-1].code == 0:
        result["end"] = "made"
        bench.describe(out, clip, result, limit)
        # The other formats differ by their codec alone.
        if result["video"] and form == "mp4" and budget in TIMED:
            result["plain"] = plainCost(bench, clip, form, result, passes)
    else:
        found = REFUSAL.search(runs[-1].err)
        result["end"] = "refused" if found else "failed"
        if found:
            result["smallest"] = int(found.group(2))
            remove(out)
            again = runLines(bench, [withLimit(words, result["smallest"]) for words in lines])
            result["reached"] = again[-1].code == 0 and os.path.getsize(out) <= result["smallest"]
            if again[-1].code == 0:
                result["then"] = {}
                bench.describe(out, clip, result["then"], result["smallest"])
            else:
                result["then"] = {"text": again[-1].err.strip()}
    remove(out)
    return result


def kindsOf(run):
    """Of each child: "encode" to a file, "first pass" over the clip, "sample" of parts of it."""
    kinds = []
    for words in run.children:
        if words[-1] != "/dev/null":
            kinds.append("encode")
        else:
            kinds.append("sample" if "null" in words else "first pass")
    return kinds
