#!/bin/sh
# An operator's signature on a message: sign.sh KEY DEVICE desired|preview|confirm <MESSAGE >PAYLOAD
#
# It covers the topic and the message: what was signed for one device, or for a preview, is nothing
# to another one, or as a change.
set -eu

if [ $# -ne 3 ]; then
    echo "usage: sign.sh KEY DEVICE desired|preview|confirm <MESSAGE >PAYLOAD" >&2
    exit 2
fi
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cat >"$folder/message"
{
    printf 'veltrancord/1/%s/config/%s\n' "$2" "$3"
    cat "$folder/message"
} >"$folder/signed"
openssl pkeyutl -sign -rawin -inkey "$1" -in "$folder/signed" -out "$folder/signature"
printf 'signature=%s\n' "$(base64 -w 0 "$folder/signature")"
cat "$folder/message"
