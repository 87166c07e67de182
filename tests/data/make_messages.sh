#!/bin/sh
# Messages, key files, OCSP, time stamps and certificate management, made by openssl and its GOST plug-in.
# Usage: make_messages.sh DIRECTORY. For each: NAME.TYPE.der, or NAME.TYPE.ber for what has indefinite lengths.
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
[stamper]
extendedKeyUsage = critical,timeStamping
[responder]
basicConstraints = critical,CA:TRUE
subjectKeyIdentifier = hash
extendedKeyUsage = OCSPSigning
noCheck = ignored
CONFIG
# apart, because the program reads it a second time and the plug-in can't be loaded twice
cat >tsa.cnf <<CONFIG
[tsa]
default_tsa = authority
[authority]
serial = serial
signer_cert = stamper.pem
signer_key = stamper.key
certs = ca.pem
signer_digest = sha256
default_policy = 1.2.3.4.1
other_policies = 1.2.3.4.5
digests = sha256, sha512
accuracy = secs:1, millisecs:500, microsecs:100
ordering = yes
tsa_name = yes
ess_cert_id_chain = yes
ess_cert_id_alg = sha256
CONFIG
export OPENSSL_CONF="$PWD/openssl.cnf"
echo 01 >serial
printf 'Some content that is signed, sealed and delivered\n' >content
printf 'secret' >password

quietly() {
  "$@" >output 2>&1 || { echo "$*" >&2; cat output >&2; exit 1; }
}

# name, issuer (or -), section of extensions (or -), options of the key's generation
party() {
  name=$1 issuer=$2 section=$3
  shift 3
  quietly openssl genpkey "$@" -out "$name.key"
  quietly openssl req -new -key "$name.key" -subj "/C=RU/O=Example/CN=$name" -out "$name.csr"
  if [ "$issuer" = - ]; then set -- -signkey "$name.key"; else set -- -CA "$issuer.pem" -CAkey "$issuer.key"; fi
  if [ "$section" != - ]; then set -- "$@" -extfile openssl.cnf -extensions "$section"; fi
  quietly openssl x509 -req -in "$name.csr" -set_serial "0x$(printf %s "$name" | od -An -tx1 | tr -d ' \n')" -days 90 \
    "$@" -out "$name.pem"
}
party ca - responder -algorithm RSA -pkeyopt rsa_keygen_bits:2048
party rsa ca - -algorithm RSA -pkeyopt rsa_keygen_bits:2048
party ec ca responder -algorithm EC -pkeyopt ec_paramgen_curve:P-256
party stamper ca stamper -algorithm RSA -pkeyopt rsa_keygen_bits:2048
party gost256 - - -algorithm gost2012_256 -pkeyopt paramset:XA
party gost512 - - -algorithm gost2012_512 -pkeyopt paramset:A
party gost2001 - - -algorithm gost2001 -pkeyopt paramset:XA

# name, options: a message of definite lengths
message() {
  name=$1
  shift
  quietly openssl cms "$@" -binary -in content -noindef -outform DER -out "$name.ContentInfo.der"
}
# the same, and streamed
cms() {
  message "$@"
  shift
  quietly openssl cms "$@" -binary -in content -stream -outform DER -out "$name.ContentInfo.ber"
}
key=000102030405060708090a0b0c0d0e0f
cms data -data_create
cms digest -digest_create -md sha256
cms encrypted-data -EncryptedData_encrypt -aes128 -secretkey "$key"
if openssl cms -compress -in content -out /dev/null 2>/dev/null; then cms compressed -compress; fi
cms signed -sign -nodetach -signer rsa.pem -inkey rsa.key -certfile ca.pem
cms signed-key-id -sign -nodetach -keyid -signer ec.pem -inkey ec.key
cms signed-no-attributes -sign -nodetach -noattr -signer rsa.pem -inkey rsa.key
cms signed-no-certificates -sign -nodetach -nocerts -signer rsa.pem -inkey rsa.key
# openssl can't stream this one
message signed-pss -sign -nodetach -signer rsa.pem -inkey rsa.key -keyopt rsa_padding_mode:pss
cms signed-cades -sign -nodetach -cades -md sha256 -signer rsa.pem -inkey rsa.key
cms signed-cades-sha1 -sign -nodetach -cades -md sha1 -signer rsa.pem -inkey rsa.key
cms signed-cades-sha512 -sign -nodetach -cades -md sha512 -signer rsa.pem -inkey rsa.key
cms signed-receipt -sign -nodetach -signer rsa.pem -inkey rsa.key -receipt_request_all -receipt_request_to a@example.org
cms signed-other-content -sign -nodetach -econtent_type 1.2.3.4 -signer rsa.pem -inkey rsa.key
cms signed-several -sign -nodetach -signer rsa.pem -inkey rsa.key -signer ec.pem -inkey ec.key \
  -signer stamper.pem -inkey stamper.key
