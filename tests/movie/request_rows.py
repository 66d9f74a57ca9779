"""Movie requests to plan: fixed ones with their worked-out answers, and random ones."""

import json
import random
from collections.abc import Callable
from dataclasses import dataclass

INT32_MAX = 2**31 - 1
ProbeFacts = tuple[int, float, float]  # length in ms, frame rate, the stream's second rate
Member = object


@dataclass
class Row:
    """One line for the driver. The request is JSON text, so that its numbers' spelling is kept."""

    requestText: str
    probe: ProbeFacts | None
    inputFileSize: int
    expected: dict[str, object] | None = None


# Fixed requests. OUT stands for the output, a semicolon parts the passes. The driver makes the
# input and calls it INPUT.

RATES = '"videoBitrate":691200,"audioBitrate":76799'
PLAIN = "-vcodec mpeg4 -b 691k -acodec libfaac -ab 76799"
CLIP_10_S = "-ss 0.000000 -t 10.000000"
SCALER = "-sws_flags fast_bilinear"
AMRNB = "-acodec libopencore_amrnb"
LIMITS = '"maxOutputSize":1000000,"maxBitrate":500000'
NOT_MEDIA = "Input file is not a media file"
NO_LENGTH = "getOrignalLengthInMs() failed\n"
TOO_SMALL = "can't reach targetBitrate, maxOutputSize too small?\n"
NO_AUDIO_RATE = "when copy video and transcode audio,  bitrateAudio must be explicitly specified"
NO_VIDEO_RATE = "when copy audio and transcode video,  bitrateVideo must be explicitly specified"
IN_UNPARSED = "Could not parse param inFile"
OUT_UNPARSED = "Could not parse param outFile"
TEN_SECONDS: ProbeFacts = (10000, 25, 25)

