#!/usr/bin/env bash
# A look at what the tool can do: ./demo.sh path/to/certkern
set -euo pipefail
certkern=$(readlink -f "${1:?usage: demo.sh path/to/certkern}")
cd "$(dirname "$(readlink -f "$0")")/data"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# What is shown, the command, and what it prints; a demonstration keeps to the first lines of a long answer.
show() { # lines, explanation, arguments of certkern
  local lines=$1
  printf '\n== %s\n$ certkern %s\n' "$2" "${*:3}"
  "$certkern" "${@:3}" >"$work/out" || printf '(exit status %d)\n' $?
  head -n "$lines" "$work/out"
  local all
  all=$(wc -l <"$work/out")
  ((all <= lines)) || printf '  ... %d more lines\n' $((all - lines))
}

bundle=/etc/ssl/certs/ca-certificates.crt
if [[ -r $bundle ]]; then
  # the shortest one is the one that is read soonest
  awk '/-----BEGIN/ { block = "" } { block = block $0 "\n" }
       /-----END/ && (!best || length(block) < length(best)) { best = block }
       END { printf "%s", best }' "$bundle" >"$work/authority.crt"
  show 50 "A certification authority that this system trusts: one PEM block of its bundle" show "$work/authority.crt"
else
  printf '\n== No %s on this system: the bundle of authorities is skipped\n' "$bundle"
fi
show 40 "A certificate with a GOST R 34.10-2012 key, of RFC 9215, D.2" show d2_certificate.der
show 30 "A list of revoked certificates that is signed with it; nothing has been revoked" show d2_crl.der
show 30 "A request for a certificate with a 512-bit key, of RFC 9215, D.3" show d3_request.der

head -c 150 d1_certificate.der >"$work/broken.der"
show 5 "A file that ends too early: what was expected, what was found, and where; the other file is still shown" \
  show "$work/broken.der" d1_crl.der

printf '\n== The same as JSON, for programs: serial numbers and the end of validity\n'
# shellcheck disable=SC2016
printf '$ certkern show --json d1_certificate.der d2_certificate.der d3_certificate.der | sed ...\n'
"$certkern" show --json d1_certificate.der d2_certificate.der d3_certificate.der |
  sed -n -e 's/^    "\(file\|serialNumber\)": "\(.*\)",$/  \1: \2/p' -e 's/^      "\(notAfter\)": "\(.*\)"$/  \1: \2/p'

# A key, what it signs, and what another program thinks of it.
export XDG_DATA_HOME=$work/data
cat >"$work/openssl.cnf" <<'END'
openssl_conf = init
[init]
engines = engines
[engines]
gost = gost
[gost]
engine_id = gost
default_algorithms = ALL
END
run() { # explanation, command
  printf '\n== %s\n$ %s\n' "$1" "${*:2}"
  case $2 in
    certkern) "$certkern" "${@:3}" ;;
    openssl) OPENSSL_CONF=$work/openssl.cnf "${@:2}" 2>&1 ;;
  esac
}
cd "$work"
run "A key of GOST R 34.10-2012, in a container of its own" certkern key new anna --algorithm gost2012-256 --no-pin
run "What is in the container" certkern key show anna
run "A request for a certificate" certkern request new --key anna --subject C=RU --subject CN=Anna --out anna.csr
run "A certificate that the key signs itself" \
  certkern certificate selfsign --key anna --subject C=RU --subject CN=Anna --ca --out anna.crt
if openssl engine gost >/dev/null 2>&1; then
  run "OpenSSL verifies the request" openssl req -in anna.csr -verify -noout
  run "OpenSSL verifies the certificate" openssl verify -check_ss_sig -CAfile anna.crt anna.crt
else
  printf '\n== OpenSSL has no GOST engine on this system: its opinion is skipped\n'
fi
