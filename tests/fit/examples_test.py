#!/usr/bin/env python3
"""Builds and runs each example of docs/fit.md against the installed tree, as it stands there.

    examples_test.py STAGE PHOTO-MAKER
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
LIMIT = 300_000


def examples():
    text = (TOP / "docs/fit.md").read_text()
    return {language: code for language, code in re.findall(r"```(\w+)\n(.*?)```", text, re.S)}


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


def main():
    stage, maker = pathlib.Path(sys.argv[1]), sys.argv[2]
    found = examples()
    assert set(found) == {"c", "cpp", "python", "sh"}, found.keys()
    with tempfile.TemporaryDirectory() as folder:
        work = pathlib.Path(folder)
        photo = work / "photo.jpg"
        subprocess.run([maker, photo], check=True)
        assert photo.stat().st_size > LIMIT
        environment = dict(os.environ, XDG_DATA_DIRS=f"{stage}/share:/usr/share",
                           PATH=f"{stage}/bin:{os.environ['PATH']}")
        for language, code in found.items():
            out = work / f"{language}.jpg"
            words = prepared(language, code, work, stage)
            subprocess.run(["dbus-run-session", "--", *words, photo, out], env=environment, check=True)
            made = out.read_bytes()
            assert 0.9 * LIMIT < len(made) <= LIMIT, (language, len(made))
            assert made[:2] == b"\xff\xd8" and made[-2:] == b"\xff\xd9", language
            print(f"{language}: {len(made)} bytes", flush=True)


if __name__ == "__main__":
    main()
