#!/bin/sh
# Certificates, revocation lists and requests as the openssl program makes them, with foreign and GOST keys:
# <directory>/*.crt, *.crl, *.csr, all DER. Keys and serial numbers are new each time.
set -eu
. "$(dirname "$0")/gost_plug_in.sh"
cd "$1"

gost_plug_in >openssl.cnf
cat >>openssl.cnf <<CONFIG
[req]
distinguished_name = none
prompt = no
string_mask = utf8only
[none]
[attributes]
distinguished_name = none
prompt = no
attributes = request_attributes
req_extensions = leaf
[request_attributes]
challengePassword = A challenge
unstructuredName = An unstructured name
[old_strings]
distinguished_name = none
prompt = no
string_mask = nombstr
[bmp_strings]
distinguished_name = none
prompt = no
string_mask = MASK:0x0800

[ca]
default_ca = authority
[authority]
database = index.txt
crlnumber = crlnumber
default_md = default

[root]
basicConstraints = critical, CA:TRUE, pathlen:3
keyUsage = critical, digitalSignature, keyCertSign, cRLSign, decipherOnly
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always, issuer:always
subjectAltName = @names
issuerAltName = email:ca@example.org
extendedKeyUsage = critical, serverAuth, emailProtection, 1.2.643.2.2.34.6
authorityInfoAccess = OCSP;URI:http://ocsp.example.org/, caIssuers;dirName:directory
subjectInfoAccess = caRepository;URI:http://repository.example.org/
certificatePolicies = 1.2.643.100.113.1, @policy
policyMappings = 1.2.643.100.113.1:1.2.643.100.113.2
policyConstraints = requireExplicitPolicy:3, inhibitPolicyMapping:0
inhibitAnyPolicy = 300
nameConstraints = permitted;DNS:example.org, excluded;IP:10.0.0.0/255.0.0.0
crlDistributionPoints = point, other_point
freshestCRL = URI:http://crl.example.org/delta.crl
tlsfeature = status_request
nsComment = "an extension that no codec reads"
[names]
email = user@example.org
URI = https://example.org/path?query
DNS = *.example.org
RID = 1.2.643.7.1
IP.1 = 192.0.2.1
IP.2 = 2001:db8::1
otherName = 1.3.6.1.4.1.311.20.2.3;UTF8:user@example.org
dirName = directory
[directory]
C = RU
O = Организация
CN = directory
[policy]
policyIdentifier = 2.23.140.1.2.1
CPS = https://example.org/cps
userNotice = @notice
[notice]
explicitText = UTF8:Примечание
organization = Example
noticeNumbers = 1, 2
[point]
fullname = URI:http://crl.example.org/1.crl, URI:ldap://example.org/cn=1
[other_point]
fullname = dirName:directory
CRLissuer = dirName:directory
reasons = keyCompromise, CACompromise, AACompromise
[relative]
crlDistributionPoints = relative_point
[relative_point]
relativename = relative_name
CRLissuer = dirName:directory
[relative_name]
CN = relative
[leaf]
basicConstraints = CA:FALSE
keyUsage = digitalSignature
subjectAltName = DNS:leaf.example.org
[spelled_default]
basicConstraints = DER:30:03:01:01:00

[list]
authorityKeyIdentifier = keyid:always, issuer:always
issuingDistributionPoint = critical, @issuing_point
freshestCRL = URI:http://crl.example.org/delta.crl
[delta_list]
authorityKeyIdentifier = keyid:always
2.5.29.27 = critical, ASN1:INTEGER:258
issuingDistributionPoint = critical, @some_reasons
[issuing_point]
fullname = URI:http://crl.example.org/1.crl
onlyuser = TRUE
indirectCRL = TRUE
[some_reasons]
onlyCA = TRUE
onlysomereasons = superseded, cessationOfOperation
CONFIG
export OPENSSL_CONF="$PWD/openssl.cnf"

# expiry, revocation with its reason and what belongs to it, serial number, subject
revoked() { printf 'R\t400101000000Z\t%s\t%s\tunknown\t/CN=%s\n' "$1" "$2" "$2" >>index.txt; }
: >index.txt
revoked 240101000000Z                                            01
revoked 240102030405Z,unspecified                                7F
revoked 240103000000Z,keyCompromise                              80
revoked 490101000000Z,CACompromise                               0100
revoked 500101000000Z,affiliationChanged                         0102030405060708090A0B0C0D0E0F1011121314
revoked 240104000000Z,superseded                                 FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF
revoked 240105000000Z,cessationOfOperation                       06
revoked 240106000000Z,certificateHold                            07
revoked 240107000000Z,removeFromCRL                              08
revoked 240108000000Z,keyTime,20231231235959Z                    09
revoked 240109000000Z,CAkeyTime,20520101000000Z                  0A
revoked 240110000000Z,holdInstruction,holdInstructionReject      0B
printf '0FA0\n' >crlnumber
: >empty.txt

list() {  # name of the key, name of the list, options
  key=$1 name=$2
  shift 2
  openssl ca -gencrl -keyfile "$key.key" -cert "$key.pem" "$@" -out list.pem 2>errors || { cat errors >&2; exit 1; }
  openssl crl -in list.pem -outform DER -out "$key-$name.crl"
}

objects() {  # name, options of genpkey
  key=$1
  shift
  openssl genpkey "$@" -out "$key.key" 2>/dev/null
  openssl req -x509 -new -key "$key.key" -subj "/C=RU/O=Организация/OU=A+CN=authority $key" -utf8 -multivalue-rdn \
    -days 20000 -extensions root -out "$key.pem"
  openssl x509 -in "$key.pem" -outform DER -out "$key-root.crt"
  openssl req -x509 -new -key "$key.key" -subj "/CN=leaf" -set_serial 0x8000000000000000 -days 90 -extensions leaf \
    -outform DER -out "$key-leaf.crt"
  openssl req -new -key "$key.key" -subj "/CN=request" -section attributes -outform DER -out "$key-attributes.csr"
  openssl req -new -key "$key.key" -subj "/" -outform DER -out "$key-bare.csr"
  list "$key" full -crldays 30 -crlexts list
  list "$key" delta -crldays 20000 -crlexts delta_list
}

objects rsa -algorithm RSA -pkeyopt rsa_keygen_bits:2048
objects p256 -algorithm EC -pkeyopt ec_paramgen_curve:P-256
objects ed25519 -algorithm ED25519
objects gost256 -algorithm gost2012_256 -pkeyopt paramset:TCA
objects gost512 -algorithm gost2012_512 -pkeyopt paramset:A

# what only one key is needed for
certificate() { openssl req -x509 -new -key p256.key "$@"; }
certificate -subj "/O=Käse/CN=printable" -utf8 -section old_strings -extensions leaf -outform DER -out old-strings.crt
certificate -subj "/O=Käse/CN=bmp" -utf8 -section bmp_strings -extensions leaf -outform DER -out bmp-strings.crt
certificate -subj "/emailAddress=a@example.org/DC=example/serialNumber=12/UID=u" -set_serial -129 -extensions relative \
  -outform DER -out relative.crt
certificate -subj "/CN=default" -extensions spelled_default -outform DER -out spelled-default.crt
certificate -subj "/CN=pss" -key rsa.key -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:20 -sha256 \
  -extensions leaf -outform DER -out pss.crt
list p256 first-version -crldays 30
cp empty.txt index.txt
list p256 empty -crldays 30 -crlexts delta_list
