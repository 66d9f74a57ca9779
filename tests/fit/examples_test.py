#!/usr/bin/env python3
"""Builds and runs each example of docs/fit.md against the installed tree: with a photo as it stands
there, and with a movie after the changes that the page tells.

    examples_test.py STAGE PHOTO-MAKER [--sandboxed]

Sandboxed, those in C++ and Python run as an application from a store does: in namespaces of their own,
without home, with files that nobody outside sees, and with a bus on which there is one name.
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
LIMIT = 300_000
SKIPPED = 77


def examples():
    text = (TOP / "docs/fit.md").read_text()
    return {language: code for language, code in re.findall(r"```(\w+)\n(.*?)```", text, re.S)}


def for_movies(language, code):
    """The example with what the page says is other for a movie."""
    if language == "sh":
        return code
    changed = code.replace("fit_image", "fit_movie").replace('"FitImage"', '"FitMovie"')
    assert changed != code
    return changed.replace(", 'keepMetadata': <'no-location'>", "")


def make_movie(path):
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                    "testsrc2=size=320x240:rate=25:duration=2", "-vf", "noise=alls=30:allf=t",
                    "-c:v", "mpeg4", "-q:v", "3", path], check=True)


def check(language, made, start, end):
    assert 0.85 * LIMIT < len(made) <= LIMIT, (language, len(made))
    assert start in made[:12] and made.endswith(end), language
    print(f"{language}: {len(made)} bytes", flush=True)


def flags(stage):
    found = next(stage.glob("lib/**/pkgconfig"))
    environment = dict(os.environ, PKG_CONFIG_PATH=str(found))
    words = subprocess.run(["pkg-config", "--cflags", "--libs", "tarnfit"], env=environment,
                           check=True, capture_output=True, text=True).stdout.split()
    return [*words, f"-Wl,-rpath,{found.parent}"]


def prepared(language, code, work, stage):
    """The words that start the example."""
    suffix = {"c": ".c", "cpp": ".cpp", "python": ".py", "sh": ".sh"}[language]
    source = work / f"example{suffix}"
    source.write_text(code)
    if language in ("c", "cpp"):
        compiler = {"c": "cc", "cpp": "c++"}[language]
        program = work / f"example-{language}"
        subprocess.run([compiler, "-Wall", "-Werror", source, "-o", program, *flags(stage)],
                       check=True)
        return [program]
    return [{"python": "/usr/bin/python3", "sh": "sh"}[language], source]


SANDBOX = """
rm -f {work}/bus
xdg-dbus-proxy "$DBUS_SESSION_BUS_ADDRESS" {work}/bus --filter --talk=com.tarn.Fit1 &
proxy=$!
until [ -S {work}/bus ]; do sleep 0.02; done
status=0
bwrap --unshare-all --die-with-parent --ro-bind /usr /usr --symlink usr/lib /lib \
    --symlink usr/lib64 /lib64 --symlink usr/bin /bin --proc /proc --dev /dev --tmpfs /home \
    --ro-bind {stage} {stage} --dir /given --ro-bind {work} /given --bind {work}/taken /taken \
    --tmpfs /own --bind {work}/bus /run/bus --setenv DBUS_SESSION_BUS_ADDRESS unix:path=/run/bus \
    sh -c 'cp /given/{source} /own/in && {words} /own/in /own/out &&
        cp /own/out /taken/{name} && [ ! -e /etc/passwd ]' || status=$?
kill $proxy
exit $status
"""


def sandboxed(words, name, source, work, stage):
    """The words of a shell that runs the example where it can reach nothing but the service."""
    inside = " ".join(str(word).replace(str(work), "/given") for word in words)
    script = work / f"sandbox-{name}.sh"
    script.write_text(SANDBOX.format(work=work, stage=stage, words=inside, name=name,
                                     source=source.name))
    (work / "taken").mkdir(exist_ok=True)
    return ["sh", script], work / "taken" / name


def can_sandbox():
    if not shutil.which("xdg-dbus-proxy") or not shutil.which("bwrap"):
        return False
    probe = ["bwrap", "--unshare-all", "--ro-bind", "/", "/", "true"]
    return subprocess.run(probe, check=False).returncode == 0


def main():
    stage, maker = pathlib.Path(sys.argv[1]), sys.argv[2]
    in_sandbox = "--sandboxed" in sys.argv
    if in_sandbox and not can_sandbox():
        print("skipped: no bwrap and xdg-dbus-proxy that work here")
        return SKIPPED
    found = examples()
    assert set(found) == {"c", "cpp", "python", "sh"}, found.keys()
    with tempfile.TemporaryDirectory() as folder:
        work = pathlib.Path(folder)
        photo, movie = work / "photo.jpg", work / "movie.avi"
        subprocess.run([maker, photo], check=True)
        make_movie(movie)
        assert min(photo.stat().st_size, movie.stat().st_size) > LIMIT
        (work / "cache").mkdir()
        environment = dict(os.environ, XDG_DATA_DIRS=f"{stage}/share:/usr/share",
                           XDG_CACHE_HOME=str(work / "cache"),
                           PATH=f"{stage}/bin:{os.environ['PATH']}")

        def run(language, code, source, ending):
            words, out = prepared(language, code, work, stage), work / f"{language}{ending}"
            if in_sandbox:
                words, out = sandboxed(words, out.name, source, work, stage)
            else:
                words = [*words, source, out]
            subprocess.run(["dbus-run-session", "--", *words], env=environment, check=True)
            return out.read_bytes()

        for language, code in found.items():
            if in_sandbox and language not in ("cpp", "python"):
                continue
            check(language, run(language, code, photo, ".jpg"), b"\xff\xd8", b"\xff\xd9")
            made = run(language, for_movies(language, code), movie, ".mp4")
            check(f"{language}, movie", made, b"ftyp", b"")
    return 0


if __name__ == "__main__":
    sys.exit(main())
