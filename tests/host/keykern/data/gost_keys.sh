#!/bin/sh
# Writes gost_keys.txt and gost_agreements.txt afresh: keys of the openssl tool with the GOST plug-in, what it signs and
# what it agrees. Every run makes new keys. Usage: gost_keys.sh DIRECTORY
set -e
. "$(dirname "$0")/../../../data/gost_plug_in.sh"
out=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
gost_plug_in >gost.cnf
export OPENSSL_CONF="$work/gost.cnf"
hex() { xxd -p | tr -d '\n'; }

# The hash signed: 01 02 03 ...
seq 1 32 | xargs printf '%02x' | xxd -r -p > hash256
seq 1 64 | xargs printf '%02x' | xxd -r -p > hash512
keys() {  # algorithm, size, parameter sets
  algorithm=$1 size=$2
  shift 2
  for set in "$@"; do
    openssl genpkey -algorithm "$algorithm" -pkeyopt "paramset:$set" -out key
    openssl pkeyutl -sign -inkey key -in "hash$size" -out signature
    echo "$algorithm-$set $(openssl pkey -in key -outform DER | hex)" \
         "$(openssl pkey -in key -pubout -outform DER | hex) $(hex < signature)"
  done
}
{
  echo '# name PrivateKeyInfo SubjectPublicKeyInfo signature; made by gost_keys.sh'
  keys gost2001 256 0 A B C XA XB
  keys gost2012_256 256 0 A B C XA XB TCA TCB TCC TCD
  keys gost2012_512 512 A B C
} > "$out/gost_keys.txt"

agreements() {  # algorithm, set, then pairs of a function and the option that makes the plug-in compute it
  openssl genpkey -algorithm "$1" -pkeyopt "paramset:$2" -out a
  openssl genpkey -algorithm "$1" -pkeyopt "paramset:$2" | openssl pkey -pubout -out b
  pair="$(openssl pkey -in a -outform DER | hex) $(openssl pkey -pubin -in b -outform DER | hex)"
  name="$1-$2"
  shift 2
  for function in "$@"; do
    ukm=1d80603c8544c727 option=
    case $function in
      vko256) option='-pkeyopt vko:256' ;;
      vko512) option='-pkeyopt vko:512' ;;
      keg) ukm=$(seq 1 32 | xargs printf '%02x') ;;
    esac
    echo "$name $function $pair $ukm $(openssl pkeyutl -derive -inkey a -peerkey b -pkeyopt "ukmhex:$ukm" $option | hex)"
  done
}
{
  echo '# name function PrivateKeyInfo peer UKM value; made by gost_keys.sh'
  agreements gost2001 A vko94
  agreements gost2012_256 A vko256 vko512 keg
  agreements gost2012_256 TCA vko256 keg
  agreements gost2012_512 A vko256 vko512 keg
  agreements gost2012_512 C vko256 keg
} > "$out/gost_agreements.txt"
