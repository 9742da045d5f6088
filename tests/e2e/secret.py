"""The stored form of secrets, written down a second time to check the program against."""

import base64

DEFAULT_KEY = b"Vt7mkQ2"  # the build's default


def enc_form(plain, key=DEFAULT_KEY):
    """The "enc:" form of a plain text."""
    data = plain.encode() if isinstance(plain, str) else plain
    count = len(data) % 256
    changed = bytes(byte ^ key[i % len(key)] for i, byte in enumerate(data[:count]))
    return f"enc:{count}:{base64.b64encode(changed).decode()}"


ALPHABET = b"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"


def plain_form(stored, key=DEFAULT_KEY):
    """The plain text of an "enc:" form, as far as it can be decoded; any other text as it is."""
    if not stored.startswith("enc:"):
        return stored
    _, count, text = stored.encode("latin-1").split(b":", 2)
    data = b""
    while text:
        group, text = text[:4].ljust(4, b"="), text[4:]
        if any(byte not in ALPHABET + b"=" for byte in group):
            break
        bits = 0
        for byte in group:
            bits = bits << 6 | max(0, ALPHABET.find(byte))
        data += bits.to_bytes(3, "big")
    changed = bytes(b ^ key[i % len(key)] if i < int(count) else b for i, b in enumerate(data))
    return changed.split(b"\0")[0].decode("latin-1")
