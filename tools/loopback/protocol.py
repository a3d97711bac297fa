"""Topics, parameters as messages carry them, and their text, made by nothing of ours."""

READ_TOPIC, WRITE_TOPIC = "system/vard/sysparam/read", "system/vard/sysparam/write"
BLOB_GET, BLOB_SET = "system/vard/secstore/get", "system/vard/secstore/set"
ANNOUNCEMENT, PRESENCE = "subscription/announcement", "system/vard/unit"


def varint(number):
    return bytes([number]) if number < 128 else bytes([number & 127 | 128]) + varint(number >> 7)


def field(number, value):
    if isinstance(value, int):
        return varint(number << 3) + varint(value)
    return varint(number << 3 | 2) + varint(len(value)) + value


def record(*values):
    """A SystemParameterEntry of otaid, did, xcpid and data; None leaves a field out."""
    return b"".join(field(n, v) for n, v in enumerate(values, 1) if v is not None)


def read_reply(*records):
    return b"".join(field(1, r) for r in records) + field(2, len(records))


def block(otaid, did, xcpid, data):
    """What `korvid get` prints of a parameter."""
    head = f"""SysParam ({otaid}):
  OTAID: {otaid} - 0x{otaid:03x}
  DID: {did:x}
  XCPID: {xcpid:x}
  data(char) [{len(data):x}]: '"""
    shown = "".join(f"0x{byte:02x} " for byte in data)
    return head.encode() + data + f"'\n  data(hex) [{len(data):x}]: {shown}\n".encode()
