"""H.264 by com.tarn.Fit1's worker, under the limits that the adapter is given."""
import subprocess

from movies_fit.bench import remove
from movies_fit.tools import ENVIRONMENT


def measureFitted(bench, clip, budget):
    limit = int(budget * 0.95)
    out = bench.path("mp4")
    with open(clip, "rb") as source, open(out, "w+b") as made:
        process = subprocess.run(
            [bench.fitMovie, "fit", f"max-bytes={limit}", "format=mp4-h264"],
            stdin=source,
            stdout=made,
            stderr=subprocess.PIPE,
            text=True,
            env={**ENVIRONMENT, "XDG_CACHE_HOME": bench.work},
            check=False,
        )
    told = process.stderr.strip().split("\n")[-1]
    if process.returncode == 0:
        result = {"end": "made", "told": told}
        bench.describe(out, clip, result, limit)
    else:
        refused = told.startswith("failure LimitTooSmall")
        result = {"end": "refused" if refused else "failed", "text": told, "limit": limit}
    remove(out)
    return result