# Members, probe, input size, answer: the output is out.mp4.
PLANNED: list[tuple[str, ProbeFacts | None, int, str]] = [
    (RATES, None, 11, PLAIN),
    (RATES, None, 10, NOT_MEDIA),
    (RATES + ',"passes":5', None, 99, PLAIN),
    (RATES + ',"passes":2,"passes":3e0', None, 99, PLAIN),
    # Budgets. 95 % of them are planned, and 96 % of the rate that gives.
    ('"maxOutputSize":1052632,"clipLength":10', None, 99, f"{PLAIN} -fs 1000000 {CLIP_10_S}"),
    ('"maxOutputSize":41121,"clipLength":10', None, 99, TOO_SMALL),
    ('"maxOutputSize":49344,"clipLength":10', None, 99, TOO_SMALL),
    ('"maxOutputSize":49345,"clipLength":10', None, 99,
     f"-vcodec mpeg4 -b 32k -acodec libfaac -ab 4000 -fs 46877 {CLIP_10_S}"),
    ('"maxOutputSize":20000000,"clipLength":10,"videoBitrate":9000000', None, 99,
     f"-vcodec mpeg4 -b 8000k -acodec libfaac -ab 256000 -fs 18999999 {CLIP_10_S}"),
    ('"maxOutputSize":2147483647,"clipLength":0.001', None, 99, TOO_SMALL),
    ('"maxOutputSize":-1000000', TEN_SECONDS, 1000000, TOO_SMALL),
    ('"maxOutputSize":-1000000,' + RATES, None, 99, PLAIN),
    ('"maxOutputSize":1', TEN_SECONDS, 1000000, PLAIN),
    ("", TEN_SECONDS, 1000000, PLAIN),
    ('"clipLength":5', TEN_SECONDS, 1000000, f"{PLAIN} -ss 0.000000 -t 5.000000"),
    ('"maxBitrate":500000', TEN_SECONDS, 1000000,
     "-vcodec mpeg4 -b 432k -acodec libfaac -ab 47999"),
    ('"clipLength":5', None, 99, NO_LENGTH),
    ('"maxOutputSize":1000000', (0, 25, 25), 99, NO_LENGTH),
    # Rates of a whole 480640, which the 64-bit mantissa misses in the one and meets in the other.
    ('"videoBitrate":400000', (75, 25, 25), 4506,
     "-vcodec mpeg4 -b 400k -acodec libfaac -ab 61413"),
    ('"videoBitrate":400000', (275, 25, 25), 16522,
     "-vcodec mpeg4 -b 400k -acodec libfaac -ab 61414"),
    # Copied streams.
    ('"videoCodec":"copy","audioCodec":"aac",' + LIMITS, None, 99, NO_AUDIO_RATE),
    ('"videoCodec":"copy","videoBitrate":1,"audioBitrate":64000,' + LIMITS, None, 99,
     "-vcodec copy -acodec libfaac -ab 64000"),
    ('"videoCodec":"copy","audioCodec":"copy",' + LIMITS + "," + RATES, None, 99,
     "-vcodec copy -acodec copy"),
    ('"audioCodec":"copy",' + LIMITS, None, 99, NO_VIDEO_RATE),
    ('"audioCodec":"copy","videoBitrate":200000,' + LIMITS, None, 99,
     "-vcodec mpeg4 -b 200k -acodec copy"),
    # AMR-NB takes its own rates only; the video stream absorbs the difference.
    ('"audioCodec":"amrnb","audioBitrate":9000,"videoBitrate":99950,"audioSamplingRate":44100',
     None, 99, f"-vcodec mpeg4 -b 101k {AMRNB} -ab 7950 -ar 8000 -ac 1"),
    ('"audioCodec":"amrnb","audioBitrate":3000,"videoBitrate":100750', None, 99,
     f"-vcodec mpeg4 -b 99k {AMRNB} -ab 4750 -ar 8000 -ac 1"),
    ('"audioCodec":"amrnb","audioBitrate":-2147483648,"videoBitrate":100', None, 99,
     f"-vcodec mpeg4 -b 2147478k {AMRNB} -ab 4750 -ar 8000 -ac 1"),
    ('"audioCodec":"amrnb","audioBitrate":9000,"videoCodec":"copy"', None, 99,
     f"-vcodec copy -b 1k {AMRNB} -ab 7950 -ar 8000 -ac 1"),
    # H.263 and the frame rate.
    ('"videoCodec":"h263","picSize":"auto","videoBitrate":299999,"audioBitrate":1', None, 99,
     f"-s qcif {SCALER} -vcodec h263 -b 299k -r 15.000 -acodec libfaac -ab 1"),
    ('"videoCodec":"h263","picSize":"auto","videoBitrate":300000,"audioBitrate":1', None, 99,
     f"-s cif {SCALER} -vcodec h263 -b 300k -acodec libfaac -ab 1"),
    ('"videoCodec":"h263","videoFrameRate":-5,"videoBitrate":300000,"audioBitrate":1', (1, 25, 30),
     99, "-vcodec h263 -b 300k -r 25.000 -acodec libfaac -ab 1"),
    (RATES + ',"videoFrameRate":-5,"picSize":"auto"', (1, 25, 30), 99,
     f"-s auto {SCALER} -vcodec mpeg4 -b 691k -r -5.000 -acodec libfaac -ab 76799"),
    (RATES, (1, 29.97, 59.94), 99, "-vcodec mpeg4 -b 691k -r 29.970 -acodec libfaac -ab 76799"),
    (RATES, (1, 25, 25.0000001), 99, PLAIN),
    (RATES, (1, 0, 25), 99, PLAIN),
    # Times are cut to whole milliseconds.
    (RATES + ',"clipLength":0.3', None, 99, f"{PLAIN} -ss 0.000000 -t 0.299000"),
    (RATES + ',"clipLength":12.3456', None, 99, f"{PLAIN} -ss 0.000000 -t 12.345000"),
    (RATES + ',"clipLength":1.5,"startOffset":-1', None, 99, f"{PLAIN} -t 1.500000"),
    (RATES + ',"startOffset":2.01', None, 99, f"{PLAIN} -ss 2.009000"),
    (RATES + ',"startOffset":0,"clipLength":2147484', None, 99, PLAIN),
    (RATES + ',"clipLength":2147483.5', None, 99, f"{PLAIN} -ss 0.000000 -t 2147483.500000"),
    # Members of a wrong type count as missing.
    (RATES + ',"maxOutputSize":"1000000","passes":"2","maxBitrate":true,"audioSamplingRate":8000.5,'
     '"videoFrameRate":"25","picSize":3,"clipLength":null,"startOffset":true,'
     '"videoCodec":"a\\u0000"',
     None, 99, PLAIN),
    (RATES + ',"maxOutputSize":1e12,"audioSamplingRate":2.205e4', None, 99,
     f"{PLAIN} -ar 22050 -ac 1"),
    ('"videoBitrate":-999,"audioBitrate":1.0', None, 99,
     "-vcodec mpeg4 -b 0k -acodec libfaac -ab 1"),
]  # fmt: skip

