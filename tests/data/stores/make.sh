#!/bin/sh
# Makes the certificates and CRLs of the store tests, from the key beside it. RSA signatures and fixed
# dates give the same bytes each time.
set -eu
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

test -f key.pem || openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out key.pem

cat > "$work/ca.cnf" <<'CNF'
[ca]
default_ca = ca_default
[ca_default]
database = $ENV::WORK/index.txt
serial = $ENV::WORK/serial
new_certs_dir = $ENV::WORK
default_md = sha256
policy = any
preserve = yes
unique_subject = no
x509_extensions = leaf
[any]
countryName = optional
organizationName = optional
commonName = supplied
[req]
distinguished_name = dn
prompt = no
string_mask = nombstr
[dn]
commonName = unused
[leaf]
subjectKeyIdentifier = hash
[root]
basicConstraints = critical,CA:TRUE
subjectKeyIdentifier = hash
[crl_keyid]
authorityKeyIdentifier = keyid:always
[crl_issuer]
2.5.29.35 = DER:3003820105
[crl_broken]
2.5.29.35 = DER:0401ff
CNF
export WORK="$work"

# certificate NAME SUBJECT SERIAL SECTION [ISSUER]: self-signed unless an issuer is given.
certificate() {
    : > "$work/index.txt"
    echo "$3" > "$work/serial"
    openssl req -new -config "$work/ca.cnf" -key key.pem -subj "$2" -out "$work/$1.csr"
    if [ $# -gt 4 ]; then issuer="-cert $work/$5.pem"; else issuer="-selfsign"; fi
    # shellcheck disable=SC2086
    openssl ca -config "$work/ca.cnf" -batch -notext -in "$work/$1.csr" -keyfile key.pem $issuer \
        -extensions "$4" -startdate 20240101000000Z -enddate 20440101000000Z \
        -out "$work/$1.pem" 2> "$work/log" || { cat "$work/log"; exit 1; }
    openssl x509 -in "$work/$1.pem" -outform DER -out "$1.cer"
}

# crl NAME ISSUER [SECTION]
crl() {
    : > "$work/index.txt"
    if [ $# -gt 2 ]; then extensions="-crlexts $3"; else extensions=; fi
    # shellcheck disable=SC2086
    openssl ca -config "$work/ca.cnf" -gencrl -keyfile key.pem -cert "$work/$2.pem" $extensions \
        -crl_lastupdate 20240101000000Z -crl_nextupdate 20440101000000Z \
        -out "$work/$1.pem" 2> "$work/log" || { cat "$work/log"; exit 1; }
    openssl crl -in "$work/$1.pem" -outform DER -out "$1.crl"
}

certificate ca "/C=RU/O=Trial  Org/CN=Store CA" 01 root
certificate ca-case "/C=RU/O=TRIAL ORG /CN=store ca" 02 root
certificate alice "/C=RU/O=Trial Org/CN=Alice" 80 leaf ca
certificate bob "/C=RU/O=Trial Org/CN=Bob" 1234 leaf ca
certificate carol "/C=RU/O=Trial Org/CN=Carol" 1234 leaf ca-case
certificate alice-case "/C=RU/O=TRIAL ORG/CN=ALICE" 81 leaf ca

crl keyid ca crl_keyid
crl issuer ca crl_issuer
crl broken ca crl_broken
crl plain ca
crl case ca-case crl_keyid
