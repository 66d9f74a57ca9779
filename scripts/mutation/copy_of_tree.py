"""A copy of the tree to make changes in, its build, and the tests of it in a sandbox."""

import os
import pathlib
import re
import subprocess

TOP = pathlib.Path(__file__).resolve().parents[2]
COPY = TOP / "build/mutate"
BUILD = COPY / "build/dev"
COMPILE_SECONDS = 300
FIRST_BUILD_SECONDS = 3600
LONGEST_TEST_SECONDS = 300

# What the tests read of the machine. All the rest of the sandbox's root is its own.
MACHINE = ("/usr", "/etc", "/var", "/opt", "/sys")
LINKS = ("/bin", "/sbin", "/lib", "/lib32", "/lib64")


def refresh() -> None:
    """Brings the copy to the tree's state; files that are the same keep their time."""
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=TOP, check=True,
                            capture_output=True, text=True).stdout.split("\n")
    for name in filter(None, listed):
        if (TOP / name).is_file():
            content = (TOP / name).read_bytes()
            target = COPY / name
            if not target.is_file() or target.read_bytes() != content:
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_bytes(content)
                target.chmod((TOP / name).stat().st_mode)


def configure() -> None:
    subprocess.run(["cmake", "--preset", "dev"], cwd=COPY, check=True, stdout=subprocess.DEVNULL)


def isBuilt(targets: list[str], seconds: float) -> bool:
    """Builds; False when that fails or takes too long."""
    try:
        return subprocess.run(["ninja", "-C", BUILD, "-j2", *targets], check=False,
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=seconds).returncode == 0
    except subprocess.TimeoutExpired:
        return False


def install() -> bool:
    """Puts the built system where the tests of the whole look for it."""
    return subprocess.run(["cmake", "--install", BUILD, "--prefix", BUILD / "stage"], check=False,
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0


def sandbox() -> list[str]:
    """What goes before a command that may do anything: it can write into the copy's build and into
    folders that go with it, and sees no process but its own."""
    words = ["bwrap", "--die-with-parent", "--new-session", "--unshare-pid", "--unshare-ipc",
             "--unshare-net", "--proc", "/proc", "--dev", "/dev", "--tmpfs", "/tmp", "--tmpfs", "/run",
             "--dir", "/tmp/home", "--setenv", "HOME", "/tmp/home"]
    for folder in MACHINE:
        words += ["--ro-bind-try", folder, folder]
    for link in LINKS:
        if os.path.islink(link):
            words += ["--symlink", os.readlink(link), link]
    return words + ["--ro-bind", str(COPY), str(COPY), "--bind", str(BUILD), str(BUILD),
                    "--chdir", str(COPY)]


def program(name: str) -> pathlib.Path:
    return next((BUILD / "tests").glob(f"*/{name}"))


def run(name: str, wanted: str, seconds: float, failFast: bool = True) -> list[str]:
    """Runs a test program in the sandbox, of its tests those wanted; returns what failed. A program
    that dies or does not end has failed as a whole."""
    words = [*sandbox(), str(program(name)), f"--gtest_filter={wanted}", "--gtest_brief=1"]
    try:
        done = subprocess.run(words + ["--gtest_fail_fast"] * failFast, check=False, text=True,
                              errors="replace", stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=seconds)
    except subprocess.TimeoutExpired:
        return [f"{name} did not end"]
    failed = re.findall(r"^\[  FAILED  \] ([\w./]+)[^\n]* \(\d+ ms\)$", done.stdout, re.M)
    if done.returncode != 0 and not failed:
        failed = [f"{name} ended with {done.returncode}"]
    return failed
