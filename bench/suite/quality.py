"""How near the small pictures are to ImageMagick's Lanczos of the same photo, in dB, beside the
same encoder behind a decoder that computes every pixel of the photo."""
import os
import subprocess

from .tools import run

DIVISORS = (2, 4, 8)


def round_up(side):
    """As the service does it."""
    return (side + 15) // 16 * 16


def encode(stage, work, photo, size, between):
    out = work / "encoded.jpg"
    width, height = size
    environment = dict(os.environ, GST_PLUGIN_SYSTEM_PATH_1_0=str(machine_plugins(work)),
                       GST_PLUGIN_PATH_1_0=str(plugins(stage)),
                       GST_REGISTRY_1_0=str(work / "registry.bin"))
    run("gst-launch-1.0", "-q", "filesrc", f"location={photo}", "blocksize=1048576", "!",
        "jpegdec", "!", *between, "videoscale", "!",
        f"video/x-raw,width={width},height={height}", "!", "jpegenc", "!", "filesink",
        f"location={out}", env=environment)
    return out


def machine_plugins(work):
    """GStreamer's own that the pipeline needs, and no others."""
    folder = work / "plugins"
    folder.mkdir(exist_ok=True)
    machine = run("pkg-config", "--variable=pluginsdir", "gstreamer-1.0").strip()
    for name in ("libgstcoreelements.so", "libgstjpeg.so", "libgstvideocrop.so"):
        if not (folder / name).exists():
            (folder / name).symlink_to(f"{machine}/{name}")
    return folder


def plugins(stage):
    return next(stage.glob("lib*/**/tarn-transcode/gstreamer-1.0"))


def decibels(picture, reference):
    """compare tells the figure on its error output, and 1 by its exit where pictures differ."""
    done = subprocess.run(["compare", "-metric", "PSNR", str(picture), str(reference), "null:"],
                          capture_output=True, text=True, check=False)
    return float(done.stderr.split()[0])


def measure(stage, work, photos):
    rows = []
    for name, photo in photos.items():
        width, height = map(int, run("identify", "-format", "%w %h", photo).split())
        for divisor in DIVISORS:
            size = round_up(width // divisor), round_up(height // divisor)
            reference = work / "reference.png"
            run("convert", photo, "-filter", "Lanczos", "-resize", f"{size[0]}x{size[1]}!",
                reference)
            whole = (f"video/x-raw,width={width},height={height}", "!")
            rows.append({"photo": name, "divisor": divisor,
                         "ours": decibels(encode(stage, work, photo, size, ()), reference),
                         "whole": decibels(encode(stage, work, photo, size, whole), reference)})
            print(rows[-1], flush=True)
    return rows