cms signed-gost -sign -nodetach -signer gost256.pem -inkey gost256.key -signer gost512.pem -inkey gost512.key
cms signed-gost-2001 -sign -nodetach -signer gost2001.pem -inkey gost2001.key
quietly openssl cms -sign -binary -in content -signer rsa.pem -inkey rsa.key -outform DER -out detached.ContentInfo.der
quietly openssl cms -resign -inform DER -in detached.ContentInfo.der -binary -content content -signer ec.pem -inkey ec.key \
  -outform DER -out resigned.ContentInfo.der
cms enveloped-rsa -encrypt -aes256 -recip rsa.pem
cms enveloped-rsa-key-id -encrypt -aes256 -keyid -recip ec.pem
cms enveloped-oaep -encrypt -aes256 -recip rsa.pem -keyopt rsa_padding_mode:oaep
cms enveloped-ec -encrypt -aes128 -recip ec.pem -keyopt ecdh_kdf_md:sha256
cms enveloped-password -encrypt -aes128 -pwri_password secret
cms enveloped-kek -encrypt -aes128 -secretkey "$key" -secretkeyid 0102
cms enveloped-all -encrypt -des3 -pwri_password secret -secretkey "$key" -secretkeyid 0102 -recip rsa.pem -recip ec.pem
# of a content that has no type here, indefinite lengths stay
message enveloped-authenticated -encrypt -aes-128-gcm -recip rsa.pem
cms enveloped-gost256 -encrypt -gost89 -recip gost256.pem
cms enveloped-gost512 -encrypt -gost89 -recip gost512.pem

# the older program, with revocation lists
touch index.txt
printf '[ca]\ndefault_ca = here\n[here]\ndatabase = index.txt\ndefault_md = sha256\ndefault_crl_days = 30\n' >ca.cnf
OPENSSL_CONF="" quietly openssl ca -config ca.cnf -gencrl -keyfile ca.key -cert ca.pem -out list.pem
quietly openssl smime -sign -binary -nodetach -in content -signer rsa.pem -inkey rsa.key -certfile ca.pem -out message.eml
quietly openssl smime -pk7out -in message.eml -out message.pem
quietly openssl pkcs7 -in message.pem -outform DER -out pkcs7.ContentInfo.der
quietly openssl crl2pkcs7 -in list.pem -certfile ca.pem -certfile rsa.pem -outform DER -out lists.ContentInfo.der

# keys and key files
for name in rsa ec gost256 gost512 gost2001; do
  quietly openssl pkcs8 -topk8 -nocrypt -in "$name.key" -outform DER -out "$name.PrivateKeyInfo.der"
