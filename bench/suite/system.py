"""The installed tree on a bus of its own."""
import json
import os
import pathlib
import signal
import subprocess
import time

from .tools import cpu_of, run

NAME = "com.tarn.transcode"
BUS = ("gdbus", "call", "--session", "--dest", "org.freedesktop.DBus", "--object-path", "/",
       "--method")


class System:
    """Of daemons that do not end when idle, if the library that keeps them is given."""

    def __init__(self, stage, work, flyer, lasting=None):
        self.flyer = flyer
        work.mkdir(exist_ok=True)
        environment = dict(os.environ, XDG_DATA_DIRS=f"{stage}/share", XDG_CACHE_HOME=f"{work}/c",
                           XDG_RUNTIME_DIR=str(work))
        self.log = open(work / "log", "w", encoding="utf-8")
        self.bus = subprocess.Popen(
            ["dbus-daemon", "--session", "--nofork", "--print-address"], stdout=subprocess.PIPE,
            env=dict(environment, LD_PRELOAD=str(lasting)) if lasting else environment,
            stderr=self.log, text=True)
        address = self.bus.stdout.readline().strip()
        self.environment = dict(environment, DBUS_SESSION_BUS_ADDRESS=address)
        self.client = stage / "bin" / "tarn-transcode"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop_daemon()
        self.bus.send_signal(signal.SIGTERM)
        self.bus.wait()
        self.log.close()

    def start(self, method, payload):
        return subprocess.Popen([self.client, "call", method, json.dumps(payload)],
                                env=self.environment, stdout=subprocess.PIPE, text=True)

    def call(self, method, payload):
        with self.start(method, payload) as process:
            return json.loads(process.communicate()[0])

    def fly(self, name, interface, method, flying, calls):
        """Seconds that so many calls take, of which so many are in flight."""
        return float(run(self.flyer, name, interface, method, flying, calls, env=self.environment))

    def wake(self):
        self.call("getMinimalBitrate", {})

    def resize(self, source, target, budget):
        return self.call("resizeImage",
                         {"inFile": str(source), "outFile": str(target), "size": budget})

    def pid_of(self, name=NAME):
        out = run(*BUS, "org.freedesktop.DBus.GetConnectionUnixProcessID", name,
                  env=self.environment)
        return int(out.split()[1].rstrip(",)"))

    def has_owner(self, name):
        return "true" in run(*BUS, "org.freedesktop.DBus.NameHasOwner", name, env=self.environment)

    def stop_daemon(self):
        if not self.has_owner(NAME):
            return
        os.kill(self.pid_of(), signal.SIGKILL)
        while self.has_owner(NAME):  # until the bus has seen it go
            pass

    def fresh_daemon(self):
        self.stop_daemon()
        self.wake()
        return self.pid_of()

    def resize_cost(self, repeats, source, target, budget):
        """CPU of the daemon and wall clock of the call, seconds, the means of its runs."""
        self.wake()
        pid = self.pid_of()
        before, start = cpu_of(pid), time.monotonic()
        for _ in range(repeats):
            self.resize(source, target, budget)
        wall = (time.monotonic() - start) / repeats
        return (cpu_of(pid) - before) / repeats, wall

    def together(self, count, source, work, budget):
        """Seconds until the last of so many requests at once is answered."""
        start = time.monotonic()
        calls = [self.start("resizeImage", {"inFile": str(source), "outFile": f"{work}/q{i}.jpg",
                                            "size": budget}) for i in range(count)]
        for call in calls:
            call.communicate()
        return time.monotonic() - start


def build(work, name, *libraries, words=()):
    """A program or library of this folder, compiled."""
    source = pathlib.Path(__file__).resolve().parent / f"{name}.cpp"
    flags = run("pkg-config", "--cflags", "--libs", *libraries).split()
    run("c++", "-std=c++20", "-O2", *words, source, "-o", work / name, *flags)
    return work / name
