"""tshark's reading of TPDUs: a capture of them, dissected, as plain records."""

import json
import os
import re
import struct
import subprocess

LINKTYPE_USER0 = 147
FROM_MOBILE, TO_MOBILE = 1, 2  # direction bits of a packet: inbound, outbound
PREFERENCES = [
    "-o", 'uat:user_dlts:"User 0 (DLT=147)","gsm_sms","0","","0",""',
    "-o", "gsm_sms.reassemble:FALSE",
]


def block(kind, body):
    length = len(body) + 12
    return struct.pack("<II", kind, length) + body + struct.pack("<I", length)


def padded(data):
    return data + bytes(-len(data) % 4)


def capture(packets):
    """A pcapng of (direction, TPDU) pairs."""
    out = block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1))
    out += block(1, struct.pack("<HHI", LINKTYPE_USER0, 0, 0))
    for direction, tpdu in packets:
        flags = struct.pack("<HHI", 2, 4, direction) + struct.pack("<HH", 0, 0)
        head = struct.pack("<IIIII", 0, 0, 0, len(tpdu), len(tpdu))
        out += block(6, head + padded(tpdu) + flags)
    return out


def run(tshark, path, *arguments):
    command = [tshark, "-n", "-r", path, *PREFERENCES, *arguments]
    environment = os.environ | {"LC_ALL": "C.UTF-8"}
    return subprocess.run(command, check=True, capture_output=True, env=environment).stdout


def flat(layer, fields):
    """The fields of a layer without its nesting; the first of a name counts."""
    for name, value in layer.items():
        if isinstance(value, dict):
            flat(value, fields)
        else:
            fields.setdefault(name.removeprefix("gsm_sms."), value)
    return fields


def zones(listing):
    """The time zone of each frame in quarters of an hour; the JSON output lacks its sign."""
    found = []
    for frame in re.split(r"(?m)^Frame \d+: ", listing)[1:]:
        zone = re.search(r"Timezone: GMT ([+-]) (\d+) hours (\d+) minutes", frame)
        sign, hours, minutes = zone.groups() if zone else ("+", 0, 0)
        quarters = int(hours) * 4 + int(minutes) // 15
        found.append(-quarters if sign == "-" else quarters)
    return found


def coding(fields):
    """Alphabet (0 GSM 7-bit, 1 octets, 2 UCS-2) and message class (4 for none)."""
    if "gsm_7_bit_default_alphabet" in fields:
        return 0, 4
    if "dcs.message_coding" in fields:
        return int(fields["dcs.message_coding"], 0), int(fields["dcs.message_class"], 0)
    if "dcs.character_set" in fields:
        defined = fields["dcs.message_class_defined"] == "1"
        number = int(fields["dcs.message_class"], 0) if defined else 4
        return int(fields["dcs.character_set"], 0), number
    return {"12": 0, "13": 0, "14": 2}[fields["coding_group_bits4"]], 4


def record(fields, zone):
    """One dissected TPDU in the terms of the comparison."""
    submit = "tp-da" in fields or fields["tp-mti"] == "1"
    international = fields.get("dis_field_addr.num_type") == "1"
    alphabet, message_class = coding(fields)
    time = [int(fields.get("scts." + name, 0))
            for name in ("year", "month", "day", "hour", "minutes", "seconds")]
    if "scts.year" in fields:
        time[0] += 1900 if time[0] >= 80 else 2000
    return {
        "kind": 2 if submit else 1,
        "number": "+" * international + fields.get("tp-da" if submit else "tp-oa", ""),
        "text": fields.get("sms_text", ""),
        "data": bytes.fromhex(fields.get("sms_body", "").replace(":", "")),
        "alphabet": alphabet,
        "class": message_class,
        "time": time,
        "timezone": zone,
        "reference": int(fields.get("udh.mm.msg_id", 0)),
        "total": int(fields.get("udh.mm.msg_parts", 0)),
        "part": int(fields.get("udh.mm.msg_part", 0)),
        "report": int(fields.get("tp-srr", 0)),
        "message_reference": int(fields.get("tp-mr", 0)),
        "header_octets": int(fields.get("dis_field_udh.user_data_header_length", -1)) + 1,
    }


def dissect(tshark, path, packets):
    """The records of all packets, in order."""
    with open(path, "wb") as file:
        file.write(capture(packets))
    frames = json.loads(run(tshark, path, "-T", "json"))
    listing = run(tshark, path, "-V", "-O", "gsm_sms").decode("utf-8", "replace")
    layers = [flat(frame["_source"]["layers"]["gsm_sms"], {}) for frame in frames]
    return [record(fields, zone) for fields, zone in zip(layers, zones(listing), strict=True)]
