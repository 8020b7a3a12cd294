"""SMS-DELIVER TPDUs, put together from 3GPP TS 23.040 and 23.038 without the library."""

DEFAULT_ALPHABET = (
    "@£$¥èéùìòÇ\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞ\x1bÆæßÉ !\"#¤%&'()*+,-./0123456789:;<=>?"
    "¡ABCDEFGHIJKLMNOPQRSTUVWXYZÄÖÑÜ§¿abcdefghijklmnopqrstuvwxyzäöñüà"
)
ESCAPE = 0x1B
EXTENSION = {
    "\f": 0x0A, "^": 0x14, "{": 0x28, "}": 0x29, "\\": 0x2F,
    "[": 0x3C, "~": 0x3D, "]": 0x3E, "|": 0x40, "€": 0x65,
}

UNKNOWN, INTERNATIONAL, NATIONAL, ALPHANUMERIC = 0x81, 0x91, 0xA1, 0xD0


def septets(text):
    """The codes of a text; an extension character has two."""
    codes = []
    for character in text:
        if character in EXTENSION:
            codes += [ESCAPE, EXTENSION[character]]
        else:
            codes.append(DEFAULT_ALPHABET.index(character))
    return codes


def pack(codes, fill_bits=0):
    """TS 23.038, 6.1.2.1: septets, least significant bit first, behind fill bits."""
    bits = [0] * fill_bits + [code >> bit & 1 for code in codes for bit in range(7)]
    bits += [0] * (-len(bits) % 8)
    return bytes(
        sum(bit << place for place, bit in enumerate(bits[at:at + 8]))
        for at in range(0, len(bits), 8)
    )


def semi_octets(digits):
    """Pairs of digits, swapped; *, #, a, b and c are the digits 10 to 14."""
    values = ["0123456789*#abc".index(digit) for digit in digits]
    values += [15] * (len(values) % 2)
    return bytes(high << 4 | low for low, high in zip(values[::2], values[1::2]))


def address(number, kind):
    """TP-OA: TS 23.040, 9.1.2.5."""
    if kind == ALPHANUMERIC:
        codes = septets(number)
        return bytes([(len(codes) * 7 + 3) // 4, kind]) + pack(codes)
    return bytes([len(number), kind]) + semi_octets(number)


def time_stamp(time, zone):
    """TP-SCTS: TS 23.040, 9.2.3.11; the zone counts quarters of an hour."""
    year, *rest = time
    fields = [value % 10 << 4 | value // 10 for value in [year % 100, *rest]]
    tens, units = divmod(abs(zone), 10)
    return bytes(fields + [units << 4 | tens | (0x08 if zone < 0 else 0)])


def concatenation(reference, total, part, wide):
    """A user-data header of one concatenation element: TS 23.040, 9.2.3.24.1 and 9.2.3.24.8."""
    if wide:
        return bytes([6, 0x08, 4, reference >> 8, reference & 0xFF, total, part])
    return bytes([5, 0x00, 3, reference, total, part])


def user_data(coding, text, header):
    """TP-UDL and TP-UD for the alphabet `coding`: 0 GSM 7-bit, 1 octets, 2 UCS-2."""
    if coding == 0:
        fill = -len(header) * 8 % 7
        codes = septets(text)
        count = (len(header) * 8 + fill) // 7 + len(codes)
        return bytes([count]) + header + pack(codes, fill)
    body = text if coding == 1 else text.encode("utf-16-be")
    return bytes([len(header) + len(body)]) + header + body


def deliver(message):
    """The TPDU of a message as plan.received() describes it."""
    header = message.get("header", b"")
    first = 0x04 | (0x40 if header else 0)
    return (
        bytes([first])
        + address(message["number"], message["kind"])
        + bytes([0, message["dcs"]])
        + time_stamp(message["time"], message["zone"])
        + user_data(message["coding"], message["text"], header)
    )