TWO_PASSES = (
    "ffmpeg -i INPUT -y -vcodec mpeg4 -b {0} -pass 1 -passlogfile OUT -an {2}-f {4} /dev/null ; "
    "ffmpeg -i INPUT -y -vcodec mpeg4 -b {0} -pass 2 -passlogfile OUT "
    "-acodec libfaac -ab {1} {3}{2}OUT"
)
# Output file, further members, answer.
NAMED: list[tuple[str, str, str]] = [
    ("DIR/out.mp4", RATES + ',"passes":2', TWO_PASSES.format("691k", 76799, "", "", "mp4")),
    ("DIR/out.avi", RATES + ',"passes":2.0,"videoCodec":"mpeg4","audioCodec":"aac"',
     TWO_PASSES.format("691k", 76799, "", "", "avi")),
    ("DIR/out.mp4", '"passes":2,"maxOutputSize":1000000,"clipLength":10',
     TWO_PASSES.format("656k", 72959, CLIP_10_S + " ", "-fs 949999 ", "mp4")),
    ("a.mp4", RATES, f"ffmpeg -i INPUT -y {PLAIN} OUT"),
    (".mp4", RATES, f"ffmpeg -i INPUT -y {PLAIN} OUT"),
    ("DIR/out.3gp", RATES, "ffmpeg -i INPUT -y -vcodec h263 -b 691k -acodec libfaac -ab 76799 OUT"),
    ("", RATES, "Missing output file"),
    ("mp4", RATES, "Output file name is not a media file"),
    ("DIR/out.MP4", RATES, "video encoder not specified"),
    ("DIR/out.MP4", RATES + ',"videoCodec":"mpeg4"', "audio encoder not specified"),
]  # fmt: skip
# Whole requests that already fail on their paths.
REFUSED = [
    ('{"inFile":null,"outFile":null}', IN_UNPARSED),
    ('{"inFile":3,"outFile":"DIR/out.mp4"}', IN_UNPARSED),
    ('{"inFile":"DIR/in\\u0000.mov","outFile":"DIR/out.mp4"}', IN_UNPARSED),
    ('{"outFile":3}', OUT_UNPARSED),
    ('{"outFile":"DIR/out\\u0000.mp4"}', OUT_UNPARSED),
    ('{"inFile":"","outFile":null}', OUT_UNPARSED),
    ('{"inFile":"DIR/missing/in.mov","outFile":""}', NOT_MEDIA),
    ('{"inFile":"","outFile":"DIR/out.mp4"}', NOT_MEDIA),
]


def fixedRows(directory: str) -> list[Row]:
    def answer(text: str, outFile: str) -> dict[str, object]:
        if not text.startswith("ffmpeg"):
            return {"errorText": text}
        passes = [part.split() for part in text.split(";")]
        return {"argv": [[outFile if item == "OUT" else item for item in part] for part in passes]}

    def request(outFile: str, members: str) -> str:
        return f'{{"outFile":"{outFile}"{members and ","}{members}}}'

    rows = []
    for members, probe, size, text in PLANNED:
        outFile = f"{directory}/out.mp4"
        command = f"ffmpeg -i INPUT -y {text} OUT" if text.startswith("-") else text
        rows.append(Row(request(outFile, members), probe, size, answer(command, outFile)))
    for name, members, text in NAMED:
        outFile = name.replace("DIR", directory)
        rows.append(Row(request(outFile, members), None, 99, answer(text, outFile)))
    for requestText, text in REFUSED:
        rows.append(Row(requestText.replace("DIR", directory), None, 99, answer(text, "")))
    return rows


# Random requests: most are sensible, and a few members of each second one are then spoilt.


def someBitrate(rng: random.Random) -> int:
    edges = (0, 0, 1, 3000, 4000, 4749, 4750, 9000, 12200, 32000, 256000, 300000, 8000000)
    if rng.random() < 0.5:
        return max(0, rng.choice(edges) + rng.randint(-1, 1))
    return int(10 ** rng.uniform(3, 7.2))


def someSeconds(rng: random.Random) -> float:
    return rng.choice([rng.randint(0, 60), round(rng.uniform(0, 600), rng.randint(1, 6))])


def someSize(rng: random.Random) -> int:
    return int(10 ** rng.uniform(5.5, 9.3))


