"""The notifications of snmp-subagentd, as snmptrapd writes them in the format of snmptrapd.conf."""

import re

# Time in seconds since 1970, sender, varbinds. OIDs are numeric and texts in hexadecimal, so no text from outside looks
# like a line or a varbind of its own.
MARK = "TAVO-NOTIFICATION "
LINE = re.compile(MARK + r"(\d{1,10}) [^|[]*\[([^]|]+)\][^|]*\|(.*)")
VARBIND = re.compile(r"\.(\d{1,10}(?:\.\d{1,10})*) = (?:([\w-]+): ?)?(.*)")

UPTIME = "1.3.6.1.2.1.1.3.0"
KIND = "1.3.6.1.6.3.1.1.4.1.0"
ENTERPRISE = "1.3.6.1.6.3.1.1.4.3.0"
ORIGIN = "1.3.6.1.6.3.18.1.3.0"  # snmpTrapAddress, which a relay adds
WARM_START = "1.3.6.1.6.3.1.1.5.2"
PRODUCT = "1.3.6.1.4.1.61453.1.3301"
OBJECTS = "1.3.6.1.4.1.61453.4.207"
RAISED, CLEARED = f"{OBJECTS}.0.1", f"{OBJECTS}.0.2"
FAULT = f"{OBJECTS}.1.1.1.1."
INDEX, OBJECT_ID, OBJECT, CAUSE, CODE, FIRST, TEXT, LAST, TIMES, SEVERITY = 1, 4, 5, 7, 9, 10, 11, 14, 16, 20


class Malformed(Exception):
    """A line that should be a notification and is not."""


def text_of(kind, value):
    if kind != "Hex-STRING":
        return value.strip('"')
    try:
        return bytes.fromhex(value).decode(errors="replace").replace("\0", "")
    except ValueError:
        raise Malformed(f"not hexadecimal: {value[:80]!r}") from None


def date_of(kind, value):
    """A DateAndTime in the form of ISO 8601; empty if it is none."""
    try:
        octets = bytes.fromhex(value) if kind == "Hex-STRING" else b""
    except ValueError:
        octets = b""
    if len(octets) < 7:
        return ""
    return "{:04}-{:02}-{:02}T{:02}:{:02}:{:02}".format(octets[0] << 8 | octets[1], *octets[2:7])


def number_of(kind, value):
    found = re.search(r"-?\d{1,20}", value)
    if found is None:
        raise Malformed(f"not a number: {value[:80]!r}")
    return int(found[0])


class Notification:
    """A notification: when and from whom it came, and its varbinds."""

    def __init__(self, line):
        """Raises Malformed."""
        match = LINE.fullmatch(line)
        if match is None:
            raise Malformed("the line has another form")
        self.time, self.sender = int(match[1]), match[2]
        self._varbinds = {}
        for varbind in match[3].split("|"):
            parts = VARBIND.fullmatch(varbind.strip())
            if parts is None:
                raise Malformed(f"not a varbind: {varbind[:80]!r}")
            name = parts[1]
            if name.startswith(FAULT):
                name = int(name.removeprefix(FAULT).split(".")[0])
            self._varbinds[name] = parts[2] or "", parts[3].strip()
        self.kind = self.oid(KIND)
        if ORIGIN in self._varbinds:
            self.sender = self._varbinds[ORIGIN][1]

    def oid(self, name):
        return self._varbinds.get(name, ("", ""))[1].lstrip(".")

    def text(self, name):
        return text_of(*self._varbinds.get(name, ("", "")))

    def date(self, name):
        return date_of(*self._varbinds.get(name, ("", "")))

    def number(self, name, otherwise=None):
        if name not in self._varbinds and otherwise is not None:
            return otherwise
        return number_of(*self._varbinds.get(name, ("", "")))

    @property
    def uptime(self):
        """The sender's uptime in hundredths of a second, when it sent this."""
        return self.number(UPTIME, 0)

    def named_object(self):
        """The serial number that may stand before the affected object's name, and the name."""
        return re.fullmatch(r"(?s)(?:\[Serial No: (.*?)\] )?(.*)", self.text(OBJECT)).groups(default="")

    def is_start_up(self):
        return self.kind == WARM_START and self.oid(ENTERPRISE) == PRODUCT

    def is_test(self):
        return self.kind == CLEARED and self.number(INDEX) == 0 and self.text(TEXT) == "Test Fault"
