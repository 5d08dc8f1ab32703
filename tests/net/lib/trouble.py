"""What goes wrong in networks: routers that forget or change their rules, addresses that change, cables that are pulled out."""
import netlab


def forget(router):
    """The router loses every mapping and connection that it knows, as by a restart; what passes next is mapped anew."""
    router.run("conntrack", "-F")


def _load(router, change=lambda rules: rules):
    values = {"wan": netlab.WAN, "outside": router.outside, "inside": str(next(router.network.hosts()) + 1)}
    rules = change((netlab.NO_STRANGERS + netlab.RULES[router.nat]).format(**values))
    router.run("nft", "-f", "-", text="delete table ip nat\ntable ip nat {\n" + rules + "}\n")
    forget(router)


def change_ports(router):
    """The router forgets all, and from now on gives its client's port another one outside, the same for every destination."""
    blocks = ", ".join(f"{256 * i}-{256 * i + 255} : {40000 + i}" for i in range(256))
    mapped = f'oifname "{netlab.WAN}" meta l4proto udp snat to {router.outside} : udp sport map {{ {blocks} }}\n'
    _load(router, lambda rules: rules.replace(f'oifname "{netlab.WAN}" snat', f'{mapped}oifname "{netlab.WAN}" snat'))


def move_router(router, outside):
    """The provider gives the router another address."""
    length = netlab.INTERNET.prefixlen
    router.run("ip", "address", "delete", f"{router.outside}/{length}", "dev", netlab.WAN)
    router.run("ip", "address", "add", f"{outside}/{length}", "dev", netlab.WAN)
    router.outside = outside
    _load(router)


def move_client(host, router):
    """The router gives its client another address."""
    length = router.network.prefixlen
    old, new = host.addresses[0], router.free_addresses.pop(0)
    host.run("ip", "address", "delete", f"{old}/{length}", "dev", "eth0")
    host.run("ip", "address", "add", f"{new}/{length}", "dev", "eth0")
    host.run("ip", "route", "add", "default", "via", router.inside_address)
    host.addresses = [new]


def pull_cable(router, number=1):
    """The cable from the router to its client of this number has no carrier until it is plugged in again."""
    router.run("ip", "link", "set", f"port{number}", "down")


def plug_cable(router, number=1):
    router.run("ip", "link", "set", f"port{number}", "up")


def cut_line(router):
    """What the router should forward is lost without a word, as where a line further on is cut."""
    router.run("nft", "-f", "-", text="table ip cut {\nchain forwards { type filter hook forward priority -1; drop; }\n}\n")


def mend_line(router):
    router.run("nft", "delete", "table", "ip", "cut")


def take_address(host):
    """The client has no address, as while it changes from one radio cell to the next; `give_address` ends that."""
    host.run("ip", "address", "flush", "dev", "eth0")


def give_address(host, router):
    host.run("ip", "address", "add", f"{host.addresses[0]}/{router.network.prefixlen}", "dev", "eth0")
    host.run("ip", "route", "add", "default", "via", router.inside_address)
