"""Running programs, watching what they start, and reading what they made."""
import json
import os
import re
import subprocess
import threading
import time

FFMPEG = "ffmpeg"
# The adapter's watchdog goes by the clock; on a busy machine it would end encodes.
ENVIRONMENT = {**os.environ, "TARN_FFMPEG_STALL_MS": "600000"}
SAMPLED = 7  # every so manieth frame of the source is compared; prime, so that it meets all phases


class Run:
    """A finished program: exit code, standard error, processor seconds, peak memory, children."""

    def __init__(self, arguments, watch=False):
        started = time.monotonic()
        process = subprocess.Popen(
            arguments,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.PIPE,
            env=ENVIRONMENT,
        )
        self.children = []
        watcher = threading.Thread(target=self._watch, args=(process.pid,)) if watch else None
        self._over = False
        if watcher:
            watcher.start()
        self.err = process.stderr.read().decode(errors="replace")
        _, status, usage = os.wait4(process.pid, 0)
        self._over = True
        if watcher:
            watcher.join()
        process.returncode = self.code = os.waitstatus_to_exitcode(status)
        self.cpu = usage.ru_utime + usage.ru_stime  # of its children too, which it waited for
        self.wall = time.monotonic() - started
        self.peakKb = usage.ru_maxrss

    def _watch(self, pid):
        """Notes each encoder's command line as the kernel knows it; none is gone within 50 ms."""
        seen = set()
        while not self._over:
            for child in descendants(pid):
                if child in seen:
                    continue
                words = commandLine(child)
                if "-progress" in words or "-nostdin" in words:  # it is the encoder by now
                    seen.add(child)
                    self.children.append(words)
            time.sleep(0.004)


def descendants(pid):
    found = []
    try:
        for task in os.listdir(f"/proc/{pid}/task"):
            with open(f"/proc/{pid}/task/{task}/children") as file:
                for child in file.read().split():
                    found += [child, *descendants(child)]
    except OSError:
        pass
    return found


def commandLine(pid):
    try:
        with open(f"/proc/{pid}/cmdline", "rb") as file:
            return file.read().decode(errors="replace").split("\0")[:-1]
    except OSError:
        return []


def facts(path):
    """What ffprobe tells: picture, rate, length of each stream from its packets, sound."""
    shown = (
        "stream=index,codec_type,codec_name,width,height,sample_aspect_ratio,avg_frame_rate,"
        "r_frame_rate,sample_rate,channels:stream_side_data=rotation:"
        "packet=stream_index,pts_time,duration_time,size"
    )
    command = ["ffprobe", "-v", "error", "-show_entries", shown, "-of", "json", path]
    text = subprocess.run(command, capture_output=True, text=True, check=False).stdout
    read = json.loads(text or "{}")
    found = {}
    for stream in read.get("streams", []):
        kind = stream["codec_type"]
        if kind in found or kind not in ("video", "audio"):
            continue
        packets = [
            p for p in read["packets"] if p["stream_index"] == stream["index"] and "pts_time" in p
        ]
        times = [float(p["pts_time"]) for p in packets]
        one = {
            "codec": stream["codec_name"],
            "packets": len(packets),
            "bytes": sum(int(p["size"]) for p in packets),
        }
        if packets:
            one["start"] = min(times)
            one["end"] = max(t + float(p.get("duration_time", 0)) for t, p in zip(times, packets))
            one["last"] = max(times)
        if kind == "video":
            one.update(pictureOf(stream))
            length = one.get("last", 0) - one.get("start", 0)
            one["fps"] = (len(packets) - 1) / length if length > 0 else 0
        else:
            one.update(rate=int(stream["sample_rate"]), channels=stream["channels"])
        found[kind] = one
    return found


def pictureOf(stream):
    width, height = stream["width"], stream["height"]
    across, _, down = (stream.get("sample_aspect_ratio") or "1:1").partition(":")
    aspect = int(across) / int(down) if down and int(across) and int(down) else 1
    rotation = sum(int(side.get("rotation", 0)) for side in stream.get("side_data_list", []))
    shown = width * aspect / height
    return {
        "width": width,
        "height": height,
        "aspect": aspect,
        "shape": 1 / shown if rotation % 180 else shown,
        "turned": rotation % 180 != 0,
        "nominal": fraction(stream["r_frame_rate"]),
    }


def fraction(text):
    above, _, below = text.partition("/")
    return float(above) / float(below or 1) if float(below or 1) else 0.0


def contentOf(made, source):
    """The part of the made picture that shows the source's, without bars: width, height, x, y."""
    width, height = made["width"], made["height"]
    shape = made["aspect"] * width / height
    if abs(shape - source["shape"]) < 0.04 * source["shape"]:
        return width, height, 0, 0
    if shape > source["shape"]:
        inner = 2 * int(height * source["shape"] / made["aspect"] / 2)
        return inner, height, (width - inner) // 2, 0
    inner = 2 * int(width * made["aspect"] / source["shape"] / 2)
    return width, inner, 0, (height - inner) // 2


def similarity(made, source, madeFacts, sourceFacts):
    """The mean SSIM of the result, scaled to the source's size and shown at its rate, and the
    decoder's complaints."""
    width, height, x, y = contentOf(madeFacts, sourceFacts)
    across, down = sourceFacts["width"], sourceFacts["height"]
    if sourceFacts["turned"]:
        across, down = down, across
    rate = sourceFacts["nominal"]
    pick = (
        f"fps={rate}:start_time=0,select='not(mod(n,{SAMPLED}))',settb=1/1000,setpts=1000*N"
    )
    shown = "format=yuv420p,setsar=1"
    graph = (
        f"[0:v]{pick},crop={width}:{height}:{x}:{y},"
        f"scale={across}:{down}:flags=bicubic,{shown}[a];"
        f"[1:v]{pick},scale={across}:{down},{shown}[b];[a][b]ssim=shortest=1:stats_file=-"
    )
    inputs = ["-i", made, "-i", source]
    command = [FFMPEG, *"-v error -nostdin -nostats".split(), *inputs]
    command += ["-lavfi", graph, "-f", "null", "-"]
    run = subprocess.run(command, capture_output=True, text=True, check=False)
    values = [float(value) for value in re.findall(r"All:([0-9.]+)", run.stdout)]
    return (sum(values) / len(values) if values else None), run.stderr.strip()
