"""Made photos of several kinds, always the same ones, by ImageMagick."""
from .tools import run

WIDTH, HEIGHT = 2592, 1944
SIZE = f"{WIDTH}x{HEIGHT}"
SMALL = f"{WIDTH // 8}x{HEIGHT // 8}"

# What a camera adds to everything.
GRAIN = ("-attenuate", "0.15", "+noise", "Gaussian")

KINDS = {
    # A sky: nothing but slow changes, where banding shows.
    "gradients": ("-size", SIZE, "gradient:skyblue-navy", "(", "-size", SIZE,
                  "radial-gradient:orange-black", ")", "-compose", "screen", "-composite"),
    # A page: hard black edges of all directions on white.
    "text": ("-size", SIZE, "xc:white", "-fill", "black", "-pointsize", "64", "-annotate",
             "+40+80", "\n".join("The quick brown fox jumps over the lazy dog %4d times, and "
                                 "then 0O1lI|! once more." % i for i in range(30))),
    # Leaves and grass: detail of every scale down to the pixel.
    "foliage": ("-size", SIZE, "-seed", "11", "plasma:darkgreen-yellowgreen", "(", "-size", SIZE,
                "-seed", "12", "xc:gray50", "+noise", "Random", "-blur", "0x1.2", "-auto-level",
                ")", "-compose", "overlay", "-composite", "(", "-size", SMALL, "-seed", "13",
                "xc:gray50", "+noise", "Random", "-auto-level", "-resize", f"{SIZE}!", ")",
                "-compose", "soft-light", "-composite", *GRAIN),
    # Faces: smooth skin, soft shadows, a few sharp features.
    "people": ("-size", SIZE, "xc:slategray", "-fill", "bisque3", "-draw",
               "ellipse 800,900 420,560 0,360 ellipse 1850,1000 400,540 0,360", "-blur", "0x14",
               "-fill", "gray10", "-draw", "ellipse 650,800 46,30 0,360 ellipse 950,800 46,30 0,360 "
               "ellipse 1700,900 44,28 0,360 ellipse 2000,900 44,28 0,360", "-fill", "indianred",
               "-draw", "ellipse 800,1180 150,34 0,360 ellipse 1850,1270 140,32 0,360", "-blur",
               "0x2", *GRAIN),
    # A facade: regular lines near and beyond what the small picture can show.
    "lines": ("-size", "9x9", "xc:wheat", "-fill", "sienna", "-draw", "rectangle 0,0 5,1",
              "-fill", "black", "-draw", "point 7,5", "-write", "mpr:tile", "+delete", "-size",
              SIZE, "tile:mpr:tile", "-distort", "SRT", "3"),
    # Night: black with small bright lamps and much noise.
    "night": ("-size", SIZE, "-seed", "17", "xc:black", "+noise", "Random", "-channel", "R",
              "-separate", "+channel", "-threshold", "99.97%", "-blur", "0x2", "-auto-level", "+level-colors",
              "gray8,lightyellow", "-attenuate", "0.5", "+noise", "Poisson"),
}


def make(work):
    """The photos by their kinds, encoded as cameras do."""
    photos = {}
    for kind, words in KINDS.items():
        photos[kind] = work / f"{kind}.jpg"
        run("convert", "-seed", "5", *words, "-type", "TrueColor", "-sampling-factor", "4:2:0",
            "-quality", "92", photos[kind])
    return photos
