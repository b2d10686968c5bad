"""Describes a management controller in the commands of ipmi_sim, for scripts/machine --ipmi.

The octets are those of version 2.0 of the IPMI specification, chapter 43, and of the FRU storage definition.
"""

import dataclasses

# What a sensor or a field-replaceable unit (FRU) belongs to: entities.
PROCESSOR, BOARD, SUPPLY, DRIVE, FAN, MEMORY, INLET = 3, 7, 10, 26, 29, 32, 55
# What a sensor measures. The unit also says what kind of sensor it is.
DEGREES, WATTS, TURNS = 1, 6, 18  # Celsius; turns a minute
KINDS_BY_UNIT = {DEGREES: 1, WATTS: 0x0B, TURNS: 4}
# A sensor without a unit has states, which depend on the kind.
KINDS_BY_ENTITY = {PROCESSOR: 7, SUPPLY: 8, MEMORY: 0x0C, DRIVE: 0x0D}
# The six thresholds, from bit 0 on.
THRESHOLDS = ["lower", "lower_critical", "lower_fatal", "upper", "upper_critical", "upper_fatal"]
# Types of events: those of thresholds, and those that depend on the kind of sensor.
THRESHOLD, SPECIFIC = 0x01, 0x6F
STATES = 8


@dataclasses.dataclass
class Sensor:
    """A sensor of a part. With a unit it measures `factor` times `reading`, an octet, as the thresholds are.

    Without one, the bits of `reading` are its states. Of a supply: 0 present, 1 failed, 3 without input. Of memory:
    1 an error that cannot be corrected.
    """

    number: int
    name: str
    entity: int
    instance: int
    unit: int = 0
    factor: int = 1
    reading: int = 0
    thresholds: dict = dataclasses.field(default_factory=dict)

    @property
    def kind(self):
        return KINDS_BY_UNIT[self.unit] if self.unit else KINDS_BY_ENTITY[self.entity]

    @property
    def events(self):
        return THRESHOLD if self.unit else SPECIFIC


def text(value):
    """A text with the octet before it that says that it is ASCII, and how long."""
    octets = value.encode()
    assert len(octets) < 32, value
    return bytes([0xC0 | len(octets)]) + octets


def record(kind, body):
    """A record, which the controller will number."""
    return bytes([0, 0, 0x51, kind, len(body)]) + body


def sensor_record(sensor):
    head = [0x20, 0, sensor.number, sensor.entity, sensor.instance, 0x7F]
    if not sensor.unit:
        states = [0xFF, 0] * 3
        return record(2, bytes([*head, 0x40, sensor.kind, sensor.events, *states, 0xC0, 0, 0, 1, *[0] * 7])
                      + text(sensor.name))
    have = sum(1 << bit for bit, name in enumerate(THRESHOLDS) if name in sensor.thresholds)
    limits = [sensor.thresholds.get(name, 0)
              for name in ("upper_fatal", "upper_critical", "upper", "lower_fatal", "lower_critical", "lower")]
    return record(1, bytes([*head, 0x68, sensor.kind, sensor.events, 0, 0, 0, 0, have, have, 0, sensor.unit, 0, 0,
                            sensor.factor, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0, *limits, 1, 1, 0, 0, 0])
                  + text(sensor.name))


def fru_record(device, entity, instance, name):
    return record(0x11, bytes([0x20, device, 0x80, 0, 0, 0x10, 0, entity, instance, 0]) + text(name))


def area(octets):
    """An area of a FRU: with its length in units of eight octets, and a last octet that makes the sum 0."""
    body = octets[:1] + bytes([(len(octets) + 2 + 7) // 8]) + octets[1:]
    body += bytes(-(len(body) + 1) % 8)
    return body + bytes([-sum(body) % 256])


def fru(chassis=(), board=(), product=()):
    """A FRU's octets. The areas' texts, up to the FRU file's name:

    chassis: part number, serial number; board: maker, product, serial number, part number, file;
    product: maker, product, part number, version, serial number, asset tag, file.
    """
    areas = [b""]
    for head, texts in (([1, 0x17], chassis), ([1, 0, 0, 0, 0], board), ([1, 0], product)):
        areas.append(area(bytes(head) + b"".join(map(text, texts)) + b"\xc1") if texts else b"")
    header = [1]
    at = 1
    for octets in areas:
        header.append(at if octets else 0)
        at += len(octets) // 8
    header += [0, 0]
    return bytes([*header, -sum(header) % 256]) + b"".join(areas)


def in_words(octets):
    return " ".join(f"0x{octet:02x}" for octet in octets)


def set_reading(sensor, reading):
    """The commands that change what a sensor reads, which makes events."""
    if sensor.unit:
        return [f"sensor_set_value 0x20 0 {sensor.number} {reading} 1"]
    return [f"sensor_set_bit 0x20 0 {sensor.number} {bit} {reading >> bit & 1} 1" for bit in range(STATES)]


def supported_events(sensor):
    """A digit for each event that the sensor reports, the first event's last."""
    if not sensor.unit:
        return f"{2 ** STATES - 1:015b}"
    events = 0
    for bit, name in enumerate(THRESHOLDS):
        # A lower threshold has an event for a reading that falls below it, an upper one for one that rises above it.
        if name in sensor.thresholds:
            events |= 1 << (2 * bit + (1 if name.startswith("upper") else 0))
    return f"{events:015b}"


def sensor_commands(sensor):
    commands = [f"sensor_add 0x20 0 {sensor.number} {sensor.kind} {sensor.events}",
                f"main_sdr_add 0x20 {in_words(sensor_record(sensor))}"]
    if sensor.unit:
        names = THRESHOLDS[::-1]
        enabled = "".join("1" if name in sensor.thresholds else "0" for name in names)
        limits = " ".join(str(sensor.thresholds.get(name, 0)) for name in names)
        commands.append(f"sensor_set_threshold 0x20 0 {sensor.number} settable {enabled} {limits}")
    commands += set_reading(sensor, sensor.reading)
    return commands + [f"sensor_set_event_support 0x20 0 {sensor.number} enable scanning per-state "
                       + " ".join([supported_events(sensor)] * 4)]


def describe(sensors, frus=()):
    """The commands. Each of `frus` is (device, entity, instance, name, octets); device 0 is the server itself."""
    commands = ["mc_setbmc 0x20", "mc_add 0x20 0 no-device-sdrs 0x23 9 8 0x9f 0x1291 0xf02",
                "sel_enable 0x20 1000 0x0a"]
    for sensor in sensors:
        commands += sensor_commands(sensor)
    for device, entity, instance, name, octets in frus:
        commands.append(f"mc_add_fru_data 0x20 {device} {len(octets)} data {in_words(octets)}")
        if device != 0:
            commands.append(f"main_sdr_add 0x20 {in_words(fru_record(device, entity, instance, name))}")
    return "\n".join([*commands, "mc_enable 0x20"]) + "\n"
