#!/usr/bin/env python3
"""Shows the cover of the current track in a terminal of 24-bit colours. Needs python3-pil.

    cover_to_terminal.py [PLAYER [COLUMNS]]

Two rows of the picture become one row of text: the upper half block has the colour of the upper
row, and its background that of the lower row.
"""

import sys

import vantro
from PIL import Image


def draw(picture: Image.Image, columns: int) -> str:
    rows = max(2, picture.height * columns // picture.width // 2 * 2)
    small = picture.convert("RGB").resize((columns, rows))
    lines = []
    for upper in range(0, rows, 2):
        line = ""
        for column in range(columns):
            above, below = (small.getpixel((column, upper + row)) for row in (0, 1))
            line += "\033[38;2;{};{};{};48;2;{};{};{}m\u2580".format(*above, *below)
        lines.append(line + "\033[0m\n")
    return "".join(lines)


def main(name: str = "main", columns: str = "40") -> None:
    with vantro.Player(name, timeout=5) as player:
        known = player.track().metadata
    if known is None or known.cover is None:
        sys.exit("cover_to_terminal: no track, or one without a cover")
    with Image.open(known.cover) as picture:
        sys.stdout.write(draw(picture, int(columns)))


try:
    main(*sys.argv[1:])
except (vantro.VantroError, OSError, ValueError) as error:
    sys.exit(f"cover_to_terminal: {error}")
