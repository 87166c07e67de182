#!/bin/sh
# Self-signed certificates, requests and revocation lists of every family of keys, made by openssl and its GOST plug-in.
# Usage: make_signed.sh DIRECTORY. For each NAME: NAME.crt, NAME.csr and NAME.crl, DER.
set -eu
. "$(dirname "$0")/gost_plug_in.sh"
mkdir -p "$1"
cd "$1"

gost_plug_in >openssl.cnf
cat >>openssl.cnf <<CONFIG
[req]
distinguished_name = none
prompt = no
[none]
[ca]
default_ca = authority
[authority]
database = index.txt
default_md = default
default_crl_days = 30
CONFIG
export OPENSSL_CONF="$PWD/openssl.cnf"
printf 'R\t400101000000Z\t240101000000Z\t01\tunknown\t/CN=01\n' >index.txt

quietly() {
  "$@" >output 2>&1 || { cat output >&2; exit 1; }
}

# name, key, options of the signature
sign() {
  name=$1 key=$2
  shift 2
  quietly openssl req -x509 -new -key "$key.key" -subj "/CN=$name" -days 90 "$@" -out "$name.pem"
  quietly openssl x509 -in "$name.pem" -outform DER -out "$name.crt"
  quietly openssl req -new -key "$key.key" -subj "/CN=$name" "$@" -outform DER -out "$name.csr"
  # a list takes its digest as -md, not as an option of that name
  list=$(printf '%s ' "$@" | sed 's/-sha\([0-9]*\)/-md sha\1/')
  # shellcheck disable=SC2086
  quietly openssl ca -gencrl -keyfile "$key.key" -cert "$name.pem" $list -out list.pem
  quietly openssl crl -in list.pem -outform DER -out "$name.crl"
}

# name, options of the generation
key() {
  name=$1
  shift
  quietly openssl genpkey "$@" -out "$name.key"
}

key rsa -algorithm RSA -pkeyopt rsa_keygen_bits:2048
for hash in sha1 sha256 sha384 sha512; do
  sign "rsa-$hash" rsa "-$hash"
done
for hash in sha1 sha256 sha512; do
  for salt in 0 20 32 64; do
    sign "pss-$hash-$salt" rsa "-$hash" -sigopt rsa_padding_mode:pss -sigopt "rsa_pss_saltlen:$salt"
  done
done
# keys that make nothing but RSASSA-PSS
key free-pss -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048
sign free-pss free-pss -sha256 -sigopt rsa_pss_saltlen:32
key bound-pss -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048 -pkeyopt rsa_pss_keygen_md:sha256 \
  -pkeyopt rsa_pss_keygen_mgf1_md:sha256 -pkeyopt rsa_pss_keygen_saltlen:20
sign bound-pss bound-pss -sha256 -sigopt rsa_pss_saltlen:32

for curve in P-256 P-384 P-521; do
  key "$curve" -algorithm EC -pkeyopt "ec_paramgen_curve:$curve"
  for hash in sha1 sha256 sha384 sha512; do
    sign "$curve-$hash" "$curve" "-$hash"
  done
done
for algorithm in ED25519 ED448; do
  key "$algorithm" -algorithm "$algorithm"
  sign "$algorithm" "$algorithm"
done

gost() {
  algorithm=$1
  shift
  for set in "$@"; do
    key "$algorithm-$set" -algorithm "$algorithm" -pkeyopt "paramset:$set"
    sign "$algorithm-$set" "$algorithm-$set"
  done
}
gost gost2001 A B C XA XB 0
gost gost2012_256 A B C XA XB TCA TCB TCC TCD 0
gost gost2012_512 A B C
