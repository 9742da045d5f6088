#!/bin/sh
# Writes the service's numbers for a node exporter: write_metrics.sh FILE [BACKUP-FILE]
#
# The file is replaced as a whole. While the service is away it says so, veltrancord_up is 0; what the
# bridge knows of its certificate is added where there is a bridge with one.
set -u

file=$1
veltrancordctl stats --prometheus --backup-file "${2:-}" >"$file.new"
case $? in
    0 | 8) ;; # it answers, or does not
    *)
        rm -f "$file.new"
        exit 1
        ;;
esac
if [ -e /etc/veltrancord-bridge/device.pem ]; then
    veltrancord-bridge --metrics >>"$file.new" || exit 1
fi
mv "$file.new" "$file"
