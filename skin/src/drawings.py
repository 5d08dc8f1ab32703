"""The palettes, and the drawings of everything in the skin's pictures. Imported by render and by tools/check-contrast.

Drawings are texts of SVG, sized at 1x. What is drawn in a palette takes it as `p`, a dictionary of roles."""
import os
import re

HERE = os.path.dirname(os.path.abspath(__file__))

# window, panel, field (also the row under the pointer) and selected are grounds; the others stand on them. "talk" is for marks and
# frames, "talktext" for words; "ink" stands on focus and good. tools/check-contrast tests every pair.
PALETTES = {
    "Dusk": {
        "window": "#14171C", "panel": "#1C2027", "field": "#262B34", "selected": "#2F3B4D", "line": "#343B47",
        "text": "#E8ECF1", "secondary": "#A3ADBB", "focus": "#5AA9FF", "focusover": "#7DBBFF", "focuspress": "#4495EE",
        "talk": "#FFD54A", "talktext": "#FFD54A", "good": "#4CC38A", "goodover": "#6AD3A1", "goodpress": "#3BAE77",
        "warning": "#F2A33A", "danger": "#F4666B", "dangerover": "#F78589", "ink": "#0E1116",
    },
    "Paper": {
        "window": "#F7F8FA", "panel": "#FFFFFF", "field": "#EDF0F4", "selected": "#DCE8FA", "line": "#D5DAE2",
        "text": "#1B2026", "secondary": "#55606E", "focus": "#1B62D2", "focusover": "#1756BC", "focuspress": "#124AA5",
        "talk": "#B07F00", "talktext": "#7F5C00", "good": "#17784B", "goodover": "#12693F", "goodpress": "#0F5A36",
        "warning": "#8F5500", "danger": "#C9252B", "dangerover": "#AD1F25", "ink": "#FFFFFF",
    },
}

GREY = {"ground1": "#4A4F57", "ground2": "#33373D", "bust": "#7C828B", "badge": "#9AA0A8", "badgeink": "#33373D"}
COLOUR = {"ground1": "#46566B", "ground2": "#2B3644", "bust": "#8FA3BC", "badge": "#5AA9FF", "badgeink": "#0E1116"}

CAMERA = '<path d="M-9 -6 h11 a3 3 0 0 1 3 3 v6 a3 3 0 0 1 -3 3 h-11 a3 3 0 0 1 -3 -3 v-6 a3 3 0 0 1 3 -3 z M7 -1 l6 -4 v10 l-6 -4 z" fill="{ink}"/>'
MICROPHONE = ('<rect x="-4" y="-11" width="8" height="13" rx="4" fill="{ink}"/>'
              '<path d="M-8 -2 a8 8 0 0 0 16 0 M0 6 v5" stroke="{ink}" stroke-width="2.2" fill="none" stroke-linecap="round"/>')

# On a field of 28 by 28 with the drawing on the 20 in its middle; strokes of 1.75 with round ends.
ICONS = {
    "close": '<path d="M9 9 L19 19 M19 9 L9 19"/>',
    "menu": '<path d="M8 9.5 H20 M8 14 H20 M8 18.5 H20"/>',
    "add": '<path d="M14 8 V20 M8 14 H20"/>',
    "gear": '<path d="M7 10 H15 M19 10 H21 M7 18 H9 M13 18 H21"/><circle cx="17" cy="10" r="2.2"/><circle cx="11" cy="18" r="2.2"/>',
    "minimize": '<path d="M8 17 H20"/>',
}


def fill(text, values):
    return re.sub(r"@(\w+)@", lambda m: values.get(m.group(1), m.group(0)), text)


def drawing(name, values):
    """A drawing that stands beside this file."""
    with open(os.path.join(HERE, name + ".svg")) as source:
        return fill(source.read(), values)


def wrap(width, height, body):
    return f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}">{body}</svg>'


def cells(width, height, draw):
    """A sprite sheet: three columns (normal, under the pointer, disabled), two rows (released, latched)."""
    body = ""
    for row in range(2):
        for column in range(3):
            body += f'<g transform="translate({column * width} {row * height})">{draw(column, row)}</g>'
    return wrap(width * 3, height * 2, body)


