"""The palettes, and the drawings of everything in the skin's pictures. Imported by render and by tools/check-contrast.

Drawings are texts of SVG, sized at 1x. What is drawn in a palette takes it as `p`, a dictionary of roles."""
import os
import re

HERE = os.path.dirname(os.path.abspath(__file__))

# window, panel, field (also the row under the pointer) and selected are grounds; the others stand on them. "talk" is for marks and
# frames, "talktext" for words; "ink" stands on focus, good and danger. tools/check-contrast tests every pair.
PALETTES = {
    "Dusk": {
        "window": "#14171C", "panel": "#1C2027", "field": "#262B34", "selected": "#2F3B4D", "line": "#343B47",
        "text": "#E8ECF1", "secondary": "#A3ADBB", "focus": "#5AA9FF", "focusover": "#7DBBFF", "focuspress": "#4495EE",
        "talk": "#FFD54A", "talktext": "#FFD54A", "good": "#4CC38A", "goodover": "#6AD3A1", "goodpress": "#3BAE77",
        "warning": "#F2A33A", "danger": "#F4666B", "dangerover": "#F78589", "dangerpress": "#E75359", "ink": "#0E1116",
        "faint": "#5D6675", "edge": "#3F4754", "shade": "0.55",
    },
    "Paper": {
        "window": "#F7F8FA", "panel": "#FFFFFF", "field": "#EDF0F4", "selected": "#DCE8FA", "line": "#D5DAE2",
        "text": "#1B2026", "secondary": "#55606E", "focus": "#1B62D2", "focusover": "#1756BC", "focuspress": "#124AA5",
        "talk": "#B07F00", "talktext": "#7F5C00", "good": "#17784B", "goodover": "#12693F", "goodpress": "#0F5A36",
        "warning": "#8F5500", "danger": "#C9252B", "dangerover": "#AD1F25", "dangerpress": "#95191F", "ink": "#FFFFFF",
        "faint": "#8A93A1", "edge": "#C3CAD5", "shade": "0.32",
    },
}

GREY = {"ground1": "#4A4F57", "ground2": "#33373D", "bust": "#7C828B", "badge": "#9AA0A8", "badgeink": "#33373D"}
COLOUR = {"ground1": "#46566B", "ground2": "#2B3644", "bust": "#8FA3BC", "badge": "#5AA9FF", "badgeink": "#0E1116"}

CAMERA = '<path d="M-9 -6 h11 a3 3 0 0 1 3 3 v6 a3 3 0 0 1 -3 3 h-11 a3 3 0 0 1 -3 -3 v-6 a3 3 0 0 1 3 -3 z M7 -1 l6 -4 v10 l-6 -4 z" fill="{ink}"/>'
MICROPHONE = ('<rect x="-4" y="-11" width="8" height="13" rx="4" fill="{ink}"/>'
              '<path d="M-8 -2 a8 8 0 0 0 16 0 M0 6 v5" stroke="{ink}" stroke-width="2.2" fill="none" stroke-linecap="round"/>')

