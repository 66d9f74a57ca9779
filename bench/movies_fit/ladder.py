"""How good a clip can look in so many bytes: picture sizes and frame rates at four quantisers.

A quantiser kept through the clip is what two passes of rate control come close to, so the curve of
SSIM over bytes that four of them give tells what each rung has at any budget in between.
"""
import math
import os
import re
import subprocess

from movies_fit.tools import FFMPEG, SAMPLED, contentOf

QUANTISERS = [2, 5, 12, 31]
# Frames a second, and the shares of the source's sides measured at that rate.
SHARES = {"full": [1, 0.75, 0.5, 0.375, 0.25], "15": [1, 0.5]}
H263_SIZES = [(352, 288), (176, 144), (128, 96)]  # phones that play H.263 know no larger picture


def rungs(codec, source):
    """(width, height, rate) of each rung."""
    width, height = source["width"], source["height"]
    found = []
    for rate, shares in SHARES.items():
        if rate != "full" and float(rate) >= source["nominal"]:
            continue
        if codec == "mpeg4":
            sizes = [(2 * int(width * share / 2), 2 * int(height * share / 2)) for share in shares]
        else:
            sizes = [size for size in H263_SIZES if size[0] <= 1.2 * width]
        found += [(*size, rate) for size in sizes]
    return found


def measureRung(bench, clip, codec, rung):
    """A list of [bytes of the file, SSIM], one a quantiser."""
    width, height, rate = rung
    source = bench.factsOf(clip)["video"]
    # The container's own bytes count: players get a file, not a stream.
    outs = [bench.path("mp4" if codec == "mpeg4" else "3gp") for _ in QUANTISERS]
    graph = (
        f"[0:v:0]scale=w='2*trunc(min({width},{height}*dar)/2)'"
        f":h='2*trunc(min({height},{width}/dar)/2)',setsar=1,"
        f"pad={width}:{height}:(ow-iw)/2:(oh-ih)/2,split={len(outs)}"
    ) + "".join(f"[v{i}]" for i in range(len(outs)))
    coded = ["-c:v", codec, "-mbd", "rd", "-g", "250", "-threads:v", "1"]
    coded += ["-fps_mode", "vfr" if codec == "mpeg4" else "cfr"]
    coded += [] if rate == "full" else ["-r", rate]
    command = [FFMPEG, *"-v error -nostdin -y -i".split(), clip, "-filter_complex", graph]
    for i, (out, quantiser) in enumerate(zip(outs, QUANTISERS)):
        command += ["-map", f"[v{i}]", *coded, "-q:v", str(quantiser), out]
    subprocess.run(command, check=True)
    likeness = similarities(outs, clip, width, height, source)
    points = [[os.path.getsize(out), ssim] for out, ssim in zip(outs, likeness)]
    for out in outs:
        os.unlink(out)
    return points


def similarities(outs, clip, width, height, source):
    """The mean SSIM of each result, the source being read once."""
    inner, outer, x, y = contentOf({"width": width, "height": height, "aspect": 1}, source)
    across, down = source["width"], source["height"]
    if source["turned"]:
        across, down = down, across
    pick = (
        f"fps={source['nominal']}:start_time=0,select='not(mod(n,{SAMPLED}))',"
        "settb=1/1000,setpts=1000*N"
    )
    shown = "format=yuv420p,setsar=1"
    count = len(outs)
    graph = f"[{count}:v]{pick},scale={across}:{down},{shown},split={count}"
    graph += "".join(f"[s{i}]" for i in range(count))
    for i in range(count):
        graph += (
            f";[{i}:v]{pick},crop={inner}:{outer}:{x}:{y},"
            f"scale={across}:{down}:flags=bicubic,{shown}[m{i}];"
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
