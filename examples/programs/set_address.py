#!/usr/bin/python3
"""Changes several settings with one request: set_address.py Network.Lan 10.0.0.5 255.255.255.0"""

import sys

import veltrancord


def main():
    place, address, mask = sys.argv[1:]
    service = veltrancord.Client()
    try:
        service.write({f"{place}.Dhcp": "NO", f"{place}.Address": address, f"{place}.Mask": mask})
    except veltrancord.Refused as refusal:
        sys.exit(f"nothing was sent: {refusal}")
    except veltrancord.Error as failure:
        sys.exit(str(failure))
    for path, value in service.read(f"{place}.*"):
        print(f"{path} is {value}")


if __name__ == "__main__":
    main()
