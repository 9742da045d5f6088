#!/bin/sh
# Certificates and keys for trying a fleet out: make_certificates.sh FOLDER BROKER DEVICE...
#
# FOLDER gets a CA, a certificate for the broker at the address or name BROKER, one for the operator's
# programs and one for each device, whose name is its common name; and the operator's key pair for
# signing changes. What is there stays, so that devices can be added. For real devices keep the CA's
# key, and the operator's, off every machine that is on a network, and make each device's key on it.
set -eu

if [ $# -lt 2 ]; then
    echo "usage: make_certificates.sh FOLDER BROKER DEVICE..." >&2
    exit 2
fi
folder=$1
broker=$2
shift 2
days=${DAYS:-365}
umask 077
mkdir -p "$folder"

# make_key NAME: an EC key, where there is none.
make_key() {
    [ -e "$folder/$1.key" ] ||
        openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out "$folder/$1.key"
}

# make_certificate NAME EXTENSIONS: one that the CA has signed for the common name NAME.
make_certificate() {
    [ ! -e "$folder/$1.pem" ] || return 0
    make_key "$1"
    printf '%s\n' "$2" >"$folder/$1.ext"
    openssl req -new -key "$folder/$1.key" -subj "/CN=$1" -out "$folder/$1.csr"
    openssl x509 -req -in "$folder/$1.csr" -CA "$folder/ca.pem" -CAkey "$folder/ca.key" \
        -CAserial "$folder/ca.srl" -CAcreateserial -days "$days" -extfile "$folder/$1.ext" \
        -out "$folder/$1.pem" 2>/dev/null
    rm "$folder/$1.csr" "$folder/$1.ext"
}

if [ ! -e "$folder/ca.pem" ]; then
    make_key ca
    openssl req -new -x509 -key "$folder/ca.key" -days "$days" -subj "/CN=fleet CA" \
        -addext keyUsage=critical,keyCertSign,cRLSign -out "$folder/ca.pem"
fi
case $broker in
    *[!0-9.]*) name=DNS:$broker ;;
    *) name=IP:$broker ;;
esac
make_certificate broker "subjectAltName=$name
extendedKeyUsage=serverAuth"
for one in operator "$@"; do
    make_certificate "$one" "extendedKeyUsage=clientAuth"
done
if [ ! -e "$folder/signing.key" ]; then
    openssl genpkey -algorithm ED25519 -out "$folder/signing.key"
    openssl pkey -in "$folder/signing.key" -pubout -out "$folder/signing.pem"
fi