done
protect() {
  name=$1
  shift
  quietly openssl pkcs8 -topk8 -in rsa.key -passout file:password "$@" -outform DER \
    -out "$name.EncryptedPrivateKeyInfo.der"
}
protect pbes2-sha1 -v2 aes256 -v2prf hmacWithSHA1
protect pbes2-sha256 -v2 des3 -v2prf hmacWithSHA256
protect scrypt -scrypt
protect pbes1 -v1 PBE-SHA1-3DES
protect gost -v2 gost89
pfx() {
  name=$1 key=$2
  shift 2
  quietly openssl pkcs12 -export -inkey "$key.key" -in "$key.pem" -name "Key of $key" -passout file:password "$@" \
    -out "$name.PFX.der"
}
pfx default rsa -certfile ca.pem
pfx provider rsa -certfile ca.pem -CSP 'Some provider' -LMK -caname 'The authority'
pfx triple rsa -certpbe PBE-SHA1-3DES -keypbe PBE-SHA1-3DES -macalg sha1
pfx plain ec -certpbe NONE -keypbe NONE -nomac
pfx gost gost256 -certpbe gost89 -keypbe gost89 -macalg md_gost12_512

# OCSP
printf 'V\t400101000000Z\t\t727361\tunknown\t/CN=rsa\nR\t400101000000Z\t240101000000Z,keyCompromise\t6563\tunknown\t/CN=ec\n' >index.txt
quietly openssl ocsp -issuer ca.pem -cert rsa.pem -reqout one.OCSPRequest.der
quietly openssl ocsp -no_nonce -sha256 -issuer ca.pem -cert rsa.pem -cert ec.pem -serial 5 -signer rsa.pem \
  -signkey rsa.key -reqout signed.OCSPRequest.der
quietly openssl ocsp -index index.txt -CA ca.pem -rsigner ca.pem -rkey ca.key -reqin one.OCSPRequest.der \
  -ndays 1 -respout one.OCSPResponse.der
quietly openssl ocsp -index index.txt -CA ca.pem -rsigner ec.pem -rkey ec.key -reqin signed.OCSPRequest.der \
  -resp_key_id -respout three.OCSPResponse.der

# time stamps
quietly openssl ts -query -data content -sha256 -out plain.TimeStampReq.der
quietly openssl ts -query -data content -sha512 -cert -tspolicy 1.2.3.4.5 -no_nonce -out policy.TimeStampReq.der
quietly openssl ts -query -data content -sha1 -out refused.TimeStampReq.der
for name in plain policy refused; do
  quietly openssl ts -reply -section authority -config tsa.cnf -queryfile "$name.TimeStampReq.der" \
    -out "$name.TimeStampResp.der"
done
quietly openssl ts -reply -section authority -config tsa.cnf -queryfile policy.TimeStampReq.der -token_out \
  -out token.ContentInfo.der

# certificate management, between the program and its own server
cmp() {
  name=$1
  shift
  quietly openssl cmp -config '' -use_mock_srv "$@" -reqout "$name-1.PKIMessage.der,$name-2.PKIMessage.der" \
    -rspout "$name-3.PKIMessage.der,$name-4.PKIMessage.der" -batch
}
secret="-ref 1234 -secret pass:secret -srv_ref 1234 -srv_secret pass:secret"
signed="-cert rsa.pem -key rsa.key -srv_trusted ca.pem -srv_cert ec.pem -srv_key ec.key -trusted ca.pem"
enrolled="-rsp_cert rsa.pem -rsp_capubs ca.pem -rsp_extracerts stamper.pem"
# shellcheck disable=SC2086
{
  cmp ir -cmd ir -newkey rsa.key -subject /CN=rsa -certout /dev/null -recipient /CN=ca -sans 127.0.0.1 -days 3 $secret $enrolled
  cmp cr -cmd cr -newkey rsa.key -subject /CN=rsa -certout /dev/null $signed $enrolled
  cmp kur -cmd kur -newkey rsa.key -oldcert rsa.pem -certout /dev/null $signed $enrolled
  cmp p10cr -cmd p10cr -csr rsa.csr -certout /dev/null $signed $enrolled
  cmp rr -cmd rr -oldcert rsa.pem -revreason 1 $signed $enrolled
  cmp genm -cmd genm -infotype caKeyUpdateInfo $secret
  cmp polled -cmd ir -newkey rsa.key -subject /CN=rsa -certout /dev/null -recipient /CN=ca -poll_count 2 -check_after 1 $secret $enrolled
}
