"""Ten kinds of clip, made with ffmpeg's own sources: each a way in which movies differ."""
import os
import subprocess

# Something like speech in a room: two voices that stop and go, and a little noise.
SPEECH = (
    "aevalsrc='0.3*sin(2*PI*(140+30*sin(2*PI*0.7*t))*t)*max(0,sin(2*PI*2.3*t))"
    "|0.25*sin(2*PI*(143+25*sin(2*PI*0.6*t))*t)*max(0,sin(2*PI*2.3*t))':s=44100,"
    "highpass=f=90[dry];anoisesrc=c=pink:a=0.02:r=44100:seed=5,pan=stereo|c0=c0|c1=c0[air];"
    "[dry][air]amix=inputs=2:normalize=0,"
)


def picture(size, x, y, scale, rate):
    """One picture full of detail, held."""
    return (
        f"mandelbrot=s={size}:start_x={x}:start_y={y}:start_scale={scale}:end_scale={scale}"
        f":maxiter=400:r={rate},trim=end_frame=1,loop=-1:1:0,setpts=N/({rate}*TB),fps={rate},"
        "format=yuv420p"
    )


def slides():
    shown = [
        picture("640x480", -0.745, 0.11, 0.02, 25),
        "smptehdbars=s=640x480:r=25,format=yuv420p",
        picture("640x480", -1.25, 0.02, 0.05, 25),
        "gradients=s=640x480:r=25:seed=3:speed=0.00001,format=yuv420p",
        picture("640x480", 0.28, 0.01, 0.01, 25),
    ]
    parts = [
        f"{source},trim=duration=1.8,setpts=PTS-STARTPTS,setsar=1[s{i}]"
        for i, source in enumerate(shown)
    ]
    labels = "".join(f"[s{i}]" for i in range(len(shown)))
    return ";".join([*parts, labels]) + f"concat=n={len(shown)},"


def fade():
    one = picture("640x480", -0.16, 1.035, 0.03, 30)
    two = picture("640x480", -0.745, 0.11, 0.01, 30)
    return (
        f"{one},trim=duration=5,setpts=PTS-STARTPTS,settb=1/30,setsar=1[a];"
        f"{two},trim=duration=6,setpts=PTS-STARTPTS,settb=1/30,setsar=1[b];"
        "[a][b]xfade=transition=fade:duration=2:offset=3,fade=in:d=1.5,fade=out:st=7:d=1.5,"
    )


def screen_text():
    lines = [
        "$ make -j2 all",
        "cc -O2 -Wall -c request.c -o request.o",
        "cc -O2 -Wall -c planner.c -o planner.o",
        "ar rcs libplan.a planner.o request.o",
        "12 tests passed, 0 failed (0.84 s)",
        "$ ls -l --time-style=long-iso",
        "-rw-r--r-- 1 me me 18432 2024-05-01 12:08 plan.txt",
    ]
    text = "\n".join(f"{i:3d}  {lines[i % len(lines)]}" for i in range(90))
    text = text.replace(":", "\\:").replace(",", "\\,")
    # A page at a time stands, as somebody reads it; then it jumps on.
    return (
        "color=white:s=10x20:r=30[cursor];color=0x101820:s=960x540:r=30,"
        "drawtext=font=DejaVu Sans Mono:fontsize=18:fontcolor=0xd0e8d0:"
        f"line_spacing=4:x=20:y='20-132*floor(t/1.5)':text='{text}',"
        "format=yuv420p[page];[page][cursor]overlay=x='20+mod(floor(t*8)*10,400)':y=510,"
    )


def oval(name, width, height, colour):
    """A shape of that colour on nothing, drawn once and held."""
    edge = f"hypot((X-{width}/2)/({width}/2),(Y-{height}/2)/({height}/2))"
    return (
        f"color={colour}:s={width}x{height}:r=25,format=yuva420p,"
        f"geq=lum='lum(X,Y)':cb='cb(X,Y)':cr='cr(X,Y)':a='255*lt({edge},0.98)',"
        f"trim=end_frame=1,loop=-1:1:0,setpts=N/(25*TB)[{name}]"
    )


