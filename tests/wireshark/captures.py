"""Makes captures of TCP connections and reads them with tshark and the dissector of the source tree."""

import os
import pathlib
import re
import shutil
import struct
import subprocess
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
DISSECTOR = ROOT / "tools" / "wireshark" / "csclient.lua"
PAGE = ROOT / "docs" / "manual" / "wire.md"
PORT = 55580
# Wireshark 4.0 and 4.4 have no dissector for this port. They try the lower port first.
CLIENT_PORT = 52345
# Root runs tshark as this user, because tshark loads no Lua script for root.
UNPRIVILEGED_ID = 65534
EXPERTS = ("frame_length", "header_length", "body_length", "too_short", "not_a_message", "unknown_code", "direction", "records",
           "trailing", "unknown_id", "refused", "not_shown", "not_captured")
# Every field of the dissector but the expert information.
FIELDS = ["cs." + name for name in (
    "frame.length frame.header_length frame.kind frame.subkind frame.filler frame.end_mark body skipped protocol subprotocol unread "
    "body_length code from message simulator_id simulator_rest mode zero count rate rate.again rate.output integer id name "
    "value.float value.int trailing version.text version.protocol version.status request response time").split()]
EXPERT_FIELDS = ["cs.expert." + name for name in EXPERTS]
COLUMNS = ["_ws.col.Protocol", "_ws.col.Info"]
# The last one contains an error of Lua.
ALL_FIELDS = FIELDS + EXPERT_FIELDS + COLUMNS + ["_ws.expert.message"]


# Frames and messages.

def words(*numbers):
    return b"".join(struct.pack(">I", number & 0xFFFFFFFF) for number in numbers)


def single(number):
    return struct.pack(">f", number)


def text(value, size=32):
    return value.encode().ljust(size, b"\0")


def frame(body, length=None, header_length=32, kind=0):
    """Returns a frame. `length` and `header_length` are written as given, also when they are wrong."""
    length = 32 + len(body) if length is None else length
    end = b"\xfe" if kind else b"\xff"
    return words(length, header_length, kind, 2 if kind else 0) + b"\xff" * 15 + end + body


def message(code, rest, body_length=None):
    """Returns the frame of a message: `rest` follows the sub-header."""
    body_length = 12 + len(rest) if body_length is None else body_length
    return frame(b"\x04\x02\x7f\xff" + words(body_length) + b"\x00\x7f" + struct.pack(">H", code) + rest)


def conversation():
    """Returns the frames of the manual's conversation, as (heading, bytes)."""
    page = PAGE.read_text()
    frames = []
    for section in re.split(r"\n### ", page[page.index("\n## A conversation"):])[1:]:
        block = re.search(r"```text\n(.*?)```", section, re.S).group(1)
        frames.append((section.splitlines()[0], bytes.fromhex(re.sub(r"\|.*", "", block))))
    return frames


# Captures.

def capture_of_the_manual(tshark, port=PORT):
    """Makes a capture of the manual's conversation with text2pcap. Returns its path."""
    lines = []
    for heading, data in conversation():
        lines.append("I" if "Host" in heading else "O")
        lines += [f"{offset:06x} {data[offset:offset + 16].hex(' ')}" for offset in range(0, len(data), 16)]
        lines.append("")
    source, target = tshark.path("conversation.txt"), tshark.path(f"conversation-{port}.pcap")
    source.write_text("\n".join(lines))
    # The first port is that of the sender of inbound packets: the host.
    subprocess.run(["text2pcap", "-q", "-D", "-T", f"{port},{CLIENT_PORT}", source, target], check=True, timeout=20,
                   capture_output=True)
    target.chmod(0o644)
    return target


