"""What a movie request plans to, computed a second time and independently of the daemon.

plan() takes the request's members, the probe's facts and the input's size, and answers either the
error text or the argument vectors of the passes in the order in which they run. The arithmetic is
that of extended_arithmetic: rounded to a 64-bit mantissa or to single precision where the daemon
rounds, and exact everywhere else.
"""

from dataclasses import dataclass
from fractions import Fraction

from extended_arithmetic import (
    INT32_MAX,
    INT32_MIN,
    divide,
    multiply,
    quotientTowardZero,
    roundToFloat32,
    truncateToInt32,
    wrapToInt32,
)

MIN_BITRATE_VIDEO = 32000
MAX_BITRATE_VIDEO = 8000000
MIN_BITRATE_AUDIO = 4000
MAX_BITRATE_AUDIO = 256000
H263_THRESHOLD = 300000
AMRNB_MODES = (12200, 10200, 7950, 7400, 6700, 5900, 5150, 4750)
DEFAULT_VIDEO_ENCODERS = {b".3gp": "h263", b".mp4": "mpeg4"}
DEFAULT_AUDIO_ENCODERS = {b".3gp": "aac", b".mp4": "aac"}
PROGRAM_AUDIO_NAMES = {"aac": "libfaac", "amrnb": "libopencore_amrnb"}

IN_FILE_UNPARSED = "Could not parse param inFile"
OUT_FILE_UNPARSED = "Could not parse param outFile"
NOT_MEDIA_INPUT = "Input file is not a media file"
NO_OUTPUT = "Missing output file"
NOT_MEDIA_OUTPUT = "Output file name is not a media file"
NO_AUDIO_BITRATE = "when copy video and transcode audio,  bitrateAudio must be explicitly specified"
NO_VIDEO_BITRATE = "when copy audio and transcode video,  bitrateVideo must be explicitly specified"
NO_VIDEO_ENCODER = "video encoder not specified"
NO_AUDIO_ENCODER = "audio encoder not specified"
NO_LENGTH = "getOrignalLengthInMs() failed\n"
TARGET_TOO_SMALL = "can't reach targetBitrate, maxOutputSize too small?\n"
ERROR_TEXTS = (
    IN_FILE_UNPARSED,
    OUT_FILE_UNPARSED,
    NOT_MEDIA_INPUT,
    NO_OUTPUT,
    NOT_MEDIA_OUTPUT,
    NO_AUDIO_BITRATE,
    NO_VIDEO_BITRATE,
    NO_VIDEO_ENCODER,
    NO_AUDIO_ENCODER,
    NO_LENGTH,
    TARGET_TOO_SMALL,
)


class Refused(Exception):
    """The request fails; the only argument is the error text."""


@dataclass
class Probe:
    """What the probe found out about the input. The rates are single precision."""

    clipLengthMs: int
    frameRate: float
    tbr: float


@dataclass
class Parameters:
    """The parameters of one transcode, from the request's own to the planned ones."""

    inFile: str = ""
    outFile: str = ""
    picSize: str = ""
    videoFrameRate: float = 0.0
    startOffsetMs: int = 0
    clipLengthMs: int = 0
    maxOutputSize: int = 0
    maxBitrate: int = 0
    videoEncoder: str = ""
    audioEncoder: str = ""
    bitrateVideo: int = 0
    bitrateAudio: int = 0
    audioSamplingRate: int = 0
    passes: int = 1
    outputExtension: bytes = b""


# Members of the request: None for one that is missing or does not convert.


def asDouble(value: object) -> float | None:
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        return None
    return float(value)


def asInt32(value: object) -> int | None:
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        return None
    return int(value) if value == int(value) and INT32_MIN <= value <= INT32_MAX else None


def asText(value: object) -> str | None:
    return value if isinstance(value, str) and "\0" not in value else None


