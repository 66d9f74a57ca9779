"""The page and its plots, from what was measured."""
import statistics

from .tools import run

WHO = {"ours": "ours", "floor": "libjpeg-turbo alone", "magick": "ImageMagick",
       "jpegoptim": "jpegoptim", "vips": "vipsthumbnail"}


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return "\n".join(lines + ["| " + " | ".join(map(str, row)) + " |" for row in rows]) + "\n"


def ms(seconds):
    return f"{seconds * 1000:.0f}"


def photos(rows):
    def ratio(row, over, under):
        return f"{row[over][0] / row[under][0]:.1f}"

    names = ["ours", "floor", "ImageMagick", "jpegoptim", "vipsthumbnail"]
    cpu = table(["MP", "budget", "result"] + names,
                [[r["photo"], r["budget"], f"{r['size']}, {r['bytes'] / 1000:.0f} kB"]
                 + [ms(r[who][0]) for who in WHO] for r in rows])
    ratios = table(["MP", "budget", "ours ÷ floor", "ImageMagick ÷ ours", "ImageMagick ÷ floor",
                    "jpegoptim ÷ ours", "jpegoptim ÷ floor"],
                   [[r["photo"], r["budget"], f"{r['ours'][0] / r['floor'][0]:.2f}",
                     ratio(r, "magick", "ours"), ratio(r, "magick", "floor"),
                     ratio(r, "jpegoptim", "ours"), ratio(r, "jpegoptim", "floor")] for r in rows])
    wall = table(["MP", "budget"] + names,
                 [[r["photo"], r["budget"]] + [ms(r[who][1]) for who in WHO] for r in rows])
    return {"photos_cpu": cpu, "photos_ratios": ratios, "photos_wall": wall}


def floor_words(rows):
    row = next((r for r in rows if r["photo"] == "12" and r["budget"] == "300 kB"), None)
    if row is None:
        return ""
    return (f"At 12 MP and 300 kB the floor itself is {row['magick'][0] / row['floor'][0]:.1f} × as "
            f"quick as ImageMagick\nand {row['jpegoptim'][0] / row['floor'][0]:.1f} × as jpegoptim: "
            "no search of which each attempt reads the file anew comes any further.")


def memory(found):
    return {"memory": table(["MP", "before", "peak", "after"],
                            [[r["photo"], f"{r['idle']:.1f}", f"{r['peak']:.1f}",
                              f"{r['after']:.1f}"] for r in found["sizes"]]),
            "requests": found["requests"], "paused": f"{found['paused']:.1f}",
            "at_once": f"{found['at_once']['after']:.1f}",
            "at_once_peak": f"{found['at_once']['peak']:.1f}"}


def start(found):
    cold, warm = found["cold"], found["warm"]
    return {"first": f"{found['first']:.1f}", "cold_call": f"{cold['call']:.0f}",
            "warm_call": f"{warm['call']:.0f}", "cold_photo": f"{cold['photo']:.0f}",
            "warm_photo": f"{warm['photo']:.0f}",
            "more_photo": f"{cold['photo'] - warm['photo']:.0f}", "idle": f"{found['idle']:.1f}"}


def calls(rows):
    names = {"ours": "ours", "gdbus": "GDBus", "sdbus": "sd-bus"}
    services = [name for name in names if any(r["service"] == name for r in rows)]
    flying = sorted({r["flying"] for r in rows})
    cell = {(r["service"], r["flying"]): r for r in rows}
    return {"calls": table(
        ["in flight"] + [f"{names[s]}, calls a second" for s in services]
        + [f"{names[s]}, µs of CPU" for s in services],
        [[n] + [f"{cell[s, n]['rate']:.0f}" for s in services]
         + [f"{cell[s, n]['cpu_us']:.0f}" for s in services] for n in flying])}


def quality(rows):
    gains = [row["ours"] - row["whole"] for row in rows]
    worst = rows[gains.index(min(gains))]
    return {"quality": table(["photo", "made smaller by", "ours", "every pixel decoded", "gain"],
                             [[r["photo"], r["divisor"], f"{r['ours']:.2f}", f"{r['whole']:.2f}",
                               f"{r['ours'] - r['whole']:+.2f}"] for r in rows]),
            "gain_median": f"{statistics.median(gains):+.2f}", "gain_worst": f"{min(gains):+.2f}",
            "worst": f"{worst['photo']} at 1/{worst['divisor']}"}


def plot(path, title, axes, series, log=True):
    script = [f"set terminal pngcairo size 800,480; set output '{path}'",
              f"set title '{title}'; set xlabel '{axes[0]}'; set ylabel '{axes[1]}'",
              "set key outside right; set grid; set logscale x" + ("; set logscale y" if log else "")]
    script.append("plot " + ", ".join(
        f"'-' with linespoints lw 2 title '{label}'" for label in series))
    for points in series.values():
        script += [f"{x} {y}" for x, y in points] + ["e"]
    run("gnuplot", input="\n".join(script))


def plots(docs, found):
    at_300 = [row for row in found["photos"] if row["budget"] == "300 kB"]
    plot(docs / "benchmarks-photos.png", "A photo to 300 kB", ("megapixels", "CPU time, ms"),
         {label: [(row["photo"], row[who][0] * 1000) for row in at_300]
          for who, label in WHO.items()})
    sizes = found["memory"]["sizes"]
    plot(docs / "benchmarks-memory.png", "Memory of a fresh daemon, one photo to 300 kB",
         ("megapixels", "MiB resident"),
         {"peak": [(row["photo"], row["peak"]) for row in sizes],
          "afterwards": [(row["photo"], row["after"]) for row in sizes]}, log=False)
    plot(docs / "benchmarks-queue.png", "Photos of 3 MP asked for at once",
         ("photos", "ms for each"), {"ours": [(n, s * 1000 / n) for n, s in found["queue"]]},
         log=False)
    services = {"ours": "ours", "gdbus": "bare GDBus", "sdbus": "bare sd-bus"}
    plot(docs / "benchmarks-calls.png", "Calls in flight", ("in flight", "calls a second"),
         {label: [(r["flying"], r["rate"]) for r in found["calls"] if r["service"] == name]
          for name, label in services.items()})


def write(docs, template, found, about):
    """Fills the words in {braces} of the template."""
    words = dict(about, **photos(found["photos"]), **memory(found["memory"]),
                 **start(found["start"]), **calls(found["calls"]), **quality(found["quality"]),
                 floor_words=floor_words(found["photos"]),
                 probe_ours=f"{found['probe']['ours']:.0f}",
                 probe_ffmpeg=f"{found['probe']['ffmpeg']:.0f}",
                 queue=table(["photos", "s", "ms each"],
                             [[n, f"{s:.2f}", f"{s * 1000 / n:.0f}"] for n, s in found["queue"]]))
    (docs / "benchmarks.md").write_text(template.read_text().format(**words))
    plots(docs, found)
