#!/bin/sh
# Certificates and revocation lists by openssl and its GOST plug-in, from a table on standard input.
# Usage: make_chains.sh DIRECTORY <TABLE. A row for each, fields separated by "|"; blanks around them don't count, an
# empty or missing field has its default, "#" begins a comment line. A later row may issue from an earlier one.
#
#   cert NAME | ISSUER | KEY | SUBJECT | VALIDITY | EXTENSIONS    makes NAME.crt (DER) and NAME.pem
#   crl NAME | ISSUER | VALIDITY | REVOKED | EXTENSIONS           makes NAME.crl (DER)
#   section NAME | LINE; LINE; ...                                a section that extensions refer to as @NAME
#
# ISSUER      the row whose name and key sign; none: self-signed
# KEY         KIND or KIND:LABEL; rows with one label share a key, without one the row has its own. Kinds: p256
#             (default), rsa, ed25519, gost256, gost512. LABEL.key is the file
# SUBJECT     default: /CN=NAME
# VALIDITY    FROM..TO, each 2024, 20240102, 20240102030405 or something for date(1) such as "-1 hour"; default: the
#             last and the next ten years; of a list: from yesterday for thirty days
# EXTENSIONS  lines of openssl's configuration, separated by ";"; the default is "ids", of a list its authority key
#             identifier and number 1. Besides:
#               ids      subject and authority key identifier
#               none     nothing at all
#               ca, ca:N an authority (with N CAs below it at most), its key usage, and ids
#               !badsig  flips a bit of the signature
#               !utf8    names as UTF8String instead of PrintableString
#               !serial:HEX, and !number:HEX for the number of a list
# REVOKED     NAME[:REASON[:DATE]] ...; reasons as openssl spells them
set -eu
. "$(dirname "$0")/gost_plug_in.sh"
mkdir -p "$1"
cd "$1"
cat >table

long_ago=$(date -u -d '-10 years' +%Y%m%d%H%M%SZ)
far_ahead=$(date -u -d '+10 years' +%Y%m%d%H%M%SZ)

{
  # the plug-in takes its time to load
  if grep -q 'gost[25]' table; then gost_plug_in; fi
  cat <<CONFIG
[req]
distinguished_name = none
prompt = no
[none]
CN = unused
[ca]
default_ca = authority
[authority]
database = index
serial = serial
new_certs_dir = .
default_md = default
default_crl_days = 30
unique_subject = no
policy = any
[any]
commonName = optional
CONFIG
  sed -n 's/^ *section *//p' table | while IFS='|' read -r name lines; do
    printf '[%s]\n' "$(printf '%s' "$name" | tr -d ' ')"
    printf '%s\n' "$lines" | tr ';' '\n'
  done
} >base.cnf
[ -f serial ] || echo 1000 >serial

quietly() {
  "$@" >output 2>&1 || { printf '%s\n' "$row" >&2; cat output >&2; exit 1; }
}

# Sets $moment.
moment() {
  case $1 in
  [0-9][0-9][0-9][0-9]) moment=${1}0101000000Z ;;
  [0-9][0-9][0-9][0-9][0-9][0-9][0-9][0-9]) moment=${1}000000Z ;;
  [0-9][0-9][0-9][0-9][0-9][0-9][0-9][0-9][0-9][0-9][0-9][0-9][0-9][0-9]) moment=${1}Z ;;
  *) moment=$(date -u -d "$1" +%Y%m%d%H%M%SZ) ;;
  esac
}

# Sets $from and $to.
validity() {
  from=$2 to=$3
  [ -n "$1" ] || return 0
  moment "${1%%..*}"
  from=$moment
  moment "${1##*..}"
  to=$moment
}

# A configuration with this row's extensions in section "row"; sets $bad, $serial, $mask and $number.
configure() {
  bad='' serial='' mask=default number=''
  {
    printf '[row]\n'
    old=$IFS
    IFS=';'
    for item in $1; do
      item=${item#"${item%%[! ]*}"}
      item=${item%"${item##*[! ]}"}
      case $item in
      '' | none) ;;
      ids) printf 'subjectKeyIdentifier = hash\nauthorityKeyIdentifier = keyid\n' ;;
      ca | ca:*)
        limit=${item#ca}
        printf 'basicConstraints = critical, CA:TRUE%s\n' "${limit:+, pathlen$limit}"
        printf 'keyUsage = critical, keyCertSign, cRLSign\nsubjectKeyIdentifier = hash\n'
        printf 'authorityKeyIdentifier = keyid\n'
        ;;
      '!badsig') bad=1 ;;
      '!utf8') mask=utf8only ;;
      '!serial:'*) serial=${item#'!serial:'} ;;
      '!number:'*) number=${item#'!number:'} ;;
      *) printf '%s\n' "$item" ;;
      esac
    done
    IFS=$old
  } >row.section
  { cat base.cnf; printf '[authority]\nstring_mask = %s\n%s\n' "$mask" "${number:+crlnumber = number}"; cat row.section; } >row.cnf
  export OPENSSL_CONF="$PWD/row.cnf"
}

