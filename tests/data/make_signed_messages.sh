#!/bin/sh
# Keys, certificates and signed messages by openssl and its GOST plug-in. Usage: make_signed_messages.sh DIRECTORY
# KIND.key, KIND.crt (DER), KIND.pem; content; messages as KIND-FORM.cms (DER), where FORM is
#   attached noattr detached keyid stream    one signer; the last with indefinite lengths
# two.cms (rsa, p256) and cades.cms
set -eu
. "$(dirname "$0")/gost_plug_in.sh"
mkdir -p "$1"
cd "$1"
gost_plug_in >config
{
  printf '[req]\ndistinguished_name = name\nprompt = no\nx509_extensions = ext\n[name]\nCN = unused\n'
  printf '[ext]\nsubjectKeyIdentifier = hash\nkeyUsage = critical, digitalSignature\nextendedKeyUsage = emailProtection\n'
} >request
export OPENSSL_CONF="$PWD/config"
printf 'what is to be signed\n' >content

make_key() {
  kind=$1
  shift
  openssl genpkey "$@" -out "$kind.key" 2>/dev/null
}
make_key rsa -algorithm RSA -pkeyopt rsa_keygen_bits:2048
make_key pss -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048
make_key psskey -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048 -pkeyopt rsa_pss_keygen_md:sha256 \
  -pkeyopt rsa_pss_keygen_mgf1_md:sha256 -pkeyopt rsa_pss_keygen_saltlen:32
make_key p256 -algorithm EC -pkeyopt ec_paramgen_curve:P-256
make_key p521 -algorithm EC -pkeyopt ec_paramgen_curve:P-521
make_key gost2001 -algorithm gost2001 -pkeyopt paramset:A
make_key gost256 -algorithm gost2012_256 -pkeyopt paramset:A
make_key gost512 -algorithm gost2012_512 -pkeyopt paramset:A

for kind in rsa pss psskey p256 p521 gost2001 gost256 gost512; do
  case $kind in
    gost2001) digest=md_gost94 ;;
    gost256) digest=md_gost12_256 ;;
    gost512) digest=md_gost12_512 ;;
    p521) digest=sha512 ;;
    *) digest=sha256 ;;
  esac
  options=
  if [ $kind = pss ] || [ $kind = psskey ]; then options='-keyopt rsa_padding_mode:pss -keyopt rsa_pss_saltlen:32'; fi
  openssl req -new -x509 -config request -key $kind.key -subj "/O=Test/CN=$kind" -days 3650 -set_serial 0x11$(printf %s $kind | od -An -tx1 | tr -d ' \n') \
    $(printf -- '-%s' $digest) ${options:+-sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:32} -out $kind.pem
  openssl x509 -in $kind.pem -outform DER -out $kind.crt
  sign() {
    form=$1
    shift
    # shellcheck disable=SC2086
    openssl cms -sign -binary -in content -signer $kind.pem -inkey $kind.key -md $digest $options -outform DER \
      -out $kind-$form.cms "$@"
  }
  sign attached -nodetach
  sign noattr -nodetach -noattr
  sign detached
  sign keyid -nodetach -keyid
  # which openssl can't do with PSS
  case $kind in pss*) ;; *) sign stream -nodetach -stream ;; esac
done
openssl cms -sign -binary -in content -nodetach -signer rsa.pem -inkey rsa.key -signer p256.pem -inkey p256.key \
  -md sha256 -outform DER -out two.cms
openssl cms -sign -binary -in content -nodetach -cades -signer rsa.pem -inkey rsa.key -md sha256 -outform DER -out cades.cms
