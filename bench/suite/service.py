"""Starting the daemon, calls in flight beside two services that do nothing, probing a movie."""
import statistics
import subprocess
import time

from .system import NAME
from .tools import cost, cpu_of, memory_of, run

ECHO = "com.tarn.Echo"


def median_ms(repeats, call):
    times = []
    for _ in range(repeats):
        start = time.monotonic()
        call()
        times.append((time.monotonic() - start) * 1000)
    return statistics.median(times)


def measure_start(system, work, photo, repeats):
    """Medians in ms of a call and of a photo, with and without a daemon that runs already, the
    client's own start in all of them; and of the first reply without it."""
    def bitrate():
        system.wake()

    def resize():
        system.resize(photo, work / "out.jpg", 300_000)

    cold = {"call": [], "photo": []}
    for _ in range(repeats):
        for name, call in (("call", bitrate), ("photo", resize)):
            system.stop_daemon()
            cold[name].append(median_ms(1, call))
    pid = system.fresh_daemon()
    idle = memory_of(pid, "VmRSS")
    warm = {"call": median_ms(repeats, bitrate)}
    resize()
    warm["photo"] = median_ms(repeats, resize)
    return {"cold": {name: statistics.median(times) for name, times in cold.items()},
            "warm": warm, "idle": idle, "first": first_reply(system, repeats)}


def first_reply(system, repeats):
    """Median ms from the call to the reply of a daemon that it starts, without the caller's start."""
    times = []
    for _ in range(repeats):
        system.stop_daemon()
        times.append(system.fly(NAME, NAME, "getMinimalBitrate", 1, 1) * 1000)
    return statistics.median(times)


def measure_calls(system, echoes, flying, calls):
    """Calls in a second, and CPU microseconds of the service for each."""
    rows = []
    ours = (("ours", NAME, NAME, "getMinimalBitrate", None),)
    for label, name, interface, method, program in ours + tuple(
            (label, f"{ECHO}.{label}", ECHO, "echo", program) for label, program in echoes.items()):
        process = program and subprocess.Popen([program, name], env=system.environment)
        if not process:
            system.wake()
        while not system.has_owner(name):
            pass
        pid = process.pid if process else system.pid_of()
        for count in flying:
            before = cpu_of(pid)
            seconds = system.fly(name, interface, method, count, calls)
            rows.append({"service": label, "flying": count, "rate": calls / seconds,
                         "cpu_us": (cpu_of(pid) - before) / calls * 1e6})
            print(rows[-1], flush=True)
        if process:
            process.terminate()
            process.wait()
    return rows


def measure_probe(system, work, repeats):
    clip = work / "clip.mp4"
    run("ffmpeg", "-v", "error", "-nostdin", "-y", "-f", "lavfi", "-i",
        "testsrc=size=640x480:rate=25:duration=6", "-c:v", "mpeg4", clip)
    ours = median_ms(repeats, lambda: system.call("getMovieInfo", {"inFile": str(clip)}))
    return {"ours": ours, "ffmpeg": cost(repeats, "ffmpeg", "-nostdin", "-i", clip)[1] * 1000}