def button(p, kind, width, height):
    ground, edge = {
        "primary": ((p["focus"], p["focusover"], p["field"]), "none"),
        "good": ((p["good"], p["goodover"], p["field"]), "none"),
        "danger": (("none", p["field"], "none"), p["danger"]),
        "plain": ((p["field"], p["selected"], p["panel"]), p["line"]),
        "talk": ((p["field"], p["selected"], p["field"]), p["line"]),
        "accept": ((p["selected"], p["focus"], p["field"]), p["focus"]),
        "quiet": (("none", p["field"], "none"), "none"),
        "nav": (("none", p["field"], "none"), "none"),
    }[kind]

    def draw(column, row):
        return (f'<rect x="0.5" y="0.5" width="{width - 1}" height="{height - 1}" rx="8" '
                f'fill="{p["selected"] if row else ground[column]}" stroke="{edge}"/>')
    return cells(width, height, draw)


def icon(p, name):
    def draw(column, row):
        ink = [p["secondary"], p["text"], p["line"]][column]
        ground = p["field"] if column == 1 or row else "none"
        return (f'<rect width="28" height="28" rx="8" fill="{ground}"/>'
                f'<g stroke="{ink}" stroke-width="1.75" stroke-linecap="round" stroke-linejoin="round" fill="none">{ICONS[name]}</g>')
    return cells(28, 28, draw)


def box(p, ground, width, height, radius):
    return wrap(width, height, f'<rect x="0.5" y="0.5" width="{width - 1}" height="{height - 1}" rx="{radius}" fill="{p[ground]}" stroke="{p["line"]}"/>')


def dot(p, state):
    return wrap(12, 12, {
        "offline": f'<circle cx="6" cy="6" r="4" fill="none" stroke="{p["secondary"]}" stroke-width="1.75"/>',
        "connecting": f'<circle cx="6" cy="6" r="4" fill="none" stroke="{p["warning"]}" stroke-width="1.75"/><path d="M6 2 A4 4 0 0 1 6 10 Z" fill="{p["warning"]}"/>',
        "online": f'<circle cx="6" cy="6" r="5" fill="{p["good"]}"/>'}[state])


def tray(state):
    """Public is an open ring, private a ring with a stroke through it; offline hollow, connecting half filled, online filled."""
    p = PALETTES["Dusk"]
    private, level = state >= 3, state % 3
    colour = [p["secondary"], p["warning"], p["good"]][level]
    inner = ["", '<path d="M16 8.5 A7.5 7.5 0 0 1 16 23.5 Z" fill="{c}"/>', '<circle cx="16" cy="16" r="7.5" fill="{c}"/>'][level]
    ring = '<circle cx="16" cy="16" r="12.5" fill="none" stroke="{c}" stroke-width="3"/>'
    stroke = ('<path d="M5 27 L27 5" stroke="#14171C" stroke-width="6.5" stroke-linecap="round"/>'
              '<path d="M5 27 L27 5" stroke="{c}" stroke-width="3" stroke-linecap="round"/>') if private else ""
    return wrap(32, 32, (ring + inner + stroke).replace("{c}", colour))


def profile(badges, grey):
    """The picture of somebody who shows none; the badges tell what his device can send."""
    colours = GREY if grey else COLOUR
    marks, x = "", 138
    for badge in reversed(badges):
        shape = (MICROPHONE if badge == "a" else CAMERA).replace("{ink}", colours["badgeink"])
        marks += f'<g transform="translate({x} 138)"><circle r="17" fill="{colours["badge"]}" stroke="{colours["ground2"]}" stroke-width="3"/>{shape}</g>'
        x -= 38
    return drawing("profile", {**colours, "badges": marks})


def picture(p, name):
    """What the template calls images/NAME.png: its drawing, and its width and height at 1x."""
    sizes = {"frame": (96, 112), "mark": (24, 24), "marklarge": (64, 64)}
    if name in sizes:
        return drawing("mark" if name.startswith("mark") else name, p), *sizes[name]
    kind, _, rest = name.partition("_")
    if kind == "icon":
        return icon(p, rest), 84, 56
    if kind == "dot":
        return dot(p, rest), 12, 12
    width, _, height = rest.partition("x")
    width, height = int(width), int(height or 32)
    if kind in ("field", "panel"):
        return box(p, kind, width, height, 8 if kind == "field" else 10), width, height
    return button(p, kind, width, height), width * 3, height * 2