# The key and a request for it; both once for each label.
key() {
  case $1 in
  p256) set -- "$2" ec -pkeyopt ec_paramgen_curve:P-256 ;;
  rsa) set -- "$2" rsa:2048 ;;
  ed25519) set -- "$2" ed25519 ;;
  gost256) set -- "$2" gost2012_256 -pkeyopt paramset:A ;;
  gost512) set -- "$2" gost2012_512 -pkeyopt paramset:A ;;
  *) echo "what is a key of kind $1?" >&2; exit 1 ;;
  esac
  [ ! -f "$1.csr" ] || return 0
  label=$1
  shift
  quietly openssl req -new -nodes -newkey "$@" -keyout "$label.key" -out "$label.csr"
}

# The only object of a PEM file.
der() {
  sed '/^-----/d' "$1" | base64 -d >"$2"
}

# Flips a bit of the last octet of NAME.EXTENSION, which is the signature's.
spoil() {
  size=$(wc -c <"$1")
  last=$(tail -c 1 "$1" | od -An -tu1 | tr -d ' ')
  head -c $((size - 1)) "$1" >spoilt
  # shellcheck disable=SC2059
  printf "\\$(printf %o $((last ^ 1)))" >>spoilt
  mv spoilt "$1"
}

certificate() {
  name=$1 issuer=$2 key=$3 subject=$4
  configure "${6:-ids}"
  validity "$5" "$long_ago" "$far_ahead"
  kind=${key%%:*} label=$name
  case $key in *:*) label=${key##*:} ;; esac
  key "${kind:-p256}" "$label"
  printf '%s\n' "$label" >"$name.label"
  [ -z "$serial" ] || { cp serial serial.kept; printf '%s\n' "$serial" >serial; }
  : >index
  set -- -batch -notext -preserveDN -in "$label.csr" -subj "${subject:-/CN=$name}" -startdate "$from" -enddate "$to"
  if [ -n "$issuer" ]; then
    set -- "$@" -cert "$issuer.pem" -keyfile "$(cat "$issuer.label").key"
  else
    set -- "$@" -selfsign -keyfile "$label.key"
  fi
  quietly openssl ca -extensions row "$@" -out "$name.pem"
  [ -z "$serial" ] || mv serial.kept serial
  der "$name.pem" "$name.crt"
  if [ -n "$bad" ]; then
    spoil "$name.crt"
    quietly openssl x509 -inform DER -in "$name.crt" -out "$name.pem"
  fi
}

list() {
  name=$1 issuer=$2 revoked=$4
  configure "${5:-authorityKeyIdentifier = keyid; !number:01}"
  printf '%s\n' "$number" >number
  validity "$3" "$yesterday" "$next_month"
  : >index
  for entry in $revoked; do
    certificate=${entry%%:*} reason='' date=$yesterday
    case $entry in *:*) reason=${entry#*:} ;; esac
    case $reason in *:*) moment "${reason##*:}" && date=$moment && reason=${reason%%:*} ;; esac
    number=$(openssl x509 -in "$certificate.pem" -noout -serial)
    # the database has years of two digits
    printf 'R\t%s\t%s%s\t%s\tunknown\t/CN=x\n' "${far_ahead#??}" "${date#??}" "${reason:+,$reason}" "${number#*=}" >>index
  done
  set -- -cert "$issuer.pem" -keyfile "$(cat "$issuer.label").key" -crl_lastupdate "$from" -crl_nextupdate "$to"
  grep -q = row.section && set -- "$@" -crlexts row
  quietly openssl ca -gencrl "$@" -out list.pem
  der list.pem "$name.crl"
  [ -z "$bad" ] || spoil "$name.crl"
}

yesterday=$(date -u -d '-1 day' +%Y%m%d%H%M%SZ)
next_month=$(date -u -d '+30 days' +%Y%m%d%H%M%SZ)

sed 's/ *| */|/g; s/^ *//; s/ *$//' table >rows
while IFS= read -r row || [ -n "$row" ]; do
  kind=${row%% *} rest=${row#* }
  # read drops the trailing fields that a row leaves out
  IFS='|' read -r f1 f2 f3 f4 f5 f6 <<ROW
$rest
ROW
  case $kind in
  cert) certificate "$f1" "$f2" "$f3" "$f4" "$f5" "$f6" ;;
  crl) list "$f1" "$f2" "$f3" "$f4" "$f5" ;;
  section | '#'* | '') ;;
  *) echo "what is a row of kind $kind?" >&2; exit 1 ;;
  esac
done <rows
