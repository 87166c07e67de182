#!/usr/bin/env bash
# The main job: a document is signed, and its signature and signer are judged. ./sign_and_verify.sh path/to/certkern
set -euo pipefail
certkern=$(readlink -f "${1:?usage: sign_and_verify.sh path/to/certkern}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
export XDG_DATA_HOME=$work/data OPENSSL_CONF=$work/openssl.cnf

cat >openssl.cnf <<'END'
openssl_conf = init
[init]
engines = engines
[engines]
gost = gost
[gost]
engine_id = gost
default_algorithms = ALL
[req]
distinguished_name = name
[name]
[ca]
default_ca = lists
[lists]
database = index
crlnumber = number
default_md = md_gost12_256
[authority]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
[person]
keyUsage = critical, digitalSignature
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
END
if ! openssl engine gost >/dev/null 2>&1; then
  printf '\n== OpenSSL has no GOST engine on this system: the authorities of this demonstration are skipped\n'
  exit 0
fi

say() { printf '\n== %s\n' "$*"; }
# A command as a user would type it, and what becomes of it.
run() {
  printf '$ %s\n' "$*"
  local status=0
  case $1 in
    certkern) "$certkern" "${@:2}" || status=$? ;;
    *) "$@" 2>&1 || status=$? ;;
  esac
  ((status == 0)) || printf '(exit status %d)\n' "$status"
}
quietly() { "$@" >/dev/null 2>&1; }

new_key() { quietly openssl genpkey -algorithm gost2012_256 -pkeyopt paramset:A -out "$1.key"; }
new_request() { new_key "$1" && quietly openssl req -new -key "$1.key" -subj "$2" -out "$1.csr"; }
certify() { # whom, by whom, extensions
  quietly openssl x509 -req -in "$1.csr" -CA "$2.crt" -CAkey "$2.key" -set_serial "0x$(openssl rand -hex 8)" \
    -days 365 -extfile openssl.cnf -extensions "$3" -out "$1.crt"
}
publish_list() { quietly openssl ca -config openssl.cnf -gencrl -keyfile "$1.key" -cert "$1.crt" -crldays 30 -out "$1.crl"; }

say "Authorities, GOST R 34.10-2012 with 256 bits: a root, one below it, and their lists of revoked certificates"
: >index
echo 01 >number
new_request root "/C=RU/O=Example/CN=Example Root"
quietly openssl x509 -req -in root.csr -signkey root.key -days 3650 -extfile openssl.cnf -extensions authority -out root.crt
new_request ca "/C=RU/O=Example/CN=Example CA"
certify ca root authority
publish_list root
publish_list ca
new_request boris "/C=RU/CN=Boris"
certify boris ca person
cat root.crl ca.crl >lists.pem

say "Anna makes a key and asks for a certificate, which the authority gives her"
run certkern key new anna --algorithm gost2012-256 --purpose signature --no-pin
run certkern request new --key anna --subject C=RU --subject CN=Anna --out anna.csr
certify anna ca person

say "She signs a contract; Boris signs it, too, with OpenSSL, and keeps the signature apart"
printf 'We agree on 1000 roubles.\n' >contract.txt
run certkern sign contract.txt --key anna --certificate anna.crt --add-certificate ca.crt --cades strict -o anna.cms
run openssl cms -sign -binary -in contract.txt -signer boris.crt -inkey boris.key -certfile ca.crt -cades \
  -md md_gost12_256 -outform DER -out boris.sig

trust=(--store root.crt --additional lists.pem --revocation chain --cache-only)
say "Both are verified: content, signature, the path to the root, and nobody is revoked"
run certkern verify anna.cms "${trust[@]}"
run certkern verify boris.sig --content contract.txt "${trust[@]}"
say "OpenSSL thinks so of Anna's, too"
run openssl cms -verify -cades -binary -in anna.cms -inform PEM -CAfile root.crt -purpose any -out content.txt

say "Somebody changes one byte of the contract"
sed 's/1000/9000/' contract.txt >forged.txt
run certkern verify boris.sig --content forged.txt "${trust[@]}"
"$certkern" sign contract.txt --key anna --certificate anna.crt --add-certificate ca.crt --der -o forged.cms
LC_ALL=C sed -i 's/1000 roubles/9000 roubles/' forged.cms
run certkern verify forged.cms "${trust[@]}"

say "Anna loses her key, and the authority revokes her certificate"
quietly openssl ca -config openssl.cnf -keyfile ca.key -cert ca.crt -revoke anna.crt
publish_list ca
cat root.crl ca.crl >lists.pem
run certkern verify anna.cms "${trust[@]}"
