"""A laboratory of networks on one machine: an internet, public hosts on it, routers with a kind of NAT, clients behind them.

    with Lab() as lab:
        stranger = lab.public_host("5.5.5.10", "5.5.5.11")
        router = lab.router("5.5.5.1", "10.0.0.0/24", Nat.PORT_RESTRICTED)
        ann = lab.client(router)                        # 10.0.0.2, and so on
        program = ann.start("some-program", "argument") # ends with the lab
        socket = stranger.udp("5.5.5.10", 4000)         # a socket of this process, on that host

Each host is a network namespace without a name, held by a file of this process alone: when the process ends, however it ends, the
kernel takes the namespaces, their links and rules away, and every program that was started in them is killed. So runs never meet, and
nothing is left behind. `host.enter_command` tells how to look inside one while it lives. Needs root.
"""
import contextlib
import ctypes
import enum
import fcntl
import ipaddress
import json
import os
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

CLONE_NEWNET = 0x40000000
PR_SET_PDEATHSIG = 1
TUNSETIFF, IFF_TAP, IFF_NO_PI = 0x400454CA, 0x2, 0x1000
DELAY = os.path.join(os.path.dirname(os.path.abspath(__file__)), "delay.py")
PRIORITY = os.getpriority(os.PRIO_PROCESS, 0)  # Of the programs, whatever the run gives itself.
libc = ctypes.CDLL(None, use_errno=True)

INTERNET = ipaddress.ip_network("5.5.5.0/24")  # Ordinary public addresses: a gateway refuses to serve reserved ones.
NOWHERE = "5.5.5.254"  # Takes what is for any other network, and forwards nothing: private addresses lead nowhere, and nobody says so.
WAN = "fzrp"  # A router's side towards the internet, and its bridge of the inside.
LAN = "lan0"


class Nat(enum.Enum):
    """What a router does to its clients' traffic. The kinds that forward from outside are for one client, the first."""

    PORT_RESTRICTED = "port-restricted"
    UNRESTRICTED = "unrestricted"
    ADDRESS_RESTRICTED = "address-restricted"
    SYMMETRIC = "symmetric"
    UDP_BLOCKED = "udp-blocked"


# Without it an unsolicited packet leaves a record of its connection that breaks the port-preserving mapping, and every NAT would look
# symmetric.
NO_STRANGERS = 'chain inp {{ type filter hook input priority filter; iifname "{wan}" ct state new drop; }}\n'
SAME_PORT = 'chain post {{ type nat hook postrouting priority srcnat; oifname "{wan}" snat to {outside}; }}\n'
RULES = {
    Nat.PORT_RESTRICTED: SAME_PORT,
    Nat.UNRESTRICTED: SAME_PORT
    + 'chain pre {{ type nat hook prerouting priority dstnat; iifname "{wan}" udp dport 1024-65535 dnat to {inside}; }}\n',
    Nat.ADDRESS_RESTRICTED: SAME_PORT
    + """set seen {{ type ipv4_addr; flags dynamic,timeout; timeout 2m; }}
chain filt {{ type filter hook forward priority filter; oifname "{wan}" meta l4proto udp update @seen {{ ip daddr timeout 2m }}; }}
chain pre {{ type nat hook prerouting priority dstnat; iifname "{wan}" ip saddr @seen udp dport 1024-65535 dnat to {inside}; }}
""",
    Nat.SYMMETRIC: """chain post {{ type nat hook postrouting priority srcnat;
oifname "{wan}" meta l4proto udp snat to {outside}:30000-60000 fully-random;
oifname "{wan}" snat to {outside}; }}
""",
    Nat.UDP_BLOCKED: SAME_PORT + "chain filt {{ type filter hook forward priority filter; meta l4proto udp drop; }}\n",
}


FLOWS = """table bridge flows {
set seen { type ipv4_addr . ipv4_addr; flags dynamic; size 65535; counter; }
chain passed { type filter hook forward priority 0; ip protocol udp update @seen { ip saddr . ip daddr }; }
}
"""


class Forbidden(Exception):
    """The machine lets no networks be made; the text says which step was refused."""


