#!/usr/bin/env python3
"""Runs the commands of a document, as somebody would who copies them.

    run_document.py STAGE DOCUMENT [--movies | --sandboxed]    on the session bus that it finds
    run_document.py --all TOP    fails where a command stands in a document that is not run

A block headed by a language and a file's name is saved under that name; a "sh" block is run where
photo.jpg and clip.mp4 are, which is /home/me too. It shall succeed, and what it makes of the photo, if
it is called small.jpg, shall be a photo of 300,000 bytes at most. A "text" block right behind it is
what it prints, all numbers alike. Of a man page the examples are run.

With --movies the document's photos are movies, after the changes that docs/fit.md tells. Sandboxed, its
programs in C++ and Python run as an application from a store does: in namespaces of their own, without
home, with files that nobody outside sees, and with a bus on which there is one name.
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

# What is not run, by its first line, and why.
NOT_RUN = {
    "./run": "it builds the tree whose test this is",
    "./run fit photo.jpg small.jpg --size 300k": "the same",
    "cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr/local"
    " -DBUILD_TESTING=OFF": "it installs for the whole machine; tests/install does so elsewhere",
    'sed -i "s|/usr/local|/opt/tarn|" /opt/tarn/share/dbus-1/services/*'
    " /opt/tarn/share/systemd/user/*": "the same; tests/install moves a tree by it",
    "cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=MinSizeRel -DTARN_DEVICE=ON"
    " -DGSTREAMER_API=0.10": "it needs a device's libraries; scripts/try-device has their like",
    "scripts/cross armhf            # or arm64: builds, then runs the suite there, emulated":
        "it takes an hour and a system of its own",
}
# Documents with commands that another test runs.
TESTED_ELSEWHERE = {"docs/many-machines.md": "scripts/try-many-machines"}
# Those whose commands this one runs.
DOCUMENTS = ["README.md", "docs/api.md", "docs/fit.md", "packaging/man/tarn-transcode.1",
             "packaging/man/tarn-transcode-for-mail.1"]

LIMIT = 300_000
SKIPPED = 77
BLOCK = re.compile(r"^```(\S*) ?(\S*)\n(.*?)^```\n(?=\n?(```text\n.*?^```)?)", re.M | re.S)
INDENTED = re.compile(r"\n\n(    [^ \n].*)")
MAN_EXAMPLE = re.compile(r"^\.Dl \$ (.*)\n|^\.Bd -literal.*\n((?:[^.].*\n)*)\.Ed", re.M)


class Block:
    def __init__(self, language, name, body, following):
        self.language, self.name, self.body = language, name, body
        self.expected = "\n".join(following.splitlines()[1:-1])

    def isRun(self):
        return self.language == "sh" and not self.name and self.firstLine() not in NOT_RUN

    def firstLine(self):
        return self.body.splitlines()[0]


def blocksOf(path):
    text = path.read_text(encoding="utf-8")
    if path.suffix == ".md":
        return [Block(*found) for found in BLOCK.findall(text)]
    return [Block("sh", "", (line or lines).replace("\\e", "\\") + "\n", "")
            for line, lines in MAN_EXAMPLE.findall(text)]


def makeMedia(home):
    """A photo and a clip that are larger than the examples want them."""
    subprocess.run(
        ["convert", "-size", "1600x1200", "-seed", "7", "plasma:tomato-steelblue",
         "-quality", "97", f"{home}/photo.jpg"], check=True)
    subprocess.run(
        ["ffmpeg", "-v", "error", "-nostdin", "-f", "lavfi",
         "-i", "testsrc2=size=320x240:rate=25:duration=2", "-f", "lavfi", "-i", "sine=duration=2",
         "-vf", "noise=alls=30:allf=t", "-c:v", "mpeg4", "-q:v", "3", "-c:a", "aac",
         f"{home}/clip.mp4"], check=True)
    assert min(os.stat(f"{home}/{name}").st_size for name in ("photo.jpg", "clip.mp4")) > LIMIT


def forMovies(block):
    """What docs/fit.md says is other for a movie."""
    changed = block.body.replace("fit_image", "fit_movie").replace("FitImage", "FitMovie")
    assert changed != block.body or not block.name, block.name
    changed = changed.replace(", 'keepMetadata': <'no-location'>", "")
    block.body = changed.replace("photo.jpg", "clip.mp4").replace("small.jpg", "small.mp4")


SANDBOX = """
rm -f bus
xdg-dbus-proxy "$DBUS_SESSION_BUS_ADDRESS" "$PWD/bus" --filter --talk=com.tarn.Fit1 &
proxy=$!
until [ -S bus ]; do sleep 0.02; done
status=0
mkdir -p taken
bwrap --unshare-all --die-with-parent --ro-bind /usr /usr --symlink usr/lib /lib \\
    --symlink usr/lib64 /lib64 --symlink usr/bin /bin --proc /proc --dev /dev --tmpfs /home \\
    --ro-bind {stage} {stage} --dir /given --ro-bind "$PWD" /given --bind "$PWD/taken" /taken \\
    --tmpfs /own --bind "$PWD/bus" /run/bus --setenv DBUS_SESSION_BUS_ADDRESS unix:path=/run/bus \\
    --chdir /given \\
    sh -c 'cp photo.jpg /own/in && {program} /own/in /own/out &&
        cp /own/out /taken/small.jpg && [ ! -e /etc/passwd ]' || status=$?
