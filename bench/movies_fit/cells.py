"""One cell of the table: a clip, a budget, a format, one pass or two, asked as the daemon asks."""
import itertools
import json
import os
import re
import subprocess

from movies_fit.tools import FFMPEG, Run, facts, similarity

FORMATS = {
    "mp4": ("mp4", "mpeg4", "aac"),
    "3gp amr": ("3gp", "h263", "amrnb"),
    "3gp aac": ("3gp", "h263", "aac"),
}
BUDGETS = [50_000, 100_000, 200_000, 300_000, 600_000, 1_000_000]
REFUSAL = re.compile(
    r"the whole clip cannot be had in (\d+) bytes: about (\d+) bytes is the smallest"
)
REPORT = re.compile(
    r"Duration: (\d+):(\d+):([\d.]+), .*?Video: .*? kb/s, ([\d.]+) fps, ([\d.k]+) tbr", re.S
)


class Bench:
    """Where the programs and the working files are."""

    def __init__(self, build, work):
        self.adapter = os.path.join(build, "platform/ffmpeg/bin/ffmpeg")
        self.driver = os.path.join(build, "tests/movie/plan_driver")
        self.work = work
        self.facts = {}
        self.numbers = itertools.count()

    def path(self, extension):
        """A name for an output that nobody else uses."""
        return os.path.join(self.work, f"out-{os.getpid()}-{next(self.numbers)}.{extension}")

    def factsOf(self, clip):
        if clip not in self.facts:
            self.facts[clip] = facts(clip)
        return self.facts[clip]

    def probe(self, clip):
        """What the daemon reads from the adapter's report."""
        report = Run([self.adapter, "-i", clip]).err
        found = REPORT.search(report)
        if not found:
            raise RuntimeError(f"{clip}: no report: {report}")
        hours, minutes, seconds, rate, tbr = found.groups()
        length = int((int(hours) * 60 + int(minutes)) * 60000 + float(seconds) * 1000)
        return {
            "clipLength": length,
            "frameRate": float(rate),
            "tbr": float(tbr.replace("k", "")) * (1000 if "k" in tbr else 1),
        }

    def commandLines(self, clip, budget, form, passes, out):
        """The daemon's command lines for the request, or its refusal."""
        _, video, audio = FORMATS[form]
        request = {
            "outFile": out,
            "maxOutputSize": budget,
            "videoCodec": video,
            "audioCodec": audio,
            "passes": passes,
        }
        line = {
            "request": request,
            "probe": self.probe(clip),
            "inputFileSize": os.path.getsize(clip),
        }
        answer = json.loads(
            subprocess.run(
                [self.driver],
                input=json.dumps(line) + "\n",
                capture_output=True,
                text=True,
                check=True,
            ).stdout
        )
        if "errorText" in answer:
            return None, answer["errorText"].strip()
        return [
            [clip if word == "INPUT" else word for word in words[1:]] for words in answer["argv"]
        ], ""


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


def remove(out):
    folder, name = os.path.split(out)
    for entry in os.listdir(folder):
        if entry.startswith(name):
            os.unlink(os.path.join(folder, entry))


def describe(made, clip, result, limit):
    """Adds to `result` what came out of it."""
    out, source = facts(made), facts(clip)
    result["size"], result["limit"] = os.path.getsize(made), limit
    result["video"] = out.get("video", {})
    result["audio"] = out.get("audio", {})
    if not out.get("video"):
        result["complaints"] = "no pictures"
        return
    frame = 1 / max(out["video"]["fps"], 1 / 60) if out["video"]["packets"] > 1 else 1
    result["frames missing"] = round(
        (source["video"]["end"] - source["video"]["start"] - out["video"]["end"]) / frame, 2
    )
    result["late"] = round(out["video"]["start"], 3)
    if "audio" in source:
        length = source["audio"]["end"] - max(source["audio"]["start"], 0)
        result["sound missing"] = (
            round(length - out["audio"]["end"], 3) if "audio" in out else length
        )
    result["ssim"], result["complaints"] = similarity(made, clip, out["video"], source["video"])


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
        describe(out, clip, result, limit)
        if result["video"] and form == "mp4":  # the others differ by their codec alone
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
                describe(out, clip, result["then"], result["smallest"])
            else:
                result["then"] = {"text": again[-1].err.strip()}
    remove(out)
    return result


def kindsOf(run):
    """Of each child: an "encode" to a file, a "first pass" over the clip, a "sample" of parts of it."""
    kinds = []
    for words in run.children:
        if words[-1] != "/dev/null":
            kinds.append("encode")
        else:
            kinds.append("sample" if "null" in words else "first pass")
    return kinds


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
    common = [
        FFMPEG,
        "-v",
        "error",
        "-nostdin",
        "-y",
        "-i",
        clip,
        "-map",
        "0:v:0",
        "-c:v",
        codec,
        "-b:v",
        str(rate),
        *size,
    ]
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
            return {
                "end": "failed",
                "text": f"exit {run.code}: {run.err.strip()[-200:]}",
                "limit": limit,
                "cpu": cpu,
            }
    result = {"end": "made", "cpu": cpu}
    describe(out, clip, result, limit)
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