# On a grid of 20 by 20, with 2 to 3 free around; strokes of 1.75 with round ends and joins. `fill` draws in the stroke's colour.
ICONS = {
    "close": '<path d="M5 5 L15 15 M15 5 L5 15"/>',
    "menu": '<path d="M4 5.5 H16 M4 10 H16 M4 14.5 H16"/>',
    "add": '<path d="M10 4 V16 M4 10 H16"/>',
    "minimize": '<path d="M4 13 H16"/>',
    "maximize": '<rect x="4.5" y="4.5" width="11" height="11" rx="2"/>',
    "gear": '<path d="M3 6 H11 M15 6 H17 M3 14 H5 M9 14 H17"/><circle cx="13" cy="6" r="2.2"/><circle cx="7" cy="14" r="2.2"/>',
    "microphone": '<rect x="7.5" y="2.5" width="5" height="9.5" rx="2.5"/><path d="M4.5 9.5 a5.5 5.5 0 0 0 11 0 M10 15 V17.5"/>',
    "camera": '<rect x="2.5" y="5" width="10.5" height="10" rx="2.5"/><path d="M13 9 L17.5 6 V14 L13 11"/>',
    "phone": '<path d="M5.2 3 H7.6 L9 6.8 L7.2 8.2 C8.1 10.1 9.9 11.9 11.8 12.8 L13.2 11 L17 12.4 V14.8 C17 16 16 17 14.8 16.9 C8.7 16.4 3.6 11.3 3.1 5.2 C3 4 4 3 5.2 3 Z"/>',
    "hangup": '<path d="M2.5 12.4 C6.6 8.2 13.4 8.2 17.5 12.4 L15.8 14.4 L12.4 13.2 V10.9 C10.8 10.5 9.2 10.5 7.6 10.9 V13.2 L4.2 14.4 Z"/>',
    "chat": '<path d="M5 3.5 H15 A2.5 2.5 0 0 1 17.5 6 V11.5 A2.5 2.5 0 0 1 15 14 H9 L5.5 17 V14 H5 A2.5 2.5 0 0 1 2.5 11.5 V6 A2.5 2.5 0 0 1 5 3.5 Z"/>',
    "send": '<path d="M3.5 10 L16.5 3.8 L12.6 16.5 L9.4 11.2 Z M9.4 11.2 L16.5 3.8"/>',
    "file": '<path d="M5 2.5 H11.5 L15.5 6.5 V15.5 A2 2 0 0 1 13.5 17.5 H6.5 A2 2 0 0 1 4.5 15.5 V3 M11.5 2.5 V6.5 H15.5"/>',
    "clip": '<path d="M14.6 9.3 L9.6 14.3 A3 3 0 0 1 5.4 10 L11 4.4 A2 2 0 0 1 13.8 7.2 L8.4 12.6 A0.9 0.9 0 0 1 7.1 11.3 L11.8 6.6"/>',
    "screen": '<rect x="2.5" y="3.5" width="15" height="10" rx="2"/><path d="M7 17 H13 M10 13.5 V17"/>',
    "window": '<rect x="2.5" y="3.5" width="15" height="13" rx="2"/><path d="M2.5 7.5 H17.5"/>',
    "shield": '<path d="M10 2.8 L16 5 V9.6 C16 13.2 13.6 15.9 10 17.2 C6.4 15.9 4 13.2 4 9.6 V5 Z M7.4 9.9 L9.3 11.8 L12.8 8.2"/>',
    "key": '<rect x="2.5" y="5" width="15" height="10.5" rx="2.5"/><path d="M5.8 8.5 H6 M9.9 8.5 H10.1 M14 8.5 H14.2 M6.5 12 H13.5"/>',
    "network": '<circle cx="10" cy="10" r="7.2"/><path d="M2.8 10 H17.2 M10 2.8 C6 7 6 13 10 17.2 C14 13 14 7 10 2.8"/>',
    "palette": '<path d="M10 2.8 A7.2 7.2 0 1 0 10 17.2 C12 17.2 11.6 15.4 11.4 14.4 C11.2 13.2 12 12.4 13.2 12.4 H15 C16.4 12.4 17.2 11.4 17.2 10 A7.2 7.2 0 0 0 10 2.8 Z M6.6 9.9 V10.1 M8.4 6.6 V6.8 M12.2 6.4 V6.6"/>',
    "transfer": '<path d="M6.5 16.5 V4 M3 7.2 L6.5 3.5 L10 7.2 M13.5 3.5 V16 M10 12.8 L13.5 16.5 L17 12.8"/>',
    "bug": '<rect x="6" y="6.5" width="8" height="10" rx="4"/><path d="M7.5 6.5 A2.5 2.5 0 0 1 12.5 6.5 M6 9.5 L3 8 M14 9.5 L17 8 M6 13 L3.2 14.5 M14 13 L16.8 14.5 M10 10 V16"/>',
    "info": '<circle cx="10" cy="10" r="7.2"/><path d="M10 9.4 V13.6 M10 6.4 V6.6"/>',
    "reconnect": '<path d="M16.5 9 A6.7 6.7 0 0 0 4.6 6 L3.5 7.5 M3.5 4 V7.5 H7 M3.5 11 A6.7 6.7 0 0 0 15.4 14 L16.5 12.5 M16.5 16 V12.5 H13"/>',
    "user": '<circle cx="10" cy="6.8" r="3.6"/><path d="M3.5 17 C3.8 13.3 6.6 11.8 10 11.8 C13.4 11.8 16.2 13.3 16.5 17"/>',
    "check": '<path d="M4 10.5 L8.2 14.7 L16 6"/>',
    "stop": '<rect x="5" y="5" width="10" height="10" rx="2"/>',
    "zoomin": '<circle cx="8.8" cy="8.8" r="5.6"/><path d="M13 13 L17 17 M6.2 8.8 H11.4 M8.8 6.2 V11.4"/>',
    "zoomout": '<circle cx="8.8" cy="8.8" r="5.6"/><path d="M13 13 L17 17 M6.2 8.8 H11.4"/>',
    "history": '<circle cx="10" cy="10" r="7.2"/><path d="M10 6 V10 L12.8 11.8"/>',
    "speaker": '<path d="M3 7.8 H6 L10 4.2 V15.8 L6 12.2 H3 Z M12.8 7.6 a3.4 3.4 0 0 1 0 4.8 M15 5.2 a6.8 6.8 0 0 1 0 9.6"/>',
    "mute": '<rect x="7.5" y="2.5" width="5" height="9.5" rx="2.5"/><path d="M4.5 9.5 a5.5 5.5 0 0 0 11 0 M10 15 V17.5 M3.5 3 L16.5 17"/>',
}


