"""The plain two-pass recipe, beside which the adapter is put."""
import os

from movies_fit.bench import FORMATS, remove
from movies_fit.tools import FFMPEG, Run


def recipe(clip, out, form, total, video=None, passes=2):
    """What a careful person types: so much for the sound, the rest for the pictures, two passes.

    `video` holds the settings of a result to be made again: width, height, fps.
    """
    extension, codec, audio = FORMATS[form]
    sound = (
        ["-c:a", "libopencore_amrnb", "-b:a", "12.2k", "-ar", "8000", "-ac", "1"]
        if audio == "amrnb"
        else ["-c:a", "aac", "-b:a", "32k", "-ac", "1"]
    )
    rate = int(total - (12_200 if audio == "amrnb" else 32_000))
    if rate <= 0:
        return None
    size = []
    if video:
        size = ["-s", f"{video['width']}x{video['height']}", "-r", f"{video['fps']:.3f}"]
    elif codec == "h263":
        size = ["-s", "cif", "-r", "15"]
    common = [FFMPEG, *"-v error -nostdin -y -i".split(), clip, "-map", "0:v:0"]
    common += ["-c:v", codec, "-b:v", str(rate), *size]
    if passes == 1:
        return [[*common, "-map", "0:a:0?", *sound, "-f", extension, out]]
    log = ["-passlogfile", out]
    return [
        [*common, "-pass", "1", *log, "-an", "-f", extension, "/dev/null"],
        [*common, "-pass", "2", *log, "-map", "0:a:0?", *sound, "-f", extension, out],
    ]


def measureRecipe(bench, clip, budget, form):
    """The plain recipe under the limit that the adapter was given."""
    limit = int(budget * 0.95)
    source = bench.factsOf(clip)["video"]
    out = bench.path(FORMATS[form][0])
    lines = recipe(clip, out, form, limit * 8 / (source["end"] - source["start"]))
    if lines is None:
        return {"end": "not planned", "text": "the sound alone is over the budget", "limit": limit}
    cpu = 0.0
    for words in lines:
        run = Run(words)
        cpu += run.cpu
        if run.code != 0:
            remove(out)
            text = f"exit {run.code}: {run.err.strip()[-200:]}"
            return {"end": "failed", "text": text, "limit": limit, "cpu": cpu}
    result = {"end": "made", "cpu": cpu}
    bench.describe(out, clip, result, limit)
    remove(out)
    return result


def plainCost(bench, clip, form, ours, passes):
    """Processor seconds of plain encodes of what came out: same pictures, same rate.

    The second pass is taken by an encode without a first, which costs the same and never aborts.
    """
    video = ours["video"]
    out = bench.path(FORMATS[form][0])
    rate = video["bytes"] * 8 / max(video["end"], 0.04) + 32_000
    lines = recipe(clip, out, form, max(rate, 33_000), video, 1)
    if passes == 2:
        lines.append(recipe(clip, out, form, max(rate, 33_000), video, 2)[0])
    runs = [Run(words) for words in lines]
    remove(out)
    return sum(run.cpu for run in runs) if all(run.code == 0 for run in runs) else None
