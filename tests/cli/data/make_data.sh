#!/bin/sh
# Makes the objects beside it again, byte for byte: the key is kept, the dates are given, RSA signatures of PKCS #1 1.5
# hold nothing random. Needs the openssl program, version 3.
set -eu
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

[ -f key.pem ] || openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -out key.pem

# Revoked: with a reason and a moment, with a reason, without one, on hold with an instruction.
printf 'R\t300101000000Z\t200102030405Z,keyTime,20191231235959Z\t0A01\tunknown\t/CN=one\n' >"$work/index"
printf 'R\t300101000000Z\t200203040506Z,superseded\t00FF\tunknown\t/CN=two\n' >>"$work/index"
printf 'R\t300101000000Z\t200304050607Z\t7F\tunknown\t/CN=three\n' >>"$work/index"
printf 'R\t300101000000Z\t200405060708Z,holdInstruction,holdInstructionReject\t80\tunknown\t/CN=four\n' >>"$work/index"
echo 1000 >"$work/crlnumber"

cat >"$work/conf" <<CONF
oid_section = oids
[oids]
INNLE = 1.2.643.100.4

[req]
distinguished_name = name
attributes = attributes
prompt = no
string_mask = utf8only
utf8 = yes
[name]
C = RU
0.O = Общество \\"Ромашка\\", ООО
1.OU = \\#1
CN = example.org
OGRN = 1234567890123
SNILS = 12345678901
INN = 123456789012
INNLE = 1234567890
[attributes]
challengePassword = open sesame

[requested]
subjectAltName = DNS:request.example.org
keyUsage = critical, digitalSignature, keyAgreement

[ca]
default_ca = authority
[authority]
database = $work/index
new_certs_dir = $work
serial = $work/serial
crlnumber = $work/crlnumber
certificate = $work/ca.pem
private_key = key.pem
default_md = sha256
policy = any
preserve = yes
email_in_dn = yes
string_mask = utf8only
[any]
C = optional
O = optional
OU = optional
CN = optional
OGRN = optional
SNILS = optional
INN = optional
INNLE = optional

[rich]
basicConstraints = critical, CA:TRUE, pathlen:3
keyUsage = critical, digitalSignature, keyCertSign, cRLSign, decipherOnly, keyAgreement
extendedKeyUsage = serverAuth, 1.2.3.4.5
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always, issuer:always
subjectAltName = @names
issuerAltName = URI:http://issuer.example.org/
crlDistributionPoints = point
freshestCRL = URI:http://crl.example.org/delta.crl
authorityInfoAccess = OCSP;URI:http://ocsp.example.org/, caIssuers;URI:http://ca.example.org/ca.crt
subjectInfoAccess = 1.3.6.1.5.5.7.48.5;URI:http://repository.example.org/
certificatePolicies = 1.2.3.4.1, @policy
policyMappings = 1.2.3.4.1:1.2.3.4.9
policyConstraints = requireExplicitPolicy:2, inhibitPolicyMapping:0
inhibitAnyPolicy = 1
nameConstraints = permitted;DNS:.example.org
1.3.6.1.4.1.311.21.7 = ASN1:SEQUENCE:template
1.3.6.1.4.1.311.20.2 = ASN1:BMPSTRING:Web server
1.2.643.100.111 = ASN1:FORMAT:UTF8,UTF8String:Средство
1.2.643.100.112 = ASN1:SEQUENCE:signtool
2.5.29.16 = DER:3022800F32303230303130313030303030305A810F32303231303130313030303030305A
1.2.3.4.99 = DER:0403010203
[names]
DNS = www.example.org
email = who@example.org
URI = https://example.org/
IP.1 = 192.0.2.17
IP.2 = 2001:db8::17
RID = 1.2.3.4
dirName = directory
otherName = 1.3.6.1.4.1.311.20.2.3;UTF8:who@domain
[directory]
CN = A + B
[point]
fullname = URI:http://crl.example.org/a.crl, URI:http://crl.example.org/b.crl
CRLissuer = dirName:directory
reasons = keyCompromise, CACompromise
[policy]
policyIdentifier = 1.2.3.4.2
CPS.1 = http://cps.example.org/
userNotice.1 = @plain
userNotice.2 = @reference
[plain]
explicitText = UTF8:Read this
[reference]
organization = Example
noticeNumbers = 1, 2
[template]
id = OID:1.2.3.4.5.6
major = INTEGER:100
minor = INTEGER:7
[signtool]
a = FORMAT:UTF8,UTF8:Инструмент
b = FORMAT:UTF8,UTF8:Центр
c = FORMAT:UTF8,UTF8:СФ/1
d = FORMAT:UTF8,UTF8:СФ/2

[hostile]
basicConstraints = DER:300602
2.5.29.15 = DER:0302058030820102
1.2.3.4.98 = DER:00

[list]
authorityKeyIdentifier = keyid:always
issuingDistributionPoint = critical, @issuing
2.5.29.27 = critical, ASN1:INTEGER:0x0FFF
[issuing]
fullname = URI:http://crl.example.org/a.crl
onlyuser = TRUE
onlysomereasons = keyCompromise, superseded
indirectCRL = TRUE
CONF

config() { openssl "$@" -config "$work/conf"; }
sign() { # request, section, serial, output, more options
  request=$1 section=$2 serial=$3 output=$4
  shift 4
  echo "$serial" >"$work/serial"
  cp "$work/index" "$work/index.kept"
  openssl ca -config "$work/conf" -batch -notext -in "$request" -extensions "$section" \
    -startdate 20200102030405Z -enddate 20510102030405Z -out "$output" "$@" 2>"$work/log" || { cat "$work/log"; exit 1; }
  mv "$work/index.kept" "$work/index"
}

config req -new -key key.pem -utf8 -reqexts requested -out request.pem
sign request.pem rich 00F1 "$work/ca.pem" -selfsign
cp "$work/ca.pem" rich.pem
# escape sequences, a direction override and a line end, in a name; broken content in extensions
openssl req -config "$work/conf" -new -key key.pem -utf8 -multivalue-rdn \
  -subj "$(printf '/CN=\033[2Jevil\342\200\256gro.elpmaxe\nVersion 9+OU=a\\\\b\177\302\233')" -out "$work/hostile.req"
sign "$work/hostile.req" hostile 02 hostile.pem
config ca -gencrl -crlexts list -crl_lastupdate 20210102030405Z -crl_nextupdate 20310102030405Z -out list.pem
# version 1, in Base64 alone: entries and list without extensions
sed -n 3p "$work/index" >"$work/index1" && mv "$work/index1" "$work/index"
sed -i '/^crlnumber/d' "$work/conf"
config ca -gencrl -crl_lastupdate 20210102030405Z -crl_nextupdate 20310102030405Z -out "$work/v1.pem"
grep -v -e ----- "$work/v1.pem" >list_v1.b64