def need_root():
    """Begins the calling script again with sudo if need be; ends it with a clear text where no networks can be made."""
    if os.geteuid() != 0:
        if not shutil.which("sudo"):
            sys.exit("FAILED: networks can be made by root only, and there is no sudo")
        os.execvp("sudo", ["sudo", "-n", sys.executable, *sys.argv])
    try:
        with Lab() as lab:
            lab.router("5.5.5.1", "10.0.0.0/24", Nat.PORT_RESTRICTED)
    except Forbidden as error:
        sys.exit(f"FAILED: {error}")


def _in_thread_of_its_own(work):
    """A thread's change of namespace ends with it."""
    result = []

    def body():
        try:
            result.append((work(), None))
        except BaseException as error:
            result.append((None, error))

    thread = threading.Thread(target=body)
    thread.start()
    thread.join()
    value, error = result[0]
    if error:
        raise error
    return value


def _call(function, *arguments):
    if function(*arguments) != 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))


def _open_tap(name):
    """A new device of this thread's network whose frames are read and written at the descriptor."""
    tap = os.open("/dev/net/tun", os.O_RDWR | os.O_CLOEXEC)
    fcntl.ioctl(tap, TUNSETIFF, struct.pack("16sH22x", name.encode(), IFF_TAP | IFF_NO_PI))
    return tap


class Host:
    """One network namespace and what runs in it."""

    def __init__(self, lab, name):
        self.lab, self.name = lab, name
        self.addresses = []

        def make():
            _call(libc.unshare, CLONE_NEWNET)
            return os.open(f"/proc/self/task/{threading.get_native_id()}/ns/net", os.O_RDONLY | os.O_CLOEXEC)

        try:
            self.handle = _in_thread_of_its_own(make)
        except OSError as error:
            raise Forbidden(f"no network namespace can be made here: {error}") from error
        self.path = f"/proc/{os.getpid()}/fd/{self.handle}"
        try:
            self.set("net/ipv6/conf/all/disable_ipv6", 1)
        except FileNotFoundError:
            pass  # A kernel without it.
        self.run("ip", "link", "set", "lo", "up")

    @property
    def enter_command(self):
        return f"nsenter --net={self.path}"

    def inside(self, work):
        """The result of a function that runs with this host's network."""

        def body():
            _call(libc.setns, self.handle, CLONE_NEWNET)
            return work()

        return _in_thread_of_its_own(body)

    def set(self, name, value):
        def write():
            with open("/proc/sys/" + name, "w") as out:
                out.write(str(value))

        try:
            self.inside(write)
        except PermissionError as error:
            raise Forbidden(f"{name} can't be set in a network namespace: {error}") from error

    def _enter(self, ending=signal.SIGKILL):
        """In a child, before its program starts: this network, and death with the parent."""
        libc.setns(self.handle, CLONE_NEWNET)
        libc.prctl(PR_SET_PDEATHSIG, ending)
        os.setpriority(os.PRIO_PROCESS, 0, PRIORITY)

    def run(self, *command, text=None, **more):
        """Runs a program to its end; its output. A failure is an error with all that it said. `more` goes to subprocess.run."""
        done = subprocess.run(command, input=text, capture_output=True, text=True, preexec_fn=self._enter, **more)
        if done.returncode != 0:
            what = Forbidden if "not permitted" in done.stderr else RuntimeError
            raise what(f"{' '.join(command)} on {self.name}: {done.stderr.strip()}")
        return done.stdout

    def start(self, *command, ending=signal.SIGKILL, **more):
        """Starts a program that runs beside; it ends with the lab at the latest, by SIGTERM if it has to tidy up behind itself. `more`
        goes to subprocess.Popen."""
        process = subprocess.Popen(command, preexec_fn=lambda: self._enter(ending), **more)
        process.ending = ending
        self.lab.processes.append(process)
        return process

    def wait_for_udp(self, port, seconds=10):
        """Until a program of this host listens on the port."""

        def listens():
            with open("/proc/thread-self/net/udp") as table:
                return any(line.split()[1].endswith(f":{port:04X}") for line in table.readlines()[1:])

        deadline = time.monotonic() + seconds
        while not self.inside(listens):
            if time.monotonic() > deadline:
                raise RuntimeError(f"nobody listens on UDP port {port} of {self.name}")
            time.sleep(0.02)

    def udp(self, address, port=0):
        return self.socket(socket.SOCK_DGRAM, address, port)

    def socket(self, kind, address, port=0):
        """A socket of this process, bound on this host."""

        def make():
            made = socket.socket(socket.AF_INET, kind)
            made.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            made.bind((address, port))
            return made

        made = self.inside(make)
        self.lab.closers.callback(made.close)
        return made

    def _address(self, link, *addresses):
        for address in addresses:
            self.run("ip", "address", "add", address, "dev", link)
        self.run("ip", "link", "set", link, "up")

    def _bridge(self, link):
        self.run("ip", "link", "add", link, "type", "bridge", "mcast_snooping", "0")
        try:
            self.set("net/bridge/bridge-nf-call-iptables", 0)  # What stays within a network is not the router's.
        except FileNotFoundError:
            pass  # A kernel that never asks.

    def count_flows(self):
        """From now on `flows` tells what this host's bridge has passed on."""
        self.run("nft", "-f", "-", text=FLOWS)

    def flows(self):
        """Datagrams that crossed this host's bridge, by source and target address."""
        told = json.loads(self.run("nft", "-j", "list", "set", "bridge", "flows", "seen"))
        elements = next(entry["set"] for entry in told["nftables"] if "set" in entry).get("elem", [])
        return {tuple(entry["elem"]["val"]["concat"]): entry["elem"]["counter"]["packets"] for entry in elements}

    def _plug(self, other, link, cable=None):
        """A cable from the bridge of `other` to a new link of this host, or one of a kind of its own; to the internet it is as long as the
        lab says."""
        other.plugs += 1
        port = f"port{other.plugs}"
        if cable or other is self.lab.internet and self.lab.delay:
            ends = other.inside(lambda: _open_tap(port)), self.inside(lambda: _open_tap(link))
            if cable:
                cable.lay(self, ends)
            else:
                self.start(sys.executable, DELAY, *map(str, ends), str(self.lab.delay), pass_fds=ends)
            for end in ends:
                os.close(end)
        else:
            other.run("ip", "link", "add", port, "type", "veth", "peer", "name", link, "netns", self.path)
        other.run("ip", "link", "set", port, "master", other.bridge, "up")