kill $proxy
mv taken/small.jpg .
exit $status
"""


def sandboxed(block, stage):
    """The block with its last line, "PROGRAM photo.jpg small.jpg", in a sandbox."""
    *before, last = block.body.splitlines()
    program = last.removesuffix(" photo.jpg small.jpg")
    assert program != last, last
    block.body = "\n".join(before) + SANDBOX.format(stage=stage, program=program)


def canSandbox():
    if not shutil.which("xdg-dbus-proxy") or not shutil.which("bwrap"):
        return False
    probe = ["bwrap", "--unshare-all", "--ro-bind", "/", "/", "true"]
    return subprocess.run(probe, check=False).returncode == 0


def shape(text):
    return re.sub(r"\d+", "N", text).strip()


def wrong(block, output, home):
    """What is not as it should be, "" when all is."""
    for name, start in (("small.jpg", b"\xff\xd8"), ("small.mp4", b"ftyp")):
        path = home / name
        if not path.exists():
            continue
        made = path.read_bytes()
        path.unlink()
        if len(made) > LIMIT or start not in made[:12]:
            return f"{name} is not made as asked: {len(made)} bytes"
        print(f"{block.firstLine()}: {len(made)} bytes")
    if block.expected:
        return "" if shape(output) == shape(block.expected) else f"expected: {block.expected}"
    return "expected: a success" if '"returnValue":false' in output.replace("\\", "") else ""


def runBlocks(blocks, home, environment):
    ran, failed = 0, 0
    for block in blocks:
        block.body = block.body.replace("/home/me", str(home))
        block.expected = block.expected.replace("/home/me", str(home))
        if block.name:
            (home / block.name).write_text(block.body, encoding="utf-8")
        elif block.isRun():
            run = subprocess.run(["sh", "-euc", block.body], cwd=home, env=environment, text=True,
                                 stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                 stderr=subprocess.STDOUT, check=False)
            problem = f"exit {run.returncode}" if run.returncode else wrong(block, run.stdout, home)
            ran += 1
            if problem:
                failed += 1
                print(f"{block.body}printed: {run.stdout}{problem}\n")
    print(f"{ran} examples, {failed} failed")
    return ran > 0 and failed == 0


def runAll(top):
    """What of all documents is no block that is run or listed here."""
    problems = []
    first = set()
    for path in [*top.glob("*.md"), *top.glob("docs/*.md"), *top.glob("packaging/man/*")]:
        name = str(path.relative_to(top))
        if name in TESTED_ELSEWHERE:
            continue
        blocks = blocksOf(path)
        first |= {block.firstLine() for block in blocks}
        problems += [f"{name}: nothing runs {block.firstLine()}" for block in blocks
                     if block.isRun() and name not in DOCUMENTS]
        if path.suffix == ".md":
            text = re.sub(BLOCK, "", path.read_text(encoding="utf-8"))
            problems += [f"{name}: is no block: {line}" for line in INDENTED.findall(text)]
            problems += [f"{name}: a block of no language: {block.firstLine()}"
                         for block in blocks if not block.language]
    problems += [f"in no document: {line}" for line in NOT_RUN if line not in first]
    print("\n".join(problems))
    return not problems


def main():
    if sys.argv[1] == "--all":
        return 0 if runAll(pathlib.Path(sys.argv[2])) else 1
    stage, path = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    blocks = blocksOf(path)
    if "--movies" in sys.argv:
        for block in blocks:
            forMovies(block)
    if "--sandboxed" in sys.argv:
        if not canSandbox():
            print("skipped: no bwrap and xdg-dbus-proxy that work here")
            return SKIPPED
        blocks = [block for block in blocks if block.name or "messenger" in block.body]
        for block in blocks:
            if not block.name:
                sandboxed(block, stage)
    pkgconfig = next(stage.glob("lib/**/pkgconfig"))
    with tempfile.TemporaryDirectory() as folder:
        home = pathlib.Path(folder)
        makeMedia(home)
        environment = dict(os.environ, HOME=folder, XDG_CACHE_HOME=f"{folder}/.cache",
                           PATH=f"{stage}/bin:{os.environ['PATH']}",
                           PKG_CONFIG_PATH=str(pkgconfig), LD_LIBRARY_PATH=str(pkgconfig.parent))
        return 0 if runBlocks(blocks, home, environment) else 1


if __name__ == "__main__":
    sys.exit(main())
