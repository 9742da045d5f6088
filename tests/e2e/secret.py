"""The stored form of secrets, written down a second time to check the program against."""

import base64

DEFAULT_KEY = b"Vt7mkQ2"  # the build's default


def enc_form(plain, key=DEFAULT_KEY):
    """The "enc:" form of a plain text."""
    data = plain.encode() if isinstance(plain, str) else plain
    count = len(data) % 256
    changed = bytes(byte ^ key[i % len(key)] for i, byte in enumerate(data[:count]))
    return f"enc:{count}:{base64.b64encode(changed).decode()}"
