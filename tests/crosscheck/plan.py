"""The messages to compose and to receive. A fixed seed: the same ones in every run."""

import random

from deliver import (
    ALPHANUMERIC, DEFAULT_ALPHABET, EXTENSION, INTERNATIONAL, NATIONAL, UNKNOWN, concatenation,
    septets,
)

# The escape is no character of its own: what follows it decides.
GSM_CHARACTERS = DEFAULT_ALPHABET.replace("\x1b", "")
# The library's alphabet has the small cedilla where the standard has the capital one.
LIBRARY_CHARACTERS = GSM_CHARACTERS.replace("Ç", "ç")
# An alphanumeric sender is handed out code by code, so only these are the same as text.
SENDER_CHARACTERS = "".join(c for c in GSM_CHARACTERS if ord(c) < 128 and
                            DEFAULT_ALPHABET.index(c) == ord(c) and c != "\n" and c != "\r")
SCRIPTS = [
    "Привет, мир", "Καλημέρα κόσμε", "שלום עולם", "مرحبا بالعالم", "नमस्ते दुनिया", "สวัสดีชาวโลก",
    "你好，世界", "こんにちは世界", "안녕하세요 세계", "Việt Nam đẹp", "Ça va? Łódź ‘ok’", "5 € [ok] {x} ~|^\\",
    "😀 🚀 👍🏽 ok", "\u2028\ufffd\uffee\u00a0`",
]
ALL_ZONES = range(-48, 49)


def is_split(text, at):
    """Whether a segment border at unit `at` would cut a surrogate pair."""
    units = text.encode("utf-16-be")
    return 2 * at < len(units) and 0xDC <= units[2 * at] <= 0xDF


def repeated(text, units, border):
    """About `units` units of a text repeated, without a surrogate pair across a border."""
    result = ""
    while len(result.encode("utf-16-be")) // 2 < units:
        result += text + " "
    while any(is_split(result, at) for at in range(border, units + 100, border)):
        result = " " + result
    return result


class Draw:
    """What random messages are made of."""

    def __init__(self, seed):
        self.random = random.Random(seed)

    def number(self, length):
        return "".join(self.random.choice("0123456789*#") for _ in range(length))

    def time(self):
        draw = self.random.randint
        return [draw(1980, 2079), draw(1, 12), draw(1, 28), draw(0, 23), draw(0, 59), draw(0, 59)]

    def text(self, characters, length):
        return "".join(self.random.choice(characters) for _ in range(length))

    def gsm(self, longest):
        """A text of extension characters as well, of at most `longest` septets."""
        text = self.text(GSM_CHARACTERS * 4 + "".join(EXTENSION), self.random.randint(1, longest))
        while len(septets(text)) > longest:
            text = text[:-1]
        return text


def composed():
    """Messages for the library to compose: number, text, time or none, report flag."""
    draw = Draw(20130507)
    messages = []

    def add(text, number=None, time=None, report=0):
        number = draw.number(draw.random.randint(1, 20)) if number is None else number
        message = {"number": number, "text": text, "report": report}
        messages.append(message | ({"time": time} if time else {}))

    add("")
    for length in range(1, 21):
        add("national", draw.number(length))
    for length in range(1, 20):
        add("international", "+" + draw.number(length))
    add(LIBRARY_CHARACTERS)
    for character in LIBRARY_CHARACTERS:
        add(character * 9, report=1)
    for character in [*EXTENSION, "`", "Ç", "\u4e2d"]:
        add("a" + character + "b")
    for length in [1, 7, 8, 9, 159, 160, 161, 306, 307, 459]:
        add(draw.text(LIBRARY_CHARACTERS, length), time=draw.time())
    for script in SCRIPTS:
        add(script)
        for units in (70, 71, 134, 180):
            add(repeated(script, units, 67), time=draw.time(), report=draw.random.randint(0, 1))
    return messages


def received():
    """Messages for the library to decode."""
    draw = Draw(20130508)
    messages = []

    def add(text, coding=0, dcs=None, number=None, kind=INTERNATIONAL, zone=None, header=b""):
        messages.append({
            "number": draw.number(draw.random.randint(1, 19)) if number is None else number,
            "kind": kind,
            "dcs": {0: 0x00, 1: 0x04, 2: 0x08}[coding] if dcs is None else dcs,
            "coding": coding, "text": text, "header": header, "time": draw.time(),
            "zone": draw.random.choice(ALL_ZONES) if zone is None else zone,
        })

    for zone in ALL_ZONES:
        add(draw.gsm(160), zone=zone)
    for length in range(1, 21):
        add(draw.gsm(40), number=draw.number(length), kind=UNKNOWN)
        add(draw.gsm(40), number=draw.text("0123456789*#abc", length), kind=NATIONAL)
    for length in range(1, 20):
        add(draw.gsm(40), number=draw.number(length))
    for length in range(1, 12):
        add(draw.gsm(40), number=draw.text(SENDER_CHARACTERS, length), kind=ALPHANUMERIC)
    add("")
    add(GSM_CHARACTERS)
    for character in [*GSM_CHARACTERS, *EXTENSION]:
        add(character * 9)
    for script in SCRIPTS:
        add(script, coding=2)
        add(script, coding=2, header=concatenation(draw.random.randrange(256), 2, 1, False))
        add(script, coding=2, header=concatenation(draw.random.randrange(65536), 9, 9, True))
    for part in (1, 2, 3, 254, 255):
        for wide in (False, True):
            header = concatenation(draw.random.randrange(65536 if wide else 256), 255, part, wide)
            add(draw.gsm(153 if not wide else 152), header=header)
            add(draw.gsm(10), header=header)
    for dcs in (0x10, 0x11, 0x12, 0x13, 0xF0, 0xF1, 0xF2, 0xF3, 0xC8, 0xC1, 0xD0, 0xDB):
        add(draw.gsm(20), dcs=dcs)
    for dcs in (0x18, 0x19, 0x1A, 0x1B, 0xE0, 0xE9):
        add("мир", coding=2, dcs=dcs)
    for dcs in (0x04, 0x14, 0x17, 0xF4, 0xF7):
        add(bytes(draw.random.randrange(256) for _ in range(30)), coding=1, dcs=dcs)
    return messages
