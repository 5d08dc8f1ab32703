"""A window of buttons in a client's own copy of the skin, each with a command: tests and pictures reach by it what the shipped skin
offers elsewhere, later, or only to a server. What the commands do is the real thing."""
import glob
import os
import re
import time
from xml.sax.saxutils import quoteattr

import desk

EDGE = 28
TITLE = "Stage"


class Stage:
    """`commands`: names and command strings. `keys`: with a field that takes a key combination into Working_Hotkey, left of the buttons.
    `watch`: values that the commands read."""

    def __init__(self, folder, commands, left=0, top=0, keys=False, watch=""):
        self.names, self.keys = list(commands), keys
        self.first = 8 if keys else 0
        cells = "".join(f'<Cell fixedwidth="{EDGE}" fixedheight="{EDGE}" align="stretch" valign="stretch"><Button '
                        f'src="images/icon_close.png(0,0,28,28)" command={quoteattr(command)}/></Cell>' for command in commands.values())
        if keys:
            cells = (f'<Cell fixedwidth="{EDGE * self.first}" align="stretch" valign="stretch"><Hotkey var="Working_Hotkey" inner="2" outer="1" '
                     f'refresh="true" font="12,,#E8ECF1FF,Inter" framecolor="#262B34FF" focuscolor="#5AA9FFFF"/></Cell>{cells}')
        window = (f'<Window id="stage" title="{TITLE}" x="{left}" y="{top}" width="{EDGE * (self.first + len(commands))}" height="{EDGE}" '
                  f'hidden="false" topmost="false"><Gradient from="#202020FF" to="#202020FF"/><Text text="" font="12,,#E8ECF1FF,Inter" watch="{watch}"/>'
                  f'<Row>{cells}</Row></Window>')
        for path in glob.glob(os.path.join(folder, "template*.xml")):
            with open(path, encoding="utf-8") as source:
                text = source.read()
            with open(path, "w", encoding="utf-8") as out:
                out.write(re.sub(r"</skin>\s*$", window + "</skin>\n", text))

    def press(self, client, name):
        client.window(TITLE).click(EDGE * (self.first + self.names.index(name)) + EDGE // 2, EDGE // 2)

    def take_keys(self, client, *keys):
        """Types a combination into the field, first key first."""
        window = client.window(TITLE)
        window.click(EDGE, EDGE // 2)
        window.raise_up()
        desk.run("xdotool", *(word for key in keys for word in ("keydown", key, "sleep", "0.15")))
        desk.run("xdotool", *(word for key in reversed(keys) for word in ("keyup", key, "sleep", "0.05")))
        time.sleep(0.2)