def fill(text, values):
    return re.sub(r"@(\w+)@", lambda m: values.get(m.group(1), m.group(0)), text)


def drawing(name, values):
    """A drawing that stands beside this file."""
    with open(os.path.join(HERE, name + ".svg")) as source:
        return fill(source.read(), values)


def wrap(width, height, body):
    return f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}">{body}</svg>'


# ---- Sheets: four columns (plain, under the pointer, disabled, held down), two rows (released, latched).

COLUMNS = 4
CELL = 24  # Of what is drawn in nine pieces: the corners are kept, so that one cell serves all sizes.


def cells(width, height, draw):
    body = ""
    for row in range(2):
        for column in range(COLUMNS):
            body += f'<g transform="translate({column * width} {row * height})">{draw(column, row)}</g>'
    return wrap(width * COLUMNS, height * 2, body), width * COLUMNS, height * 2


def rounded(width, height, ground, edge, radius, stroke=1):
    half = stroke / 2
    return (f'<rect x="{half}" y="{half}" width="{width - stroke}" height="{height - stroke}" rx="{radius - half}" '
            f'fill="{ground}" stroke="{edge}" stroke-width="{stroke}"/>')


def button(p, kind):
    # (ground, edge) of the four columns.
    off = (p["panel"], p["line"])
    looks = {
        "primary": [(p["focus"],) * 2, (p["focusover"],) * 2, off, (p["focuspress"],) * 2],
        "good": [(p["good"],) * 2, (p["goodover"],) * 2, off, (p["goodpress"],) * 2],
        "danger": [(p["danger"],) * 2, (p["dangerover"],) * 2, off, (p["dangerpress"],) * 2],
        "plain": [(p["field"], p["edge"]), (p["selected"], p["edge"]), off, (p["panel"], p["focus"])],
        "tint": [(p["selected"], p["focus"]), (p["focus"],) * 2, off, (p["focuspress"],) * 2],
        "quiet": [("none", "none"), (p["field"],) * 2, ("none", "none"), (p["selected"],) * 2],
        "talk": [(p["field"], p["edge"]), (p["selected"], p["edge"]), off, (p["selected"], p["talk"])],
    }[kind]

    def draw(column, row):
        ground, edge = looks[column]
        if row and column != 2:
            ground, edge = p["selected"], p["focus"]
        return rounded(CELL, CELL, ground, edge, 8, 2 if kind == "talk" and column == 3 else 1)
    return cells(CELL, CELL, draw)


def icon(p, name, size):
    """A button of `size` with the icon in its middle."""
    inset = (size - 20) / 2

    def draw(column, row):
        ink = [p["secondary"], p["text"], p["faint"], p["text"]][column]
        ground = p["selected"] if column == 3 or row else p["field"] if column == 1 else "none"
        return f'<rect width="{size}" height="{size}" rx="8" fill="{ground}"/>' + glyph(name, p["focus"] if row and column != 2 else ink, inset)
    return cells(size, size, draw)


def glyph(name, ink, inset=0.0):
    return (f'<g transform="translate({inset} {inset})" stroke="{ink}" stroke-width="1.75" stroke-linecap="round" stroke-linejoin="round" '
            f'fill="none">{ICONS[name]}</g>')


def halo(p, role):
    """What goes on in a call: a frame around a picture of 160, with a glow of its colour outside of it."""
    glow = "".join(f'<rect x="{6 - 1.5 * i}" y="{6 - 1.5 * i}" width="{172 + 3 * i}" height="{172 + 3 * i}" rx="{15 + 1.5 * i}" stroke-width="1.5" opacity="{0.3 - 0.09 * i:.2f}"/>'
                   for i in range(1, 4))
    return wrap(184, 184, f'<g fill="none" stroke="{p[role]}"><rect x="7" y="7" width="170" height="170" rx="14" stroke-width="4"/>{glow}</g>')