class Capture:
    """Packets of TCP connections, written as a capture of IPv4 packets without a link layer."""

    def __init__(self):
        self.packets = []
        self.clock = 0.0
        self.clients = 0

    def connection(self, port=PORT, client_port=CLIENT_PORT):
        """Returns a connection of a new client, which has an address of its own."""
        self.clients += 1
        return Connection(self, self.clients, (client_port, port))

    def add(self, packet, at=None, snaplen=None):
        self.clock = self.clock + 0.001 if at is None else at
        self.packets.append((self.clock, packet, snaplen))

    def write(self, path):
        with open(path, "wb") as file:
            file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, 101))
            for clock, packet, snaplen in self.packets:
                kept = packet[:snaplen]
                microseconds = round(clock * 1e6)
                file.write(struct.pack("<IIII", microseconds // 1000000, microseconds % 1000000, len(kept), len(packet)) + kept)


class Connection:
    """A connection in a capture. The host has the address 10.0.0.1."""

    HEADERS = 40  # Of IPv4 and TCP.

    def __init__(self, capture, client, ports):
        self.capture = capture
        self.addresses = (struct.pack(">I", (10 << 24) + 256 + client), bytes((10, 0, 0, 1)))
        self.ports = ports
        self.sent = [1, 1]

    def send(self, side, data, at=None, snaplen=None):
        """Adds a segment. `snaplen` is the number of its bytes that are captured."""
        tcp = struct.pack(">HHIIBBHHH", self.ports[side], self.ports[1 - side], self.sent[side], self.sent[1 - side], 0x50, 0x18,
                          8192, 0, 0)
        ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 40 + len(data), 0, 0, 64, 6, 0, self.addresses[side], self.addresses[1 - side])
        self.sent[side] += len(data)
        self.capture.add(ip + tcp + data, at, None if snaplen is None else self.HEADERS + snaplen)
        return len(self.capture.packets)

    def client(self, data, **options):
        """Returns the number of the packet, which begins at 1."""
        return self.send(0, data, **options)

    def host(self, data, **options):
        return self.send(1, data, **options)


# tshark.

class Tshark:
    """Runs tshark with the dissector in a directory of its own."""

    def __init__(self):
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="csclient-wireshark-"))
        self.directory.chmod(0o755)
        # tshark finds plugins below the home directory.
        plugins = self.directory / ".local" / "lib" / "wireshark" / "plugins"
        plugins.mkdir(parents=True)
        shutil.copyfile(DISSECTOR, plugins / DISSECTOR.name)
        self.known = {}
        self.as_user = []
        if os.geteuid() == 0:
            self.as_user = ["setpriv", f"--reuid={UNPRIVILEGED_ID}", f"--regid={UNPRIVILEGED_ID}", "--clear-groups"]

    def remove(self):
        shutil.rmtree(self.directory)

    def path(self, name):
        return self.directory / name

    def run(self, *options):
        """Returns what tshark prints. Anything on standard error is a failure."""
        done = subprocess.run([*self.as_user, "tshark", *map(str, options)],
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=60, encoding="utf-8", errors="replace",
                              env={**os.environ, "HOME": str(self.directory), "LC_ALL": "C.UTF-8"})
        if done.returncode != 0 or done.stderr:
            raise AssertionError(f"tshark ended with {done.returncode}: {done.stderr}")
        return done.stdout

    def read(self, capture, *options):
        """Returns tshark's output for a capture, which is an object of Capture or a path. An error of Lua is a failure."""
        path = capture
        if isinstance(capture, Capture):
            path = self.path("capture.pcap")
            capture.write(path)
        output = self.run("-n", "-r", path, *options)
        place = output.find("Lua Error")
        if place >= 0:
            raise AssertionError(output[max(0, place - 500):place + 500])
        return output

    def fields(self, capture, wanted, *options):
        """Returns one dictionary for each packet: the wanted fields that it has, each with the list of its texts."""
        return [{name: values for name, values in packet.items() if name in wanted} for packet in self.packets(capture, *options)]

    def packets(self, capture, *options):
        """Returns all fields of each packet. tshark takes a second to start, so each capture is read once with the same options."""
        key = (capture, options)
        if key not in self.known:
            wanted = [argument for field in ALL_FIELDS for argument in ("-e", field)]
            output = self.read(capture, "-T", "fields", "-E", "separator=/t", "-E", "aggregator=|", *wanted, *options)
            lines = [dict(zip(ALL_FIELDS, line.split("\t"))) for line in output.splitlines()]
            self.known[key] = [{name: cell.split("|") for name, cell in cells.items() if cell} for cells in lines]
        return self.known[key]
