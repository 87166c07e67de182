#!/bin/sh
# A certificate, a request and a list under each kind of signature that the openssl program makes:
# <directory>/NAME.crt, NAME.csr and NAME.crl, all DER. Keys are new each time.
set -eu
cd "$1"

cat >openssl.cnf <<CONFIG
openssl_conf = init
[init]
engines = engines
[engines]
gost = gost
[gost]
engine_id = gost
dynamic_path = ${GOST_ENGINE:-$(openssl version -e | sed 's/.*"\(.*\)".*/\1/')/gost.so}
default_algorithms = ALL
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

quietly() { "$@" 2>errors || { cat errors >&2; exit 1; }; }

sign() {  # name, name of the key, hash or "default", options
  name=$1 key=$2 hash=$3
  shift 3
  digest= list_digest=
  if [ "$hash" != default ]; then digest=-$hash list_digest="-md $hash"; fi
  openssl req -x509 -new -key "$key.key" -subj "/CN=$name" -days 90 $digest "$@" -out "$name.pem"
  openssl x509 -in "$name.pem" -outform DER -out "$name.crt"
  openssl req -new -key "$key.key" -subj "/CN=$name" $digest "$@" -outform DER -out "$name.csr"
  quietly openssl ca -gencrl -keyfile "$key.key" -cert "$name.pem" $list_digest "$@" -out list.pem
  openssl crl -in list.pem -outform DER -out "$name.crl"
}
key() {  # name, options of genpkey
  name=$1
  shift
  quietly openssl genpkey "$@" -out "$name.key"
}

key rsa -algorithm RSA -pkeyopt rsa_keygen_bits:2048
for hash in sha1 sha256 sha384 sha512; do
  sign rsa-$hash rsa $hash
done
for hash in sha1 sha256 sha512; do
  for salt in 0 20 32 64; do
    sign pss-$hash-$salt rsa $hash -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:$salt
  done
done
# keys that make nothing but RSASSA-PSS
key free-pss -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048
sign free-pss free-pss sha256 -sigopt rsa_pss_saltlen:32
key bound-pss -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048 -pkeyopt rsa_pss_keygen_md:sha256 \
  -pkeyopt rsa_pss_keygen_mgf1_md:sha256 -pkeyopt rsa_pss_keygen_saltlen:20
sign bound-pss bound-pss sha256 -sigopt rsa_pss_saltlen:32
for curve in P-256 P-384 P-521; do
  key $curve -algorithm EC -pkeyopt ec_paramgen_curve:$curve
  for hash in sha1 sha256 sha384 sha512; do
    sign $curve-$hash $curve $hash
  done
done
for algorithm in ED25519 ED448; do
  key $algorithm -algorithm $algorithm
  sign $algorithm $algorithm default
done
gost() {  # algorithm, parameter sets
  algorithm=$1
  shift
  for set in "$@"; do
    key $algorithm-$set -algorithm $algorithm -pkeyopt paramset:$set
    sign $algorithm-$set $algorithm-$set default
  done
}
gost gost2001 A B C XA XB 0
gost gost2012_256 A B C XA XB TCA TCB TCC TCD 0
gost gost2012_512 A B C