def dot(p, state):
    return wrap(12, 12, {
        "offline": f'<circle cx="6" cy="6" r="4" fill="none" stroke="{p["secondary"]}" stroke-width="1.75"/>',
        "connecting": f'<circle cx="6" cy="6" r="4" fill="none" stroke="{p["warning"]}" stroke-width="1.75"/><path d="M6 2 A4 4 0 0 1 6 10 Z" fill="{p["warning"]}"/>',
        "online": f'<circle cx="6" cy="6" r="5" fill="{p["good"]}"/>',
        "error": f'<circle cx="6" cy="6" r="6" fill="{p["danger"]}"/><path d="M6 3 v3.4 M6 8.9 v.01" stroke="{p["window"]}" stroke-width="1.75" stroke-linecap="round"/>'}[state]), 12, 12


# ---- The options.

PAGES = ("microphone", "camera", "shield", "key", "speaker", "transfer", "network", "palette", "bug", "gear", "info")


def pages(p):
    """The icons of the pages side by side, and below them the same for the page that shows."""
    body = "".join(f'<g transform="translate({column * 20} {row * 20})">{glyph(name, ink)}</g>'
                   for row, ink in enumerate((p["secondary"], p["focus"])) for column, name in enumerate(PAGES))
    return wrap(20 * len(PAGES), 40, body), 20 * len(PAGES), 40


def radio(p):
    """Not chosen, chosen."""
    return wrap(40, 20, f'<circle cx="10" cy="10" r="6.5" fill="none" stroke="{p["secondary"]}" stroke-width="1.75"/>'
                        f'<circle cx="30" cy="10" r="6.5" fill="none" stroke="{p["focus"]}" stroke-width="1.75"/><circle cx="30" cy="10" r="3.5" fill="{p["focus"]}"/>'), 40, 20


def check(p):
    """Not chosen, chosen."""
    return wrap(40, 20, f'<rect x="3.5" y="3.5" width="13" height="13" rx="3.5" fill="none" stroke="{p["secondary"]}" stroke-width="1.75"/>'
                        f'<rect x="23" y="3" width="14" height="14" rx="4" fill="{p["focus"]}"/>'
                        f'<path d="M26.4 10.2 L29 12.8 L33.6 7.6" fill="none" stroke="{p["window"]}" stroke-width="1.75" stroke-linecap="round" stroke-linejoin="round"/>'), 40, 20


def track(p):
    """A line with a mark at a quarter of it, where nothing is changed; the handle's middle runs from 9 to 9 before the end."""
    mark = 9 + (320 - 18) / 4
    return wrap(320, 32, f'<rect x="6" y="14" width="308" height="4" rx="2" fill="{p["edge"]}"/>'
                         f'<rect x="{mark - 1}" y="5" width="2" height="22" rx="1" fill="{p["secondary"]}"/>'), 320, 32


def thumb(p):
    return wrap(18, 32, f'<circle cx="9" cy="16" r="8" fill="{p["focus"]}" stroke="{p["window"]}" stroke-width="2"/>'), 18, 32


def meter(p, filled):
    """Segments; the taller ones begin the good part and the one that is too loud."""
    body, good, loud = "", 31, 54
    for i in range(63):
        colour = p["line"] if not filled else p["secondary"] if i < good else p["good"] if i < loud else p["warning"]
        tall = i in (good, loud)
        body += f'<rect x="{i * 8}" y="{0 if tall else 3}" width="6" height="{16 if tall else 10}" rx="2" fill="{colour}"/>'
    return wrap(504, 16, body), 504, 16


def palettes(p):
    """A window in small for each palette, and the same below for the one that is chosen."""
    body = ""
    for column, c in enumerate(PALETTES.values()):
        lines = "".join(f'<circle cx="13" cy="{y}" r="4.5" fill="{mark}"/><path d="M22 {y - 2} h{width}" stroke="{c["text"]}"/>'
                        f'<path d="M22 {y + 2.5} h{width - 10}" stroke="{c["secondary"]}"/>' for y, mark, width in ((14, c["good"], 24), (26, c["talk"], 18)))
        for row in range(2):
            body += (f'<g transform="translate({column * 72} {row * 48})" stroke-width="1.75" stroke-linecap="round"><rect x="0.5" y="0.5" width="71" height="47" rx="6" '
                     f'fill="{c["window"]}" stroke="{p["edge"]}" stroke-width="1"/>{lines}<rect x="8" y="35" width="56" height="7" rx="3" fill="{c["focus"]}"/></g>')
    return wrap(72 * len(PALETTES), 96, body), 72 * len(PALETTES), 96