def layered(ground, layers):
    """Each (shape, x, y, shown while) laid over what is below it."""
    graph = [ground + "[p0]", *(oval(*shape) for shape, *_ in layers)]
    for number, (shape, x, y, shown) in enumerate(layers):
        place = f"overlay=x='{x}':y='{y}'" + (f":enable='{shown}'" if shown else "")
        end = f"[p{number + 1}]" if number + 1 < len(layers) else ""
        graph.append(f"[p{number}][{shape[0]}]{place}{end}")
    return ";".join(graph) + ","


def talking_head():
    # A wall that stands, shoulders, a head that nods, a mouth, the faint noise of a sensor.
    wall = picture("640x480", -1.25, 0.02, 0.3, 25) + ",gblur=sigma=6,eq=contrast=0.5"
    x = "3*sin(2*PI*t/3.1)+2*sin(2*PI*t*0.9)"
    y = "4*sin(2*PI*t/2.3)"
    awake = "gt(mod(t,2.7),0.15)"
    layers = [
        (("body", 420, 300, "0x304878"), f"110+({x})/3", "330", ""),
        (("head", 190, 250, "0xd8a888"), f"225+{x}", f"110+{y}", ""),
        (("hair", 200, 120, "0x402818"), f"220+{x}", f"90+{y}", ""),
        (("left", 26, 16, "0x181818"), f"270+{x}", f"215+{y}", awake),
        (("right", 26, 16, "0x181818"), f"345+{x}", f"215+{y}", awake),
        (
            ("mouth", 64, 30, "0x802020"),
            f"288+{x}",
            f"290+{y}+6*sin(2*PI*t*2.3)",
            "gt(sin(2*PI*2.3*t),-0.4)",
        ),
    ]
    return layered(wall, layers) + "noise=alls=4:allf=t:all_seed=3,"


def animation():
    ground = (
        "color=0x80c8f0:s=854x480:r=25,drawbox=y=360:h=120:w=iw:color=0x50a040:t=fill,"
        "drawbox=x=90:y=250:w=140:h=110:color=0xc06030:t=fill,"
        "drawbox=x=600:y=220:w=100:h=140:color=0xa09080:t=fill"
    )
    layers = [
        (("sun", 90, 90, "yellow"), "640-6*t", "40", ""),
        (("cloud", 120, 120, "white"), "mod(40*t,854)", "60", ""),
        (("ball", 70, 70, "red"), "mod(170*t,854)-35", "300-abs(200*sin(2*PI*t*0.8))", ""),
    ]
    return layered(ground, layers)


def pan():
    held = picture("1600x480", -0.7453, 0.1127, 0.015, 30)
    return held + ",crop=640:480:x='min(960,100*t)':y=0,"


def motion():
    zoom = "start_scale=2:end_scale=0.0005:end_pts=225"
    return f"mandelbrot=s=640x480:r=25:start_x=-0.7436:start_y=0.1318:{zoom},rotate='t*0.9',"


def grain():
    held = picture("900x720", -0.7453, 0.1127, 0.06, 30)
    drift = "crop=720:540:x='10*t':y='60+20*sin(t)'"
    return f"{held},gblur=sigma=1.2,{drift},noise=alls=22:allf=t:all_seed=2,"


KINDS = {
    "still": lambda: picture("640x480", -0.745, 0.11, 0.02, 25) + ",",
    "slides": slides,
    "pan": pan,
    "noise": lambda: "color=gray:s=480x360:r=25,noise=alls=90:allf=t:all_seed=1,",
    "motion": motion,
    "fade": fade,
    "text": screen_text,
    "head": talking_head,
    "grain": grain,
    "animation": animation,
}
SECONDS = 9


def make(kind, path):
    """Makes the clip of that kind: H.264 and AAC near the quality of a camera's own file."""
    graph = KINDS[kind]() + "setsar=1,format=yuv420p[v];" + SPEECH + "aresample=44100[a]"
    part = path + ".part.mp4"
    command = ["ffmpeg", *"-v error -nostdin -y -filter_complex".split(), graph]
    command += f"-map [v] -map [a] -t {SECONDS} -c:v libx264 -preset veryfast -crf 16".split()
    command += "-maxrate 8M -bufsize 8M -c:a aac -b:a 96k".split()
    subprocess.run([*command, part], check=True)
    os.replace(part, path)
