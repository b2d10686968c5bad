"""The columns and scalars of the MIB modules, by OID."""

import re
import subprocess

from agents import ROOT, environment
from oids import BASE

MIBS = ROOT / "mibs"
MANAGEMENT = BASE.rpartition(".")[0]  # the server's subtree, and the daemon's own beside it
# What a value of each SYNTAX looks like in a walk.
SHAPES = {"INTEGER": "INTEGER", "Integer32": "INTEGER", "Gauge32": "Gauge32", "Unsigned32": "Gauge32",
          "TimeTicks": "Timeticks", "Counter32": "Counter32", "Counter64": "Counter64",
          "OCTET STRING": "Hex-STRING", "OBJECT IDENTIFIER": "OID"}


class Definition:
    """The definition of a column or a scalar, as snmptranslate -Td prints it."""

    def __init__(self, text):
        self.name = text.split()[0]
        syntax = re.search(r"SYNTAX\t(\w+(?: STRING| IDENTIFIER)?)(.*)", text)
        self.shape = SHAPES[syntax[1]]
        self.enumeration = {int(value): label for label, value in re.findall(r"(\w+)\((-?\d+)\)", syntax[2])}
        self.bounds = [] if self.enumeration else [
            (int(low), int(high or low)) for low, high in re.findall(r"(\d+)(?:\.\.(\d+))?", syntax[2])]
        always = re.search(r'DESCRIPTION\s+"Constant: always (?:the word )?(.*?)\.[ "]', re.sub(r"\s+", " ", text))
        self.constant = always and re.sub(r"^\w+\((\d+)\)$", r"\1", always[1])

    def accepts(self, shape, value):
        if shape != self.shape:
            return False
        size = len(value) if isinstance(value, str) else value
        if self.bounds and shape != "OID" and not any(low <= size <= high for low, high in self.bounds):
            return False
        if self.enumeration and value not in self.enumeration:
            return False
        return self.constant is None or str(value) == ("" if self.constant == "empty" else self.constant)


def definitions(directory):
    """{OID: definition} of all columns and scalars"""
    command = ["snmptranslate", "-M", f"{MIBS}:{MIBS / 'base'}", "-m", "ALL"]

    def run(*arguments):
        return subprocess.run([*command, *arguments], capture_output=True, text=True, check=True,
                              env=environment(directory)).stdout

    oids = re.findall(rf'"({re.escape(MANAGEMENT)}\.\d[\d.]*)"', run("-Tz"))
    # Each definition ends with its OID, such as { iso(1) org(3) ... tavoFaultEntry(1) 10 }.
    definitions = re.findall(r"^(\w+ OBJECT-TYPE\n.*?)^::= { (.*?) }$", run("-Td", *oids), re.MULTILINE | re.DOTALL)
    readable = {".".join(re.findall(r"\d+(?=\)|$)", place)): Definition(text) for text, place in definitions
                if re.search(r"MAX-ACCESS\s+read-only", text)}
    assert len(readable) > 400
    return readable
