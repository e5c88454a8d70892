#!/usr/bin/env bash
# The main job from nothing: installs what it needs, builds, makes a CA in a folder of its own,
# serves it on loopback, enrols one client and has OpenSSL judge the certificate. The last line is
# the path of the certificate. Everything it makes stays below the folder it names.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset release -DPKIXCMP_TESTS=OFF -DPKIXCMP_BENCH=OFF -B build/demo >/dev/null
cmake --build build/demo
pkixcmp=$PWD/build/demo/tools/pkixcmp/pkixcmp

out=${PKIXCMP_DEMO_DIR:-$(mktemp -d "${TMPDIR:-/tmp}/pkixcmp-demo.XXXXXX")}
mkdir -p "$out"
export PKIXCMP_HOME=$out/home

echo "== a root in $out"
"$pkixcmp" root new --ca '\local\ca' --subject 'CN=Trial Root, O=Trial' --replace \
    --certout "$out/root.pem"

echo "== the CA on loopback"
"$pkixcmp" serve --ca '\local\ca' --listen 127.0.0.1:0 --approve all --log "$out/serve.log" \
    >"$out/serve.out" &
server=$!
trap 'kill "$server" 2>/dev/null; wait "$server" 2>/dev/null || true' EXIT
url=
for _ in $(seq 100); do
    url=$(sed -n 's/^listening on //p' "$out/serve.out")
    [[ -n "$url" ]] && break
    kill -0 "$server"
    sleep 0.1
done
[[ -n "$url" ]] || { echo "the CA did not start; see $out/serve.log" >&2; exit 1; }

echo "== an enrolment at $url"
"$pkixcmp" enrol --server "$url" --recipient 'CN=Trial Root, O=Trial' --subject 'CN=Alice' \
    --san dns:alice.example --san email:alice@example.org --trust "$out/root.pem" \
    --certout "$out/alice.pem"

echo "== what OpenSSL says"
openssl verify -CAfile "$out/root.pem" "$out/alice.pem"
openssl x509 -in "$out/alice.pem" -noout -subject -issuer -ext \
    subjectKeyIdentifier,authorityKeyIdentifier,subjectAltName
echo "$out/alice.pem"
