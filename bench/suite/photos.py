"""A photo to a byte budget: what it costs, beside other programs, and the memory it takes."""
import time

from .tools import cost, memory_of, run

MEGAPIXELS = {"0.5": (816, 612), "3": (2016, 1512), "12": (4032, 3024), "48": (8064, 6048)}
BUDGETS = {"100 kB": 100_000, "300 kB": 300_000, "1 MB": 1_000_000}
PEERS = ("floor", "magick", "jpegoptim", "vips")


def make_photos(work, photo):
    """The photo, or a made one, at each size, as a camera would have encoded it."""
    if photo is None:
        photo = work / "made.jpg"
        run("convert", "-size", "4032x3024", "-seed", "7", "plasma:tomato-steelblue", "-attenuate",
            "0.2", "+noise", "Gaussian", "-quality", "92", photo)
    photos = {}
    for name, (width, height) in MEGAPIXELS.items():
        photos[name] = work / f"{name}.jpg"
        run("vipsthumbnail", photo, "-s", f"{width}x{height}!", "-o",
            f"{photos[name]}[Q=92,subsample_mode=on]")
    return photos


def measure_costs(system, work, photos, budgets, floor, repeats):
    rows = []
    for name, photo in photos.items():
        for budget in budgets:
            size = BUDGETS[budget]
            if photo.stat().st_size <= size:
                continue
            ours, out = work / "ours.jpg", work / "out.jpg"
            reply = system.resize(photo, ours, size)
            if not reply["returnValue"]:
                continue
            width, height = reply["xSize"], reply["ySize"]
            rows.append({
                "photo": name, "budget": budget, "size": f"{width} × {height}",
                "bytes": reply["ImageSize"],
                "ours": system.resize_cost(repeats, photo, ours, size),
                "floor": cost(repeats, floor, photo, out, size),
                "magick": cost(1, "convert", photo, "-define", f"jpeg:extent={size}", out),
                "jpegoptim": cost(1, "sh", "-c",
                                  f"jpegoptim --size={size // 1000} --stdout {photo} > {out}"),
                "vips": cost(repeats, "vipsthumbnail", photo, "-s", f"{width}x{height}!", "-o",
                             f"{out}[Q=85]")})
            print(rows[-1], flush=True)
    return rows


def measure_memory(system, work, photos, requests):
    """Of a fresh daemon each: before, during and after one photo, and after many."""
    sizes = []
    for name, photo in photos.items():
        pid = system.fresh_daemon()
        idle = memory_of(pid, "VmRSS")
        system.resize(photo, work / "out.jpg", 300_000)
        sizes.append({"photo": name, "idle": idle, "peak": memory_of(pid, "VmHWM"),
                      "after": settled(pid)})
    pid = system.fresh_daemon()
    for _ in range(requests):
        system.resize(photos["12"], work / "out.jpg", 300_000)
        time.sleep(0.2)  # the pause is what is measured
    paused = settled(pid)
    pid = system.fresh_daemon()
    system.together(20, photos["12"], work, 300_000)
    at_once = {"peak": memory_of(pid, "VmHWM"), "after": settled(pid)}
    return {"sizes": sizes, "requests": requests, "paused": paused, "at_once": at_once}


def settled(pid):
    """Resident MiB two seconds after the last request."""
    time.sleep(2)
    return memory_of(pid, "VmRSS")


def measure_queue(system, work, photo, counts):
    system.wake()
    return [(count, system.together(count, photo, work, 300_000)) for count in counts]
