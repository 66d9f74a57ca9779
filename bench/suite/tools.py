"""Running programs, and what they and other processes cost."""
import os
import pathlib
import resource
import statistics
import subprocess
import time

TICKS = os.sysconf("SC_CLK_TCK")


def run(*words, **options):
    return subprocess.run([str(word) for word in words], check=True, capture_output=True,
                          text=True, **options).stdout


def cost(repeats, *words):
    """CPU and wall clock seconds of a program, the median of its runs."""
    cpu, wall = [], []
    for _ in range(repeats):
        before, start = resource.getrusage(resource.RUSAGE_CHILDREN), time.monotonic()
        subprocess.run([str(word) for word in words], stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL, check=False)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        wall.append(time.monotonic() - start)
        cpu.append(after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)
    return statistics.median(cpu), statistics.median(wall)


def cpu_of(pid):
    """CPU seconds of a process until now."""
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / TICKS


def memory_of(pid, field):
    """MiB, of the fields of /proc/PID/status."""
    for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith(field):
            return int(line.split()[1]) / 1024
    return 0
