#!/bin/sh
# Changes a setting, tries it, and puts the old one back when the trial fails:
#   change_safely.sh Network.Lan.Mtu 9000 ping -c 1 router
set -eu

path=$1
value=$2
shift 2

before=$(veltrancordctl get "$path")
veltrancordctl set "$path" "$value"
if ! "$@"; then
    veltrancordctl set "$path" "$before"
    echo "$path is $before again" >&2
    exit 1
fi
echo "$path is $value"