# ---- The tray, the profile pictures.

def tray(state):
    """Public is an open ring, private a ring with a stroke through it; offline hollow, connecting half filled, online filled.
    The colours are of the middle, to be seen on dark panels and on light ones."""
    private, level = state >= 3, state % 3
    colour = ["#8C96A4", "#D98A1F", "#2FA56C"][level]
    inner = ["", '<path d="M16 8 A8 8 0 0 1 16 24 Z" fill="{c}"/>', '<circle cx="16" cy="16" r="8" fill="{c}"/>'][level]
    ring = '<circle cx="16" cy="16" r="12.6" fill="none" stroke="{c}" stroke-width="2.8"/>'
    body = f"<g{' mask=' + chr(34) + 'url(#m)' + chr(34) if private else ''}>{ring}{inner}</g>"
    if private:
        # A gap on both sides keeps the stroke apart from the filling, on any panel.
        body = ('<defs><mask id="m"><rect width="32" height="32" fill="#fff"/><path d="M4 28 L28 4" stroke="#000" stroke-width="7.4" stroke-linecap="round"/></mask></defs>'
                + body + '<path d="M4.5 27.5 L27.5 4.5" stroke="{c}" stroke-width="2.8" stroke-linecap="round"/>')
    return wrap(32, 32, body.replace("{c}", colour))


def profile(badges, grey):
    """The picture of somebody who shows none; the badges tell what his device can send."""
    colours = GREY if grey else COLOUR
    marks, x = "", 135
    for badge in reversed(badges):
        shape = (MICROPHONE if badge == "a" else CAMERA).replace("{ink}", colours["badgeink"])
        marks += (f'<g transform="translate({x} 135)"><circle r="19" fill="{colours["badge"]}" stroke="{colours["ground2"]}" stroke-width="4"/>'
                  f'<g transform="scale(1.12)">{shape}</g></g>')
        x -= 43
    return drawing("profile", {**colours, "badges": marks})


# ---- What the template calls images/NAME.png: its drawing, and its width and height at 1x.

def picture(p, name):
    sizes = {"frame": (96, 112), "mark": (24, 24), "marklarge": (64, 64)}
    if name in sizes:
        return drawing("mark" if name.startswith("mark") else name, p), *sizes[name]
    options = {"pages": pages, "radio": radio, "check": check, "track": track, "thumb": thumb, "palettes": palettes, "meterback": lambda p: meter(p, False), "meterfill": lambda p: meter(p, True)}
    if name in options:
        return options[name](p)
    kind, _, rest = name.partition("_")
    if kind == "icon":  # icon_NAME, icon_NAME_SIZE
        rest, _, size = rest.partition("_")
        return icon(p, rest, int(size or 28))
    if kind == "glyph":  # glyph_NAME_ROLE: the bare icon in that colour
        rest, _, role = rest.partition("_")
        return wrap(20, 20, glyph(rest, p[role or "secondary"])), 20, 20
    if kind == "dot":
        return dot(p, rest)
    if kind in ("field", "panel"):
        ground, edge, radius = (p["field"], p["edge"], 8) if kind == "field" else (p["panel"], p["line"], 10)
        return wrap(CELL, CELL, rounded(CELL, CELL, ground, edge, radius)), CELL, CELL
    if kind == "hint":  # The ground of hints.
        return wrap(CELL, CELL, rounded(CELL, CELL, p["field"], p["edge"], 6)), CELL, CELL
    if kind == "halo":
        return halo(p, rest), 184, 184
    if kind == "ring":
        return wrap(32, 32, f'<rect x="1" y="1" width="30" height="30" rx="11" fill="none" stroke="{p["focus"]}" stroke-width="2"/>'), 32, 32
    if kind == "round":  # The corners around a picture in a window: what covers them.
        return wrap(24, 24, f'<path fill="{p[rest or "window"]}" fill-rule="evenodd" d="M0 0 H24 V24 H0 Z M8 0 A8 8 0 0 0 0 8 V16 A8 8 0 0 0 8 24 H16 A8 8 0 0 0 24 16 V8 A8 8 0 0 0 16 0 Z"/>'), 24, 24
    return button(p, kind)
