"""The programs under measurement, the table's axes, and what came out of a cell."""
import itertools
import json
import os
import re
import subprocess

from movies_fit.tools import Run, facts, similarity

FORMATS = {
    "mp4": ("mp4", "mpeg4", "aac"),
    "3gp amr": ("3gp", "h263", "amrnb"),
    "3gp aac": ("3gp", "h263", "aac"),
}
BUDGETS = [50_000, 100_000, 200_000, 300_000, 600_000, 1_000_000]
REPORT = re.compile(
    r"Duration: (\d+):(\d+):([\d.]+), .*?Video: .*? kb/s, ([\d.]+) fps, ([\d.k]+) tbr", re.S
)


class Bench:
    """Where the programs and the working files are."""

    def __init__(self, build, work):
        self.adapter = os.path.join(build, "platform/ffmpeg/bin/ffmpeg")
        self.driver = os.path.join(build, "tests/movie/plan_driver")
        self.fitMovie = os.path.join(build, "fit/fit-movie")
        self.work = work
        self.facts, self.probes = {}, {}
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
        if clip not in self.probes:
            self.probes[clip] = self._probe(clip)
        return self.probes[clip]

    def _probe(self, clip):
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
            subprocess.check_output([self.driver], input=json.dumps(line) + "\n", text=True)
        )
        if "errorText" in answer:
            return None, answer["errorText"].strip()
        return [
            [clip if word == "INPUT" else word for word in words[1:]] for words in answer["argv"]
        ], ""

    def describe(self, made, clip, result, limit):
        """Adds to `result` what came out of it."""
        out, source = facts(made), self.factsOf(clip)
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
        result["ssim"], result["complaints"] = similarity(
            made, clip, out["video"], source["video"]
        )


def remove(out):
    folder, name = os.path.split(out)
    for entry in os.listdir(folder):
        if entry.startswith(name):
            os.unlink(os.path.join(folder, entry))