class Switch(Host):
    """The internet: one network that every public side is plugged into."""

    bridge, plugs = "internet", 0

    def __init__(self, lab):
        super().__init__(lab, "internet")
        self._bridge(self.bridge)
        self._address(self.bridge, f"{NOWHERE}/{INTERNET.prefixlen}")


class Router(Host):
    """Between the internet, or the network of another router, and a network of its own, with a kind of NAT. `outside` is its address
    there, `inside_address` the one that its clients know."""

    bridge, plugs = LAN, 0

    def __init__(self, lab, outside, network, nat, behind=None):
        super().__init__(lab, f"router {outside}")
        self.outside, self.nat = outside, nat
        self.network = ipaddress.ip_network(network)
        inside = self.network.hosts()
        self.inside_address = str(next(inside))
        self.free_addresses = [str(next(inside)) for _ in range(8)]
        self._plug(behind or lab.internet, WAN)
        self._address(WAN, f"{outside}/{(behind.network if behind else INTERNET).prefixlen}")
        self.run("ip", "route", "add", "default", "via", behind.inside_address if behind else NOWHERE)
        self._bridge(LAN)
        self._address(LAN, f"{self.inside_address}/{self.network.prefixlen}")
        self.set("net/ipv4/ip_forward", 1)
        values = {"wan": WAN, "outside": outside, "inside": self.free_addresses[0]}
        self.run("nft", "-f", "-", text="table ip nat {\n" + (NO_STRANGERS + RULES[nat]).format(**values) + "}\n")

    def start_gateway(self, low=1024, high=65535):
        """A real UPnP gateway that lets its clients map the ports `low` to `high`. Its log is the file "log" of its folder."""
        folder = os.path.join(self.lab.folder, f"gateway-{self.outside}")
        os.makedirs(folder, exist_ok=True)
        self.run("nft", "-f", "-", text=GATEWAY_RULES)
        path = os.path.join(folder, "miniupnpd.conf")
        with open(path, "w") as out:
            out.write(GATEWAY_SETTINGS.format(low=low, high=high, network=self.network))
        with open(os.path.join(folder, "log"), "wb") as log:
            program = shutil.which("miniupnpd", path=os.environ.get("PATH", "") + ":/usr/sbin:/sbin")
            if not program:
                raise RuntimeError("miniupnpd is not installed (tools/install-deps test)")
            gateway = self.start(program, "-d", "-f", path, "-P", os.path.join(folder, "pid"), stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.wait_for_udp(1900)
        return gateway


GATEWAY_RULES = """table inet upnp {
chain forwards { type filter hook forward priority filter; policy accept; jump upnp_forward; }
chain pre { type nat hook prerouting priority dstnat; policy accept; jump upnp_pre; }
chain post { type nat hook postrouting priority srcnat; policy accept; jump upnp_post; }
chain upnp_forward { }
chain upnp_pre { }
chain upnp_post { }
}
"""
GATEWAY_SETTINGS = f"""ext_ifname={WAN}
listening_ip={LAN}
port=0
enable_upnp=yes
enable_natpmp=yes
secure_mode=yes
system_uptime=yes
notify_interval=60
uuid=7f2ac0de-5d1c-4b0f-9a53-c1d2e3f40516
upnp_table_name=upnp
upnp_nat_table_name=upnp
upnp_forward_chain=upnp_forward
upnp_nat_chain=upnp_pre
upnp_nat_postrouting_chain=upnp_post
allow {{low}}-{{high}} {{network}} 1024-65535
deny 0-65535 0.0.0.0/0 0-65535
"""


class Lab:
    """All hosts of one run. Ends everything on leaving the block, on SIGTERM, SIGINT and SIGHUP, and by the kernel on SIGKILL."""

    def __init__(self, delay=0.0):
        """`delay` is the time in seconds that everything takes between a public side and the internet: twice that from end to end."""
        self.delay = delay
        if os.geteuid() != 0:
            raise Forbidden("networks can be made by root only")
        self.processes = []
        self.closers = contextlib.ExitStack()

    def __enter__(self):
        self.folder = self.closers.enter_context(tempfile.TemporaryDirectory(prefix="netlab."))
        for number in (signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, lambda *_: sys.exit(143))
        try:
            self.internet = self._own(Switch(self))
        except BaseException:
            self.closers.close()
            raise
        return self

    def __exit__(self, *_):
        for process in reversed(self.processes):
            process.send_signal(process.ending)
        for process in reversed(self.processes):
            try:
                process.wait(5)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        self.closers.close()

    def _own(self, host):
        self.closers.callback(os.close, host.handle)
        return host

    def public_host(self, *addresses, cable=None):
        """A host on the internet with one or more addresses, behind a cable of its own kind if there is one."""
        host = self._own(Host(self, f"host {addresses[0]}"))
        host._plug(self.internet, "eth0", cable)
        host._address("eth0", *(f"{address}/{INTERNET.prefixlen}" for address in addresses))
        host.run("ip", "route", "add", "default", "via", NOWHERE)
        host.addresses = list(addresses)
        return host

    def router(self, outside, network, nat, behind=None):
        """A router on the internet, or behind another router: `outside` is then a free address of that one's network."""
        return self._own(Router(self, outside, network, nat, behind))

    def client(self, router):
        """A host of the router's inside with the next free address."""
        address = router.free_addresses.pop(0)
        host = self._own(Host(self, f"client {address} of {router.name}"))
        host._plug(router, "eth0")
        host._address("eth0", f"{address}/{router.network.prefixlen}")
        host.run("ip", "route", "add", "default", "via", router.inside_address)
        host.addresses = [address]
        return host
