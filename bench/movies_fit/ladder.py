"""How good a clip can look in so many bytes: every picture size and frame rate at four quantisers.

A quantiser kept through the clip is what two passes of rate control come close to, so the curve of
SSIM over bytes that four of them give tells what each rung has at any budget in between.
"""
import math
import os
import re
import subprocess

from movies_fit.tools import FFMPEG, SAMPLED, contentOf

QUANTISERS = [2, 5, 12, 31]
RATES = ["full", "15", "8"]  # frames a second
SHARES = [1, 0.75, 0.5, 0.375, 0.25]
H263_SIZES = [(704, 576), (352, 288), (176, 144), (128, 96)]


def rungs(codec, source):
    """(width, height, rate) of each rung."""
    width, height = source["width"], source["height"]
    if codec == "mpeg4":
        sizes = [(2 * int(width * share / 2), 2 * int(height * share / 2)) for share in SHARES]
    else:
        sizes = [size for size in H263_SIZES if size[0] <= 1.2 * width]
    return [
        (*size, rate)
        for rate in RATES
        for size in sizes
        if rate == "full" or float(rate) < source["nominal"]
    ]


def measureRung(bench, clip, codec, rung):
    """A list of [bytes of video, SSIM], one a quantiser."""
    width, height, rate = rung
    source = bench.factsOf(clip)["video"]
    # The container's own bytes count: players get a file, not a stream.
    outs = [bench.path("mp4" if codec == "mpeg4" else "3gp") for _ in QUANTISERS]
    fitted = (
        f"scale=w='2*trunc(min({width},{height}*dar)/2)':h='2*trunc(min({height},{width}/dar)/2)',setsar=1,"
        f"pad={width}:{height}:(ow-iw)/2:(oh-ih)/2"
    )
    graph = f"[0:v:0]{fitted},split={len(outs)}" + "".join(f"[v{i}]" for i in range(len(outs)))
    command = [FFMPEG, "-v", "error", "-nostdin", "-y", "-i", clip, "-filter_complex", graph]
    for i, (out, quantiser) in enumerate(zip(outs, QUANTISERS)):
        command += [
            "-map",
            f"[v{i}]",
            "-c:v",
            codec,
            "-q:v",
            str(quantiser),
            "-mbd",
            "rd",
            "-g",
            "250",
            "-fps_mode",
            "vfr" if codec == "mpeg4" else "cfr",
            *([] if rate == "full" else ["-r", rate]),
            out,
        ]
    subprocess.run(command, check=True)
    points = list(
        map(
            list,
            zip(
                [os.path.getsize(out) for out in outs],
                similarities(outs, clip, width, height, source),
            ),
        )
    )
    for out in outs:
        os.unlink(out)
    return points


def similarities(outs, clip, width, height, source):
    """The mean SSIM of each result, the source being read once."""
    inner, outer, x, y = contentOf({"width": width, "height": height, "aspect": 1}, source)
    across, down = source["width"], source["height"]
    if source["turned"]:
        across, down = down, across
    pick = f"fps={source['nominal']}:start_time=0,select='not(mod(n,{SAMPLED}))',settb=1/1000,setpts=1000*N"
    count = len(outs)
    graph = (
        f"[{count}:v]{pick},scale={across}:{down},format=yuv420p,setsar=1,split={count}"
        + "".join(f"[s{i}]" for i in range(count))
    )
    for i in range(count):
        graph += (
            f";[{i}:v]{pick},crop={inner}:{outer}:{x}:{y},scale={across}:{down}:flags=bicubic,format=yuv420p,setsar=1[m{i}];"
            f"[m{i}][s{i}]ssim=shortest=1:stats_file={outs[i]}.log[o{i}]"
        )
    command = [FFMPEG, "-v", "error", "-nostdin"]
    for path in [*outs, clip]:
        command += ["-i", path]
    command += ["-filter_complex", graph]
    for i in range(count):
        command += ["-map", f"[o{i}]", "-f", "null", "-"]
    subprocess.run(command, check=True)
    means = []
    for out in outs:
        with open(out + ".log", encoding="ascii") as file:
            values = [float(value) for value in re.findall(r"All:([0-9.]+)", file.read())]
        os.unlink(out + ".log")
        means.append(sum(values) / len(values))
    return means


def at(points, size):
    """SSIM of a rung in so many bytes, None when its coarsest quantiser is over them."""
    points = sorted(points)
    if size < points[0][0]:
        return None
    for (small, low), (large, high) in zip(points, points[1:]):
        if size < large:
            return low + (high - low) * (math.log(size / small) / math.log(large / small))
    return points[-1][1]