def parse(request: object) -> Parameters:
    members = request if isinstance(request, dict) else {}
    parameters = Parameters()
    for member, errorText in (("inFile", IN_FILE_UNPARSED), ("outFile", OUT_FILE_UNPARSED)):
        text = asText(members.get(member))
        if text is None:
            raise Refused(errorText)
        setattr(parameters, member, text)

    for key, convert, member in (
        ("maxOutputSize", asInt32, "maxOutputSize"),
        ("audioCodec", asText, "audioEncoder"),
        ("videoCodec", asText, "videoEncoder"),
        ("videoBitrate", asInt32, "bitrateVideo"),
        ("audioBitrate", asInt32, "bitrateAudio"),
        ("audioSamplingRate", asInt32, "audioSamplingRate"),
        ("maxBitrate", asInt32, "maxBitrate"),
        ("picSize", asText, "picSize"),
    ):
        converted = convert(members.get(key))
        if converted is not None:
            setattr(parameters, member, converted)

    for key, member in (("clipLength", "clipLengthMs"), ("startOffset", "startOffsetMs")):
        seconds = asDouble(members.get(key))
        if seconds is not None:
            setattr(parameters, member, truncateToInt32(multiply(Fraction(seconds), 1000.0)))

    rate = asDouble(members.get("videoFrameRate"))
    if rate is not None:
        parameters.videoFrameRate = roundToFloat32(rate)
    if asInt32(members.get("passes")) in (1, 2):
        parameters.passes = int(members["passes"])
    return parameters


# Validation and planning.


def prepare(p: Parameters, inputFileSize: int | None) -> None:
    """Checks the request and fills in the codecs. inputFileSize is None when stat fails."""
    if inputFileSize is None or inputFileSize <= 10:
        raise Refused(NOT_MEDIA_INPUT)
    output = p.outFile.encode()
    if not output:
        raise Refused(NO_OUTPUT)
    if len(output) < 4:
        raise Refused(NOT_MEDIA_OUTPUT)
    p.outputExtension = output[-4:]

    if p.videoEncoder == "copy":
        p.bitrateVideo = p.maxOutputSize = p.maxBitrate = 0
        if p.audioEncoder != "copy" and p.bitrateAudio == 0:
            raise Refused(NO_AUDIO_BITRATE)
    if p.audioEncoder == "copy":
        p.bitrateAudio = p.maxOutputSize = p.maxBitrate = 0
        if p.videoEncoder != "copy" and p.bitrateVideo == 0:
            raise Refused(NO_VIDEO_BITRATE)

    p.videoEncoder = p.videoEncoder or DEFAULT_VIDEO_ENCODERS.get(p.outputExtension, "")
    if not p.videoEncoder:
        raise Refused(NO_VIDEO_ENCODER)
    p.audioEncoder = p.audioEncoder or DEFAULT_AUDIO_ENCODERS.get(p.outputExtension, "")
    if not p.audioEncoder:
        raise Refused(NO_AUDIO_ENCODER)
    p.maxOutputSize = truncateToInt32(multiply(Fraction(p.maxOutputSize), 0.95))


def clamp(bitrate: int, lowest: int, highest: int) -> int:
    if bitrate > highest:
        return highest
    return lowest if bitrate < lowest else bitrate


def clampVideo(bitrate: int) -> int:
    return clamp(bitrate, MIN_BITRATE_VIDEO, MAX_BITRATE_VIDEO)


def clampAudio(bitrate: int) -> int:
    return clamp(bitrate, MIN_BITRATE_AUDIO, MAX_BITRATE_AUDIO)


def targetBitrate(p: Parameters, originalLengthMs: int, inputFileSize: int) -> int:
    size = p.maxOutputSize or inputFileSize
    durationMs = originalLengthMs
    if p.maxOutputSize != 0 and p.clipLengthMs >= 1:
        durationMs = p.clipLengthMs
    if durationMs < 1:
        raise Refused(NO_LENGTH)
    seconds = divide(Fraction(durationMs), Fraction(1000))
    total = truncateToInt32(multiply(divide(Fraction(size), seconds), 8.0))
    if p.maxBitrate != 0 and total > p.maxBitrate:
        total = p.maxBitrate
    return truncateToInt32(multiply(Fraction(total), 0.96))