SENSIBLE: dict[str, tuple[float, Callable[[random.Random], Member]]] = {
    "clipLength": (0.5, someSeconds),
    "startOffset": (0.4, someSeconds),
    "maxOutputSize": (0.6, someSize),
    "audioCodec": (0.6, lambda rng: rng.choice("aac aac aac amrnb amrnb amrnb mp3 copy".split())),
    "videoCodec": (0.6, lambda rng: rng.choice("h263 h263 h263 mpeg4 mpeg4 flv copy".split())),
    "videoBitrate": (0.45, someBitrate),
    "audioBitrate": (0.45, someBitrate),
    "audioSamplingRate": (0.3, lambda rng: rng.choice([0, 8000, 22050, 44100, 48000.0])),
    "maxBitrate": (0.3, someBitrate),
    "passes": (0.5, lambda rng: rng.choice([1, 2, 2, 2.0, 3, 0, -1])),
    "picSize": (0.4, lambda rng: rng.choice(["auto", "auto", "qcif", "320x240", ""])),
    "videoFrameRate": (0.3, lambda rng: rng.choice([0, 15, 29.97, 12.5, 1e-50, -1, 23.9765])),
}
NAMES = ("out.mp4", "out.mp4", "o 2.mp4", "ü.mp4", "%s.3gp", "out.3gp", "out.3gp", "out.3gp")
STRANGE_NAMES = ("out.avi", "out.MP4", "out")
EVIL_NAMES = ("", "", "a", "mp4", ".mp4", "é4", "x.3gp", "none", "/out", "nul\0.mp4")
# A tuple holds the exact spelling of a number.
EVIL: list[Member] = [
    INT32_MAX, INT32_MAX + 1, -INT32_MAX - 1, -INT32_MAX - 2, -1, 0, 1, 3, 2.0, 1.5, -0.5, 999.9996,
    2**32 + 2, 2**53 + 1, 10**30, 2147483.647, -2147483.648, 2147483.6484, 2147483647.5,
    1e300, 1e12, 1e39, 3.4e38, 5e-324, 0.0005, 0.0625, -1e-50, -999,
    ("3e0",), ("2E+0",), ("-0",), ("-0.0",), ("20e-1",), ("0.3e1",), ("1e-400",),
    ("2.147483647e9",),
    True, False, None, "", "3", "2", "auto", "copy", "aac", "amrnb", "h263", "a\0b", "cópia",
    [], [2], {}, {"value": 2},
]  # fmt: skip


def spoil(rng: random.Random, request: dict[str, Member], directory: str) -> None:
    for _ in range(rng.choice((1, 1, 2, 4))):
        key = rng.choice([*SENSIBLE, *SENSIBLE, "outFile", "outFile", "inFile", "MaxOutputSize"])
        if key == "outFile" and rng.random() < 0.7:
            request[key] = rng.choice(EVIL_NAMES)
        elif key == "inFile":
            paths = ("", directory, f"{directory}/missing/in.mov", "nul\0.mov")
            request[key] = rng.choice([*paths, None, True, 3, 1.5, [], {}])
        elif rng.random() < 0.1:
            request.pop(key, None)
        else:
            request[key] = rng.choice(EVIL)


def spell(value: Member) -> str:
    return str(value[0]) if isinstance(value, tuple) else json.dumps(value)


def someProbe(rng: random.Random) -> ProbeFacts | None:
    if rng.random() < 0.1:
        return None
    length = int(10 ** rng.uniform(2, 6))
    if rng.random() < 0.2:
        length = rng.choice([0, -1, 1, 999, -INT32_MAX - 1, INT32_MAX])
    rates = (0, 25, 25.0000001, 29.97, 59.94, 12.5, 23.976, 90000, -1)
    return length, rng.choice(rates), rng.choice(rates)


def wholeRateRow(rng: random.Random, directory: str) -> Row:
    """An input whose exact rate is a whole number, which each rounding on the way may miss."""
    steps = rng.randint(1, 4000)  # of 25 ms
    stepSize = rng.randint(400, 15000)
    target = int(320 * stepSize * 0.96)
    video = max(32000, target - rng.randint(4000, 256000))
    text = json.dumps({"outFile": f"{directory}/out.mp4", "videoBitrate": video})
    return Row(text, (25 * steps, 25, 25), stepSize * steps)


def randomRow(seed: int, number: int, directory: str) -> Row:
    rng = random.Random(f"{seed} {number}")
    if rng.random() < 0.05:
        return wholeRateRow(rng, directory)
    request: dict[str, Member] = {
        "outFile": f"{directory}/{rng.choice(STRANGE_NAMES if rng.random() < 0.15 else NAMES)}",
    }
    if rng.random() < 0.5:
        request[
            "inFile"
        ] = f"{directory}/{number}{rng.choice(('.mov', ' 2.mov', '%n.mov', 'ä.mov'))}"
    for key, (share, make) in SENSIBLE.items():
        if rng.random() < share:
            request[key] = make(rng)
    if rng.random() < 0.5:
        spoil(rng, request, directory)
    keys = rng.sample(list(request), len(request))
    text = "{" + ",".join(f"{json.dumps(key)}:{spell(request[key])}" for key in keys) + "}"
    size = someSize(rng)
    if rng.random() < 0.1:
        size = rng.choice([0, 1, 9, 10, 11, 12, 1000, INT32_MAX - 1, INT32_MAX])
    return Row(text, someProbe(rng), size)
