#!/usr/bin/env python3
"""Runs the examples of a document, as somebody would who copies them.

    run_document.py STAGE DOCUMENT    on the session bus that it finds

A block headed by a language and a file's name is saved under that name; a "sh" block is run, with
/home/me standing for a folder that holds photo.jpg and clip.mp4. It shall succeed. A "text" block
right behind it is what it prints, all numbers alike; without one it prints a success of the service.
"""
import os
import re
import subprocess
import sys
import tempfile

BLOCK = re.compile(r"^```(\S*) ?(\S*)\n(.*?)^```\n(?=\n?(```text\n.*?^```)?)", re.M | re.S)


def makeMedia(home):
    """A photo and a clip that are larger than the examples want them."""
    subprocess.run(
        ["convert", "-size", "1600x1200", "-seed", "7", "plasma:tomato-steelblue",
         "-quality", "97", f"{home}/photo.jpg"], check=True)
    subprocess.run(
        ["ffmpeg", "-v", "error", "-nostdin", "-f", "lavfi",
         "-i", "testsrc=size=320x240:rate=25:duration=3", "-f", "lavfi", "-i", "sine=duration=3",
         "-c:v", "mpeg4", "-q:v", "2", "-c:a", "aac", f"{home}/clip.mp4"], check=True)


def shape(text):
    return re.sub(r"\d+", "N", text).strip()


def wrong(output, expected):
    """What is not as it should be, "" when all is."""
    if expected:
        return "" if shape(output) == shape(expected) else f"expected: {expected}"
    return "" if '"returnValue":true' in output.replace("\\", "") else "expected: a success"


def runBlocks(document, home, environment):
    work = os.path.join(home, "examples")
    os.mkdir(work)
    ran, failed = 0, 0
    for language, name, body, following in BLOCK.findall(document):
        body = body.replace("/home/me", home)
        if name:
            with open(os.path.join(work, name), "w", encoding="utf-8") as file:
                file.write(body)
        elif language == "sh":
            run = subprocess.run(["sh", "-euc", body], cwd=work, env=environment, text=True,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
            expected = "\n".join(following.splitlines()[1:-1])
            problem = wrong(run.stdout, expected) if run.returncode == 0 else f"exit {run.returncode}"
            ran += 1
            if problem:
                failed += 1
                print(f"{body}printed: {run.stdout}{problem}\n")
    print(f"{ran} examples, {failed} failed")
    return ran > 0 and failed == 0


def main():
    stage, path = sys.argv[1:]
    environment = dict(os.environ, PATH=f"{stage}/bin:{os.environ['PATH']}",
                       PKG_CONFIG_PATH=f"{stage}/lib/pkgconfig", LD_LIBRARY_PATH=f"{stage}/lib")
    with open(path, encoding="utf-8") as file, tempfile.TemporaryDirectory() as home:
        makeMedia(home)
        return 0 if runBlocks(file.read(), home, environment) else 1


if __name__ == "__main__":
    sys.exit(main())