def splitBitrate(p: Parameters, target: int) -> None:
    if p.bitrateVideo != 0:
        p.bitrateVideo = clampVideo(p.bitrateVideo)
        p.bitrateAudio = clampAudio(wrapToInt32(target - p.bitrateVideo))
    else:
        p.bitrateAudio = clampAudio(p.bitrateAudio or quotientTowardZero(target, 10))
        p.bitrateVideo = clampVideo(wrapToInt32(target - p.bitrateAudio))
    if target < p.bitrateVideo + p.bitrateAudio:
        raise Refused(TARGET_TOO_SMALL)


def calculateBitrates(p: Parameters, probe: Probe | None, inputFileSize: int) -> None:
    copies = "copy" in (p.audioEncoder, p.videoEncoder)
    if not copies and not (p.bitrateAudio != 0 and p.bitrateVideo != 0):
        splitBitrate(p, targetBitrate(p, probe.clipLengthMs if probe else 0, inputFileSize))

    if p.audioEncoder == "amrnb":
        mode = next((m for m in AMRNB_MODES if m <= p.bitrateAudio), AMRNB_MODES[-1])
        p.bitrateVideo = wrapToInt32(p.bitrateVideo + p.bitrateAudio - mode)
        p.bitrateAudio = mode
    if p.videoEncoder == "h263":
        isSlow = p.bitrateVideo < H263_THRESHOLD
        if p.videoFrameRate <= 0:
            p.videoFrameRate = 15.0 if isSlow else 0.0
        if p.picSize == "auto":
            p.picSize = "qcif" if isSlow else "cif"


# The command line.


def outputFrameRate(p: Parameters, probe: Probe | None) -> float:
    if p.videoFrameRate == 0 and probe and probe.tbr > probe.frameRate:
        return probe.frameRate
    return p.videoFrameRate


def audioArguments(p: Parameters) -> list[str]:
    arguments = ["-acodec", PROGRAM_AUDIO_NAMES.get(p.audioEncoder, p.audioEncoder)]
    if p.bitrateAudio != 0:
        arguments += ["-ab", f"{p.bitrateAudio}"]
    if p.audioEncoder == "amrnb":
        arguments += ["-ar", "8000", "-ac", "1"]
    elif p.audioSamplingRate != 0:
        arguments += ["-ar", f"{p.audioSamplingRate}", "-ac", "1"]
    return arguments


def passArguments(p: Parameters, probe: Probe | None, number: int) -> list[str]:
    """The argument vector of one pass: 2 is the analysis before 1, which writes the output."""
    writesOutput = number == 1
    arguments = ["ffmpeg", "-i", p.inFile, "-y"]
    if p.picSize:
        arguments += ["-s", p.picSize, "-sws_flags", "fast_bilinear"]
    arguments += ["-vcodec", p.videoEncoder]
    if p.bitrateVideo != 0:
        arguments += ["-b", f"{quotientTowardZero(p.bitrateVideo, 1000)}k"]
    rate = outputFrameRate(p, probe)
    if rate != 0:
        arguments += ["-r", "%2.3f" % rate]
    if p.passes == 2:
        arguments += ["-pass", "2" if writesOutput else "1", "-passlogfile", p.outFile]
    arguments += audioArguments(p) if writesOutput else ["-an"]
    if writesOutput and p.maxOutputSize > 0:
        arguments += ["-fs", f"{p.maxOutputSize}"]
    if p.startOffsetMs > 0 or (p.startOffsetMs == 0 and p.clipLengthMs > 0):
        arguments += ["-ss", "%f" % (p.startOffsetMs / 1000.0)]
    if p.clipLengthMs > 0:
        arguments += ["-t", "%f" % (p.clipLengthMs / 1000.0)]
    if writesOutput:
        return arguments + [p.outFile]
    return arguments + ["-f", p.outputExtension[1:].decode(errors="replace"), "/dev/null"]


def plan(request: object, probe: Probe | None, inputFileSize: int | None) -> dict[str, object]:
    """{"errorText": text} or {"argv": [vector of the first pass, …]}."""
    try:
        parameters = parse(request)
        prepare(parameters, inputFileSize)
        calculateBitrates(parameters, probe, inputFileSize or 0)
    except Refused as refused:
        return {"errorText": refused.args[0]}
    numbers = range(parameters.passes, 0, -1)
    return {"argv": [passArguments(parameters, probe, number) for number in numbers]}
